#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include "graph/model.h"
#include "graph/proto/model.pb.h"
#include "log_capture.h"
#include "model_builder.h"

namespace {

using testkit::LogCapture;
using testkit::ModelBuilder;

// A model that uses every attribute kind, weights, a control edge and graph/model attributes.
ModelBuilder Everything() {
  ModelBuilder model("everything");
  (*model.Def().mutable_attr())["producer"].set_s("tests");
  (*model.Def().mutable_graph(0)->mutable_attr())["opset"].set_i(5);
  model.Data("in", {1, -1, 4}, 1);
  model.ConstFloat("w", {0.5f, -1.25f, 3.0f, 4.0f}, {2, 2});
  model.Op("op", "Custom")
      .Input("in")
      .Input("w")
      .InputDesc({1, -1, 4}, 1, 1)
      .InputDesc({2, 2})
      .InputConst({false, true})
      .Output({1, 2})
      .Output({3}, 9, 2)
      .Attr("s", "text")
      .Attr("i", int64_t{-5})
      .Attr("f", 1.5f)
      .Attr("b", true)
      .Attr("li", std::vector<int64_t>{1, -2, int64_t{1} << 40})
      .Attr("lf", std::vector<float>{0.25f})
      .Attr("ls", std::vector<std::string>{"a", "b"})
      .EmptyListAttr("empty");
  auto* lb = (*model.Op("flags", "Custom")
                   .Input("op:1")
                   .InputDesc({3}, 9)
                   .Control("in")
                   .Def()
                   .mutable_attr())["lb"]
                 .mutable_list();
  lb->add_b(true);
  lb->add_b(false);
  return model;
}

tesu::proto::ModelDef SaveToProto(const tov::Model& model) {
  tesu::proto::ModelDef def;
  EXPECT_EQ(model.Save(def), tov::GRAPH_SUCCESS);
  return def;
}

tov::Model LoadBytes(const std::string& bytes) {
  tov::Model model;
  EXPECT_EQ(model.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
            tov::GRAPH_SUCCESS);
  return model;
}

TEST(ModelIoTest, BinaryRoundTripIsLossless) {
  const ModelBuilder source = Everything();
  tov::Model first = LoadBytes(source.Bytes());
  std::string saved;
  ASSERT_EQ(first.Save(saved), tov::GRAPH_SUCCESS);
  tov::Model second = LoadBytes(saved);
  google::protobuf::util::MessageDifferencer differ;
  std::string report;
  differ.ReportDifferencesToString(&report);
  EXPECT_TRUE(differ.Compare(source.Def(), SaveToProto(second))) << report;
  std::string again;
  second.Save(again);
  EXPECT_EQ(saved, again) << "saving is deterministic";
}

TEST(ModelIoTest, JsonRoundTripIsLossless) {
  const ModelBuilder source = Everything();
  std::string json;
  ASSERT_TRUE(google::protobuf::util::MessageToJsonString(source.Def(), &json).ok());
  tesu::proto::ModelDef parsed;
  ASSERT_TRUE(google::protobuf::util::JsonStringToMessage(json, &parsed).ok());
  tov::Model model;
  ASSERT_EQ(model.Load(std::move(parsed)), tov::GRAPH_SUCCESS);
  EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(source.Def(), SaveToProto(model)));
}

TEST(ModelIoTest, ModelWithoutGraphLoadsWithoutComputeGraph) {
  tov::Model model = LoadBytes(std::string());
  EXPECT_EQ(tov::GraphUtils::GetComputeGraph(model.GetGraph()), nullptr);
}

TEST(ModelIoTest, ConstWithoutOutputDescriptionGetsItsTensorsDescription) {
  ModelBuilder model;
  model.ConstInt32("c", {1, 2, 3});
  model.Def().mutable_graph(0)->mutable_op(0)->clear_output_desc();
  auto graph = model.LoadGraph();
  EXPECT_EQ(graph->FindNode("c")->GetOpDesc()->GetOutputDesc(0).GetShape(), tov::Shape({3}));
}

struct MalformedCase {
  const char* label;
  void (*mutate)(ModelBuilder&);
  const char* expected;  // a fragment of the log line
};

void AddRelu(ModelBuilder& m) {
  m.Data("x");
  m.Unary("y", "Relu", "x");
}

const MalformedCase kMalformed[] = {
    {"missing producer",
     [](ModelBuilder& m) {
       m.Data("x");
       m.Unary("y", "Relu", "ghost");
     },
     "node \"y\" (Relu): input \"ghost:0\" names no node"},
    {"output index beyond range",
     [](ModelBuilder& m) {
       m.Data("x");
       m.Unary("y", "Relu", "x:3");
     },
     "asks for output 3 but node \"x\" has 1 outputs"},
    {"control edge to a missing node",
     [](ModelBuilder& m) {
       m.Data("x");
       m.Op("y", "NoOp").Control("ghost");
     },
     "input \"ghost:-1\" names no node"},
    {"malformed input",
     [](ModelBuilder& m) {
       m.Data("x");
       m.Op("y", "Relu").Input("x:one");
     },
     "is not of the form"},
    {"index below -1",
     [](ModelBuilder& m) {
       m.Data("x");
       m.Op("y", "Relu").Input("x:-2");
     },
     "is not of the form"},
    {"duplicate names",
     [](ModelBuilder& m) {
       m.Data("x");
       m.Data("x");
     },
     "node \"x\" (Data): another node has the same name"},
    {"empty name", [](ModelBuilder& m) { m.Op("", "Relu"); }, "has no name"},
    {"const without value", [](ModelBuilder& m) { m.Op("c", "Const").Output(); },
     "node \"c\" (Const): Const node has no tensor attribute \"value\""},
    {"tensor data too short",
     [](ModelBuilder& m) {
       m.ConstInt32("c", {1, 2}, {3});
     },
     "holds 8 bytes but its shape and INT32 data type need 12"},
    {"tensor data too long",
     [](ModelBuilder& m) {
       m.ConstInt32("c", {1, 2}, {1});
     },
     "holds 8 bytes"},
    {"element count overflow",
     [](ModelBuilder& m) {
       m.ConstInt32("c", {1}, {int64_t{1} << 40, int64_t{1} << 40});
     },
     "element count is negative or overflows"},
    {"negative dimension", [](ModelBuilder& m) { m.ConstInt32("c", {1}, {-1}); },
     "element count is negative"},
    {"dimension below -1",
     [](ModelBuilder& m) {
       m.Data("x", {1, -3});
     },
     "has dimension -3"},
    {"unknown tensor data type",
     [](ModelBuilder& m) {
       m.ConstInt32("c", {1});
       (*m.Def().mutable_graph(0)->mutable_op(0)->mutable_attr())["value"]
           .mutable_t()
           ->mutable_desc()
           ->set_dtype(99);
     },
     "unknown data type 99"},
    {"mixed list",
     [](ModelBuilder& m) {
       auto* list = (*m.Op("n", "T").Def().mutable_attr())["l"].mutable_list();
       list->add_i(1);
       list->add_s("a");
     },
     "mixes values of several kinds"},
    {"self loop", [](ModelBuilder& m) { m.Op("loop", "Relu").Input("loop").Output(); },
     "node \"loop\" (Relu) lies on a cycle"},
    {"cycle",
     [](ModelBuilder& m) {
       AddRelu(m);
       m.Op("a", "Add").Input("x").Input("b").Output();
       m.Unary("b", "Relu", "a");
     },
     "lies on a cycle"},
};

TEST(ModelIoTest, MalformedModelsAreRefusedWithOneLineNamingTheProblem) {
  for (const MalformedCase& c : kMalformed) {
    SCOPED_TRACE(c.label);
    ModelBuilder model;
    c.mutate(model);
    const std::string bytes = model.Bytes();
    LogCapture log;
    tov::Model loaded;
    EXPECT_EQ(loaded.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
              tov::GRAPH_MODEL_INVALID);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0].level, 3);
    EXPECT_NE(log.Lines()[0].text.find(c.expected), std::string::npos) << log.Lines()[0].text;
  }
}

TEST(ModelIoTest, BytesThatAreNotAModelAreRefused) {
  const std::string garbage[] = {std::string("\xff\xff\xff\xff", 4), std::string("\x12\x05"
                                                                                 "ab",
                                                                                 4)};
  for (const std::string& bytes : garbage) {
    LogCapture log;
    tov::Model model;
    EXPECT_EQ(model.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
              tov::GRAPH_MODEL_INVALID);
    EXPECT_TRUE(log.Contains("not a serialised model"));
  }
}

TEST(ModelIoTest, SavingTwoNodesOfOneNameFails) {
  auto graph = ModelBuilder().LoadGraph();
  graph->AddNode(std::make_shared<tov::OpDesc>("same", "A"));
  graph->AddNode(std::make_shared<tov::OpDesc>("same", "B"));
  tov::Model model("m", tov::GraphUtils::CreateGraphFromComputeGraph(graph));
  LogCapture log;
  std::string bytes;
  EXPECT_NE(model.Save(bytes), tov::GRAPH_SUCCESS);
  EXPECT_TRUE(log.Contains("two nodes are named \"same\""));
}

}  // namespace
