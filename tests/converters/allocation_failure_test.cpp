// The plug-in's own allocations (the parser object, new op descriptions, new tensors, temporary
// arrays) use the non-throwing forms; this executable replaces those forms so that each failure
// can be provoked. It is a separate executable because the replacement is process-wide.
#include <gtest/gtest.h>

#include <cstddef>
#include <new>

#include "parse.h"

namespace {

// Number of non-throwing allocations still allowed to succeed; negative means unlimited.
int g_objectsLeft = -1;
int g_arraysLeft = -1;

bool Exhausted(int& left) {
  if (left < 0) return false;
  if (left == 0) return true;
  --left;
  return false;
}

// Lets `objects` single-object and `arrays` array allocations succeed, then fails the rest.
class ExhaustedHeap {
 public:
  ExhaustedHeap(int objects, int arrays) {
    g_objectsLeft = objects;
    g_arraysLeft = arrays;
  }
  ~ExhaustedHeap() { g_objectsLeft = g_arraysLeft = -1; }
};

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (Exhausted(g_objectsLeft)) return nullptr;
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  if (Exhausted(g_arraysLeft)) return nullptr;
  try {
    return ::operator new[](size);
  } catch (...) {
    return nullptr;
  }
}

namespace {

using namespace testkit;

constexpr int kUnlimited = -1;
const char* const kNullAddr = "param[\"addr\"] must not be null.";

struct Row {
  const char* type;
  int objects;
  int arrays;
  uint32_t status;
  const char* function;
  int line;
  std::string message;
};

// The graph is left as it was, apart from ReduceMeanD's retype, which precedes its allocations.
TEST(ConverterAllocationFailure, IsReportedWithItsStatusAndLine) {
  const Row rows[] = {
      {"ReduceMeanD", 0, kUnlimited, 1, "OrvaneReduceMeanDParserFunc", 298,
       Quoted("axesTensor is nullptr !")},
      {"ReduceMeanD", kUnlimited, 0, 3, "OrvaneReduceMeanDParserFunc", 301, kNullAddr},
      {"BatchToSpaceNDD", 0, kUnlimited, 1, "BatchToSpaceParserFunc", 455,
       Quoted("blockShapeTensor is nullptr !")},
      {"BatchToSpaceNDD", kUnlimited, 0, 3, "BatchToSpaceParserFunc", 458, kNullAddr},
      {"BatchToSpaceNDD", 1, kUnlimited, 1, "BatchToSpaceParserFunc", 466,
       Quoted("cropsTensor is nullptr !")},
      {"BatchToSpaceNDD", kUnlimited, 1, 3, "BatchToSpaceParserFunc", 469, kNullAddr},
      {"Concat", 0, kUnlimited, 1, "ConcatParserFunc", 135, Quoted("op is nullptr !")},
      {"BatchNorm", 0, kUnlimited, 1, "BatchNormParserFunc", 79, Quoted("op is nullptr !")},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    const bool batchNorm = std::string(row.type) == "BatchNorm";
    ModelBuilder model;
    model.Data("x");
    for (const char* name : {"p0", "p1", "p2", "p3"}) model.ConstInt32(name, {1});
    OpBuilder op = model.Unary("n", row.type, "x");
    op.Attr("axes", Ints{1}).Attr("block_shape", Ints{2, 2}).Attr("crops", Ints{0, 0, 0, 0});
    op.Input("p0");
    if (batchNorm) op.Input("p1").Input("p2").Input("p3");
    auto graph = Load(model);
    const Names namesBefore = NodeNames(*graph);

    LogCapture log;
    uint32_t status = 0;
    {
      ExhaustedHeap heap(row.objects, row.arrays);
      status = Convert(*graph, "n");
    }
    EXPECT_EQ(status, row.status);
    ExpectOnlyLine(log, "AI_FMK", UtilLine(row.function, row.line, row.message));
    EXPECT_EQ(NodeNames(*graph), namesBefore);
    EXPECT_EQ(WeightsOf(*graph, "n").size(), batchNorm ? 4u : 1u);
  }
}

TEST(ParserCreatorAllocationFailure, YieldsNoParserAndNoLog) {
  LogCapture log;
  std::shared_ptr<tesu::ModelParser> parser;
  {
    ExhaustedHeap heap(0, kUnlimited);
    parser = tesu::Creator_ORVANE_Model_Parser();
  }
  EXPECT_EQ(parser, nullptr);
  EXPECT_TRUE(log.Lines().empty());
}

}  // namespace
