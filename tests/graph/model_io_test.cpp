#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "graph/model.h"
#include "graph/model_limits.h"
#include "graph/proto/model.pb.h"
#include "log_capture.h"
#include "model_builder.h"

namespace {

using testkit::LogCapture;
using testkit::ModelBuilder;

// A model that uses every attribute kind (and one without a value, under an empty name), weights,
// a control edge, an unconnected input before a connected one, graph/model attributes, and a
// shape and a list too long to be held inline.
constexpr char kEverything[] = R"({"name": "everything", "attr": {"producer": {"s": "tests"}},
  "graph": [{"name": "g", "attr": {"opset": {"i": 5}}, "op": [
    {"name": "in", "type": "Data", "input_desc": [{"dtype": 1, "shape": [1, -1, 4]}],
     "output_desc": [{"dtype": 1, "shape": [1, -1, 4]}]},
    {"name": "w", "type": "Const", "output_desc": [{"shape": [2, 2]}], "attr": {"value": {"t":
     {"desc": {"shape": [2, 2]}, "data": "AAAAPwAAoL8AAEBAAACAQA=="}}}},
    {"name": "op", "type": "Custom", "input": ["in:0", "w:0"], "is_input_const": [false, true],
     "input_desc": [{"dtype": 1, "format": 1, "shape": [1, -1, 4], "reuse_input": true},
                    {"shape": [2, 2]}],
     "output_desc": [{"shape": [1, 2, 1, 1, 1, 1, 1, 1, 3]},
                     {"dtype": 9, "format": 2, "shape": [3]}],
     "attr": {"s": {"s": "text"}, "i": {"i": -5}, "f": {"f": 1.5}, "b": {"b": true},
              "li": {"list": {"i": [1, -2, 1099511627776, 4, 5]}}, "lf": {"list": {"f": [0.25]}},
              "ls": {"list": {"s": ["a", "b"]}}, "empty": {"list": {}}, "": {}}},
    {"name": "flags", "type": "Custom", "input": ["", "op:1", "in:-1"],
     "input_desc": [{}, {"dtype": 9, "shape": [3]}], "attr": {"lb": {"list": {"b": [true, false]}}}}
  ]}]})";

// The full names of the fields that hold a non-default value somewhere in the message.
void CollectSetFields(const google::protobuf::Message& message, std::set<std::string>& names) {
  const google::protobuf::Reflection& reflection = *message.GetReflection();
  std::vector<const google::protobuf::FieldDescriptor*> fields;
  reflection.ListFields(message, &fields);
  for (const google::protobuf::FieldDescriptor* field : fields) {
    names.insert(field->full_name());
    if (field->cpp_type() != google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (!field->is_repeated()) {
      CollectSetFields(reflection.GetMessage(message, field), names);
      continue;
    }
    for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
      CollectSetFields(reflection.GetRepeatedMessage(message, field, i), names);
    }
  }
}

// The round trip below proves only what the fixture holds: every field of every message of the
// format has a non-default value in it somewhere, a field added to the format included. Side-file
// locations need a file beside the model; their round trip is TensorBytesTest's.
TEST(ModelIoTest, TheRoundTripFixtureSetsEveryFieldOfTheFormat) {
  tesu::proto::ModelDef source;
  ASSERT_TRUE(google::protobuf::util::JsonStringToMessage(kEverything, &source).ok());
  std::set<std::string> set;
  CollectSetFields(source, set);
  const google::protobuf::FileDescriptor& format = *tesu::proto::ModelDef::descriptor()->file();
  for (int m = 0; m < format.message_type_count(); ++m) {
    const google::protobuf::Descriptor& type = *format.message_type(m);
    if (&type == tesu::proto::ExternalData::descriptor()) continue;
    for (int f = 0; f < type.field_count(); ++f) {
      if (type.field(f)->message_type() == tesu::proto::ExternalData::descriptor()) continue;
      EXPECT_EQ(set.count(type.field(f)->full_name()), 1u) << type.field(f)->full_name();
    }
  }
}

tov::graphStatus Load(tov::Model& model, const std::string& bytes) {
  return model.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

// Binary bytes and the message load into a model that saves back to the source message, and the
// binary written straight from the graph is exactly protobuf's deterministic serialisation.
TEST(ModelIoTest, BinaryAndMessageRoundTripsAreLosslessAndSavingIsDeterministic) {
  tesu::proto::ModelDef source;
  ASSERT_TRUE(google::protobuf::util::JsonStringToMessage(kEverything, &source).ok());
  tov::Model fromBytes;
  ASSERT_EQ(Load(fromBytes, source.SerializeAsString()), tov::GRAPH_SUCCESS);
  tov::Model fromMessage;
  ASSERT_EQ(fromMessage.Load(tesu::proto::ModelDef(source)), tov::GRAPH_SUCCESS);
  for (const tov::Model* model : {&fromBytes, &fromMessage}) {
    tesu::proto::ModelDef def;
    std::string saved;
    ASSERT_TRUE(model->Save(def) == tov::GRAPH_SUCCESS && model->Save(saved) == tov::GRAPH_SUCCESS);
    std::string report;
    google::protobuf::util::MessageDifferencer differ;
    differ.ReportDifferencesToString(&report);
    EXPECT_TRUE(differ.Compare(source, def)) << report;
    std::string expected;
    {
      google::protobuf::io::StringOutputStream stream(&expected);
      google::protobuf::io::CodedOutputStream coded(&stream);
      coded.SetSerializationDeterministic(true);
      def.SerializeToCodedStream(&coded);
    }
    EXPECT_EQ(saved, expected);
  }
}

// An input without an output index reads output 0; a Const without an output description gets
// its tensor's; empty bytes are a model without a graph, and it saves as one.
TEST(ModelIoTest, ShortFormsLoadAsTheirFullForms) {
  tov::Model empty;
  ASSERT_EQ(Load(empty, ""), tov::GRAPH_SUCCESS);
  EXPECT_EQ(tov::GraphUtils::GetComputeGraph(empty.GetGraph()), nullptr);
  std::string bytes;
  tesu::proto::ModelDef def;
  ASSERT_TRUE(empty.Save(bytes) == tov::GRAPH_SUCCESS && empty.Save(def) == tov::GRAPH_SUCCESS);
  EXPECT_TRUE(bytes.empty() && def.graph_size() == 0);
  EXPECT_EQ(empty.Load(std::move(def)), tov::GRAPH_SUCCESS);
  EXPECT_EQ(empty.Load(nullptr, 1), tov::GRAPH_PARAM_INVALID);

  ModelBuilder model;
  model.ConstInt32("c", {1, 2, 3}).Def().clear_output_desc();
  model.Unary("y", "Relu", "c").Def().set_input(0, "c");
  const auto graph = model.LoadGraph();
  EXPECT_EQ(graph->FindNode("c")->GetOpDesc()->GetOutputDesc(0).GetShape(), tov::Shape({3}));
  EXPECT_EQ(testkit::ProducersOf(*graph->FindNode("y")), testkit::Names{"c"});
}

// Loading from bytes and from a message both refuse the model, each with one error line that
// names the problem.
void ExpectRefusedBothWays(const ModelBuilder& model, const char* expected) {
  LogCapture log;
  tov::Model fromBytes;
  EXPECT_EQ(Load(fromBytes, model.Bytes()), tov::GRAPH_MODEL_INVALID);
  tov::Model fromMessage;
  EXPECT_EQ(fromMessage.Load(tesu::proto::ModelDef(model.Def())), tov::GRAPH_MODEL_INVALID);
  ASSERT_EQ(log.Lines().size(), 2u);
  for (const testkit::LogLine& line : log.Lines()) {
    EXPECT_EQ(line.level, AI_LOG_ERROR);
    EXPECT_NE(line.text.find(expected), std::string::npos) << line.text;
  }
}

TEST(ModelIoTest, MalformedModelOrGraphAttributeRefusesTheModel) {
  for (const char* owner : {"model", "graph \"g\""}) {
    ModelBuilder model;
    model.Def().mutable_graph(0)->set_name("g");
    auto& attrs = owner[0] == 'm' ? *model.Def().mutable_attr()
                                  : *model.Def().mutable_graph(0)->mutable_attr();
    auto& list = *attrs["bad"].mutable_list();
    list.add_i(1);
    list.add_s("a");
    ExpectRefusedBothWays(
        model,
        (std::string("attribute \"bad\" of ") + owner + " mixes values of several kinds").c_str());
  }
}

// Each case adds ops, in the JSON form of the model format, to a graph holding Data "x".
struct MalformedCase {
  const char* ops;
  const char* expected;  // a fragment of the one log line
};

const MalformedCase kMalformed[] = {
    {R"([{"name": "y", "type": "Relu", "input": ["ghost:0"]}])",
     "node \"y\" (Relu): input \"ghost:0\" names no node"},
    {R"([{"name": "y", "type": "Relu", "input": ["ghost:-1"]}])",
     "input \"ghost:-1\" names no node"},
    {R"([{"name": "y", "type": "Relu", "input": ["x:1"]}])",
     "asks for output 1 but node \"x\" has 1 outputs"},
    {R"([{"name": "y", "type": "Relu", "input": ["x:3"]}])",
     "asks for output 3 but node \"x\" has 1 outputs"},
    {R"([{"name": "y", "type": "Relu", "input": ["x:one"]}])", "is not of the form"},
    {R"([{"name": "y", "type": "Relu", "input": ["x:-2"]}])", "is not of the form"},
    {R"([{"name": "y", "type": "Relu", "input": ["x:0a"]}])", "is not of the form"},
    {R"([{"name": "y", "type": "Relu", "input": [":0"]}])", "is not of the form"},
    {R"([{"name": "x", "type": "Data"}])", "node \"x\" (Data): another node has the same name"},
    {R"([{"type": "Relu"}])", "has no name"},
    {R"([{"name": "c", "type": "Const", "output_desc": [{}]}])",
     "node \"c\" (Const): Const node has no tensor attribute \"value\""},
    {R"([{"name": "c", "type": "Const", "attr": {"value": {"t": {"desc": {"dtype": 3,
        "shape": [3]}, "data": "AQAAAAIAAAA="}}}}])",
     "holds 8 bytes but its shape and INT32 data type need 12"},
    {R"([{"name": "c", "type": "Const", "attr": {"value": {"t": {"desc": {"shape": [1]},
        "data": "AACAPwAAAEA="}}}}])",
     "holds 8 bytes but its shape and FLOAT data type need 4"},
    {R"([{"name": "c", "type": "Const", "attr": {"value": {"t": {"desc": {"shape": [-1]},
        "data": "AACAPw=="}}}}])",
     "which need a known shape and data type"},
    {R"([{"name": "c", "type": "Const", "attr": {"value": {"t": {"desc": {"dtype": 3,
        "shape": [1099511627776, 1099511627776]}, "data": "AQAAAA=="}}}}])",
     "whose element count overflows 64 bits"},
    {R"([{"name": "c", "type": "Const", "attr": {"value": {"t": {"desc": {"dtype": 99},
        "data": "AQAAAA=="}}}}])",
     "unknown data type 99"},
    {R"([{"name": "d", "type": "Data", "input_desc": [{"shape": [1, -3]}]}])", "has dimension -3"},
    {R"([{"name": "d", "type": "Data", "output_desc": [{"shape": [-4]}]}])",
     "output description 0 has dimension -4"},
    {R"([{"name": "n", "type": "T", "attr": {"l": {"list": {"i": [1], "s": ["a"]}}}}])",
     "mixes values of several kinds"},
    {R"([{"name": "a", "type": "Add", "input": ["x:0", "b:0"], "output_desc": [{}]},
         {"name": "b", "type": "Relu", "input": ["a:0"], "output_desc": [{}]}])",
     "lies on a cycle"},
    {R"([{"name": "loop", "type": "Relu", "input": ["loop:0"], "output_desc": [{}]}])",
     "node \"loop\" (Relu) lies on a cycle"},
};

TEST(ModelIoTest, MalformedModelsAreRefusedWithOneLineEachNamingTheProblem) {
  for (const MalformedCase& c : kMalformed) {
    SCOPED_TRACE(c.expected);
    ModelBuilder model;
    model.Data("x");
    tesu::proto::GraphDef added;
    const std::string json = std::string("{\"op\": ") + c.ops + "}";
    ASSERT_TRUE(google::protobuf::util::JsonStringToMessage(json, &added).ok());
    model.Def().mutable_graph(0)->MergeFrom(added);
    ExpectRefusedBothWays(model, c.expected);
  }
  // A size above the limit is refused before a byte is read; bytes that are no model are refused
  // through the parser (robustness tests).
  LogCapture log;
  tov::Model model;
  EXPECT_EQ(model.Load(reinterpret_cast<const uint8_t*>(""), tov::kMaxModelBytes + 1),
            tov::GRAPH_MODEL_INVALID);
  EXPECT_TRUE(log.Contains("is more than a model may hold"));
}

}  // namespace
