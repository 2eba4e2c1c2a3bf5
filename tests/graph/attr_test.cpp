// Typed attribute access on an op description, and shape element counts.
#include <gtest/gtest.h>

#include <cstdint>

#include "graph/attr_utils.h"
#include "graph/node.h"
#include "graph/op_desc.h"
#include "graph/shape.h"
#include "graph/tensor.h"
#include "log_capture.h"
#include "model_builder.h"

namespace {

using tov::AttrUtils;

// Each kind written through the typed setters reads back, through a const holder too, and only
// as its own kind; a missing name reads as nothing and leaves the output alone; 32-bit reads
// refuse values that do not fit.
TEST(AttrTest, EveryKindReadsBackOnlyAsItsOwnKind) {
  auto desc = std::make_shared<tov::OpDesc>("n", "T");
  const auto tensor = std::make_shared<tov::Tensor>();
  ASSERT_TRUE(AttrUtils::SetBool(desc, "b", true) && AttrUtils::SetFloat(desc, "f", 0.5f) &&
              AttrUtils::SetInt(desc, "i", -7) && AttrUtils::SetInt(desc, "big", 1ll << 40) &&
              AttrUtils::SetStr(desc, "s", "x") && AttrUtils::SetTensor(desc, "t", tensor) &&
              AttrUtils::SetListBool(desc, "lb", {true}) &&
              AttrUtils::SetListStr(desc, "ls", {"a", "b"}) &&
              AttrUtils::SetListFloat(desc, "lf", {1.0f}) &&
              AttrUtils::SetListInt(desc, "wide", {int64_t{1} << 40}));
  const std::shared_ptr<const tov::OpDesc> held = desc;
  bool b = false;
  float f = 0;
  int32_t narrow = 0;
  int64_t number = 7;
  std::string text;
  tov::TensorPtr read;
  std::vector<bool> bools;
  std::vector<std::string> strings;
  std::vector<int64_t> list;
  std::vector<int32_t> narrowList;
  EXPECT_TRUE(AttrUtils::GetBool(held, "b", b) && b);
  EXPECT_TRUE(AttrUtils::GetFloat(held, "f", f) && f == 0.5f);
  EXPECT_TRUE(AttrUtils::GetInt(held, "i", narrow) && narrow == -7);
  EXPECT_FALSE(AttrUtils::GetInt(held, "big", narrow));
  // The 32-bit read takes both ends of its range and nothing beyond them.
  for (const int64_t edge : {int64_t{INT32_MIN}, int64_t{INT32_MAX}}) {
    AttrUtils::SetInt(desc, "edge", edge);
    EXPECT_TRUE(AttrUtils::GetInt(held, "edge", narrow) && narrow == edge);
    AttrUtils::SetInt(desc, "edge", edge + (edge < 0 ? -1 : 1));
    EXPECT_FALSE(AttrUtils::GetInt(held, "edge", narrow));
  }
  EXPECT_FALSE(AttrUtils::GetListInt(held, "wide", narrowList));
  EXPECT_TRUE(AttrUtils::GetStr(held, "s", text) && text == "x");
  EXPECT_TRUE(AttrUtils::GetTensor(held, "t", read) && read == tensor);
  EXPECT_TRUE(AttrUtils::GetListBool(held, "lb", bools) && bools == std::vector<bool>{true});
  EXPECT_TRUE(AttrUtils::GetListStr(held, "ls", strings) && strings.size() == 2u);
  EXPECT_FALSE(AttrUtils::GetListBool(held, "ls", bools) || AttrUtils::GetStr(held, "b", text) ||
               AttrUtils::GetListInt(held, "s", list) || AttrUtils::GetListInt(held, "lf", list) ||
               AttrUtils::GetListInt(held, "i", list) || AttrUtils::GetInt(held, "s", number) ||
               AttrUtils::GetBool(held, "i", b));
  EXPECT_FALSE(AttrUtils::GetInt(held, "absent", number));
  EXPECT_EQ(number, 7);
  EXPECT_NE(desc->DelAttr("absent"), tov::GRAPH_SUCCESS);
  EXPECT_TRUE(AttrUtils::HasAttr(held, "t") && !AttrUtils::HasAttr(held, "absent"));
  EXPECT_FALSE(AttrUtils::HasAttr(std::shared_ptr<const tov::OpDesc>(), "t"));
  EXPECT_FALSE(AttrUtils::SetBool(std::shared_ptr<tov::OpDesc>(), "x", true));
}

TEST(AttrTest, EmptyListReadsAsAnyKindAndIntListsNarrow) {
  tov::OpDesc desc("n", "T");
  AttrUtils::SetListInt(desc, "empty", {});
  AttrUtils::SetListInt(desc, "pad", {1, -2, 3});
  std::vector<float> floats{1.0f};
  std::vector<std::string> strings{"x"};
  std::vector<int32_t> narrow;
  EXPECT_TRUE(AttrUtils::GetListFloat(desc, "empty", floats) && floats.empty());
  EXPECT_TRUE(AttrUtils::GetListStr(desc, "empty", strings) && strings.empty());
  AttrUtils::SetListFloat(desc, "no_floats", {});
  EXPECT_TRUE(AttrUtils::GetListInt(desc, "no_floats", narrow) && narrow.empty());
  ASSERT_NE(desc.MutableAttr("pad"), nullptr);
  EXPECT_EQ(tov::AttrValue(*desc.FindAttr("pad")), *desc.FindAttr("pad"));  // copied whole
  ASSERT_TRUE(AttrUtils::GetListInt(desc, "pad", narrow));
  EXPECT_EQ(narrow, (std::vector<int32_t>{1, -2, 3}));
}

TEST(AttrTest, SetReplacesAndAttributesStaySorted) {
  tov::OpDesc desc("n", "T");
  desc.SetAttr("b", tov::AttrValue::CreateFrom(int64_t{1}));
  desc.SetAttr("a", tov::AttrValue::CreateFrom(true));
  desc.SetAttr("b", tov::AttrValue::CreateFrom(2.5f));
  ASSERT_EQ(desc.GetAllAttrs().size(), 2u);
  EXPECT_EQ(desc.GetAllAttrs()[0].first, "a");
  float value = 0;
  EXPECT_TRUE(AttrUtils::GetFloat(desc, "b", value));
  EXPECT_EQ(value, 2.5f);
  // A whole list, unsorted, longer than the in-place sort takes, each name three times: sorted,
  // and the last of a name wins.
  tov::AttrHolder::AttrList list = desc.NewAttrList();
  for (int64_t i = 29; i >= 0; --i) {
    list.emplace_back(tov::AttrName::Intern("k" + std::to_string(i % 10)),
                      tov::AttrValue::CreateFrom(i));
  }
  desc.SetAllAttrs(std::move(list));
  ASSERT_EQ(desc.GetAllAttrs().size(), 10u);
  for (int64_t i = 0; i < 10; ++i) {
    int64_t held = -1;
    EXPECT_TRUE(AttrUtils::GetInt(desc, "k" + std::to_string(i), held) && held == i) << i;
  }
}

// Queries beyond a node's inputs or outputs answer empty, and updates there are refused.
TEST(AttrTest, QueriesBeyondTheDescriptionsAnswerEmpty) {
  auto graph = testkit::ReluChain(2);
  tov::Node& node = testkit::NodeOf(*graph, "n1");
  tov::OpDesc& desc = *node.GetOpDesc();
  EXPECT_TRUE(desc.MutableInputDesc(0) != nullptr && desc.MutableOutputDesc(0) != nullptr);
  testkit::LogCapture log;
  // n1 has one input and one output: 1 is the first index beyond each.
  for (const uint32_t beyond : {1u, 9u}) {
    SCOPED_TRACE(beyond);
    EXPECT_EQ(desc.GetInputDesc(beyond), tov::TensorDesc());
    EXPECT_EQ(desc.GetOutputDesc(beyond), tov::TensorDesc());
    EXPECT_EQ(desc.MutableInputDesc(beyond), nullptr);
    EXPECT_EQ(desc.MutableOutputDesc(beyond), nullptr);
    EXPECT_EQ(desc.UpdateInputDesc(beyond, {}), tov::GRAPH_PARAM_INVALID);
    EXPECT_EQ(desc.UpdateOutputDesc(beyond, {}), tov::GRAPH_PARAM_INVALID);
    EXPECT_EQ(node.ROLE(NodeWalker).InDataNode(beyond), nullptr);
  }
  EXPECT_EQ(log.Lines().size(), 4u);
  EXPECT_EQ(node.ROLE(NodeWalker).InDataNode(0)->GetName(), "n0");
  EXPECT_EQ(node.GetAllOutDataAnchors().size(), 1u);
  // Tensor values compare by description and bytes, not by identity.
  const auto tensor = std::make_shared<tov::Tensor>();
  const auto same = std::make_shared<tov::Tensor>();
  EXPECT_EQ(tov::AttrValue::CreateFrom(tensor), tov::AttrValue::CreateFrom(same));
  EXPECT_FALSE(tov::AttrValue::CreateFrom(tensor) == tov::AttrValue::CreateFrom(tov::TensorPtr()));
  EXPECT_FALSE(tov::AttrValue::CreateFrom(int64_t{1}) == tov::AttrValue::CreateFrom(true));
}

TEST(ShapeTest, ElementCountsOfScalarsUnknownAndOverflowingShapes) {
  int64_t count = 0;
  EXPECT_TRUE(tov::Shape(std::vector<int64_t>{}).GetShapeSize(count));
  EXPECT_EQ(count, 1);
  EXPECT_FALSE(tov::Shape({-1, 3}).GetShapeSize(count));
  EXPECT_FALSE(tov::Shape({int64_t{1} << 32, int64_t{1} << 32}).GetShapeSize(count));
  EXPECT_TRUE(tov::Shape({2, 0, int64_t{1} << 62}).GetShapeSize(count));
  EXPECT_EQ(count, 0);
  EXPECT_NE(tov::Shape({1, 2}), tov::Shape({1, 2, 1}));
}

}  // namespace
