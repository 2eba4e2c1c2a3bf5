// Where loaded tensors get their bytes: the mapped model file, located on the wire, or a side
// file named by ExternalData, whose location and range are checked before anything refers to it.
#include <filesystem>
#include <string>
#include <vector>

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/wire_format_lite.h>
#include <gtest/gtest.h>

#include "files.h"
#include "graph/attr_utils.h"
#include "graph/compute_graph.h"
#include "graph/graph.h"
#include "graph/model.h"
#include "graph/proto/model.pb.h"
#include "log_capture.h"
#include "model_builder.h"

namespace {

namespace fs = std::filesystem;
using testkit::LogCapture;
using testkit::ModelBuilder;
using testkit::TempDir;

// A model whose Const "w" holds a [2, 2] FLOAT tensor given as the JSON of its TensorDef.
ModelBuilder ConstModel(const std::string& tensorJson) {
  ModelBuilder model;
  tesu::proto::TensorDef tensor;
  EXPECT_TRUE(google::protobuf::util::JsonStringToMessage(tensorJson, &tensor).ok()) << tensorJson;
  *(*model.Op("w", "Const").Output({2, 2}).Def().mutable_attr())["value"].mutable_t() = tensor;
  return model;
}

tov::TensorPtr WeightOf(const tov::Model& model, const std::string& node = "w") {
  tov::TensorPtr tensor;
  const auto graph = tov::GraphUtils::GetComputeGraph(model.GetGraph());
  if (graph != nullptr && graph->FindNode(node) != nullptr) {
    tov::AttrUtils::GetTensor(graph->FindNode(node)->GetOpDesc(), "value", tensor);
  }
  return tensor;
}

std::string BytesOf(const tov::Tensor& tensor) {
  return std::string(tensor.GetData().View());
}

// 64 bytes 0, 1, 2, ...
std::string Counting() {
  std::string bytes(64, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i);
  return bytes;
}

// ModelDef.graph or GraphDef.op holding `contents`.
std::string GraphField(const std::string& contents) {
  static_assert(int{tesu::proto::ModelDef::kGraphFieldNumber} ==
                int{tesu::proto::GraphDef::kOpFieldNumber});
  std::string out;
  {
    google::protobuf::io::StringOutputStream stream(&out);
    google::protobuf::io::CodedOutputStream coded(&stream);
    google::protobuf::internal::WireFormatLite::WriteBytes(tesu::proto::GraphDef::kOpFieldNumber,
                                                           contents, &coded);
  }
  return out;
}

constexpr char kDesc[] = R"("desc": {"shape": [2, 2]})";

struct SideCase {
  std::string external;  // the ExternalData's JSON fields
  std::string expected;  // bytes for a tensor that loads, or a fragment of the refusal
  bool loads;
  std::string data = "";  // the tensor's data field, base64
};

const std::vector<SideCase> kSideCases = {
    {R"("location": "w.bin", "offset": 16, "length": 16)", Counting().substr(16, 16), true},
    {R"("location": "sub/w.bin", "length": 16)", Counting().substr(0, 16), true},
    {R"("location": "./w.bin", "offset": 48, "length": 16)", Counting().substr(48), true},
    {R"("location": "/etc/w.bin", "length": 16)", "by an absolute path", false},
    {R"("location": "../outside.bin", "length": 16)", "steps out of the model's folder", false},
    {R"("location": "sub/../w.bin", "length": 16)", "steps out of the model's folder", false},
    {R"("location": "link.bin", "length": 16)", "outside the model's folder", false},
    {R"("location": "missing.bin", "length": 16)",
     "cannot read the side file \"missing.bin\": No such file or directory", false},
    {R"("location": "sub", "length": 16)", "cannot read the side file \"sub\"", false},
    {R"("location": "w.bin", "offset": 56, "length": 16)", "which has only 64", false},
    {R"("location": "w.bin", "offset": 18446744073709551615, "length": 16)", "which has only 64",
     false},
    {R"("location": "w.bin", "length": 12)",
     "has a side-file range of 12 bytes but its shape and FLOAT data type need 16", false},
    {R"("location": "", "length": 16)", "names no side file", false},
    {R"("location": "w.bin", "length": 16)", "and a side-file location", false,
     "AAAAAAAAAAAAAAAAAAAAAA=="},
};

TEST(TensorBytesTest, SideFilesAreFoundInsideTheModelsFolderOrRefusedNamingTheNode) {
  TempDir dir;
  fs::create_directories(dir.Path("model/sub"));
  dir.Write("model/w.bin", Counting());
  dir.Write("model/sub/w.bin", Counting());
  dir.Write("outside.bin", Counting());
  fs::create_symlink(dir.Path("outside.bin"), dir.Path("model/link.bin"));
  for (const SideCase& c : kSideCases) {
    SCOPED_TRACE(c.external);
    std::string tensor = std::string("{") + kDesc + R"(, "external": {)" + c.external + "}";
    if (!c.data.empty()) tensor += R"(, "data": ")" + c.data + "\"";
    const std::string path = dir.Write("model/model.pb", ConstModel(tensor + "}").Bytes());
    LogCapture log;
    tov::Model model;
    const tov::graphStatus status = model.LoadFile(path);
    if (!c.loads) {
      EXPECT_EQ(status, tov::GRAPH_MODEL_INVALID);
      ASSERT_EQ(log.Lines().size(), 1u);
      EXPECT_NE(log.Lines()[0].text.find("node \"w\" (Const)"), std::string::npos);
      EXPECT_NE(log.Lines()[0].text.find(c.expected), std::string::npos) << log.Lines()[0].text;
      continue;
    }
    ASSERT_EQ(status, tov::GRAPH_SUCCESS);
    const tov::TensorPtr weight = WeightOf(model);
    ASSERT_NE(weight, nullptr);
    EXPECT_EQ(BytesOf(*weight), c.expected);
    ASSERT_NE(weight->GetExternal(), nullptr);
    EXPECT_EQ(weight->GetExternal()->length, 16u);
    // The side file is only mapped: the tensor outlives the model and the file's name.
    fs::remove(path);
    model = tov::Model();
    EXPECT_EQ(BytesOf(*weight), c.expected);
  }
}

TEST(TensorBytesTest, BytesThatAreNoFileHaveNoFolderForSideFiles) {
  LogCapture log;
  tov::Model model;
  const std::string bytes =
      ConstModel(std::string("{") + kDesc + R"(, "external": {"location": "w.bin",
                 "length": 16}})")
          .Bytes();
  EXPECT_EQ(model.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
            tov::GRAPH_MODEL_INVALID);
  EXPECT_TRUE(log.Contains("the model was not read from a file"));
}

// A tensor of a mapped model refers to the file's bytes and keeps the mapping alive; writing to
// it copies the bytes first and forgets the side file it came from.
TEST(TensorBytesTest, MappedTensorsAreSharedUntilWrittenTo) {
  TempDir dir;
  const std::string data = Counting().substr(0, 16);
  dir.Write("w.bin", data);
  ModelBuilder model = ConstModel(std::string("{") + kDesc +
                                  R"(, "external": {"location": "w.bin", "length": 16}})");
  ModelBuilder inlined =
      ConstModel(std::string("{") + kDesc + R"(, "data": "AAECAwQFBgcICQoLDA0ODw=="})");
  for (ModelBuilder* source : {&model, &inlined}) {
    tov::Model loaded;
    ASSERT_EQ(loaded.LoadFile(dir.Write("model.pb", source->Bytes())), tov::GRAPH_SUCCESS);
    const tov::TensorPtr weight = WeightOf(loaded);
    ASSERT_NE(weight, nullptr);
    EXPECT_TRUE(weight->GetData().IsShared());
    EXPECT_EQ(BytesOf(*weight), data);
    EXPECT_EQ(weight->GetExternal() != nullptr, source == &model);
    weight->MutableData().MutableData()[0] = 'x';
    EXPECT_FALSE(weight->GetData().IsShared());
    EXPECT_EQ(weight->GetExternal(), nullptr);
    EXPECT_EQ(BytesOf(*weight), "x" + data.substr(1));
  }
  // Bytes that are no mapped file are copied.
  tov::Model copied;
  const std::string bytes = inlined.Bytes();
  ASSERT_EQ(copied.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
            tov::GRAPH_SUCCESS);
  EXPECT_FALSE(WeightOf(copied)->GetData().IsShared());
}

// Saved with a weights file, tensors of at least 1 KiB go to it, each at a multiple of 64 bytes,
// every ExternalData field set where the offset is not 0, and load back byte for byte.
TEST(TensorBytesTest, WeightsFilesTakeLargeTensorsAlignedAndLoadBack) {
  TempDir dir;
  ModelBuilder source;
  const std::vector<std::pair<std::string, size_t>> tensors = {
      {"small", 1020}, {"edge", 1024}, {"odd", 1100}, {"big", 4096}};
  for (const auto& [name, bytes] : tensors) {
    tesu::proto::TensorDef tensor;
    tensor.mutable_desc()->add_shape(static_cast<int64_t>(bytes / 4));
    std::string data(bytes, '\0');
    for (size_t i = 0; i < bytes; ++i) data[i] = static_cast<char>(i * 7 + bytes);
    tensor.set_data(data);
    *(*source.Op(name, "Const")
           .Output({static_cast<int64_t>(bytes / 4)})
           .Def()
           .mutable_attr())["value"]
         .mutable_t() = tensor;
  }
  tov::Model original;
  ASSERT_EQ(original.LoadFile(dir.Write("in.pb", source.Bytes())), tov::GRAPH_SUCCESS);
  {
    FILE* model = fopen(dir.Path("out.pb").c_str(), "wb");
    FILE* weights = fopen(dir.Path("out.weights").c_str(), "wb");
    ASSERT_TRUE(model != nullptr && weights != nullptr);
    EXPECT_EQ(original.Save(fileno(model), tov::WeightsFile{fileno(weights), "out.weights"}),
              tov::GRAPH_SUCCESS);
    fclose(model);
    fclose(weights);
  }
  tov::Model reloaded;
  ASSERT_EQ(reloaded.LoadFile(dir.Path("out.pb")), tov::GRAPH_SUCCESS);
  for (const auto& [name, bytes] : tensors) {
    SCOPED_TRACE(name);
    const tov::TensorPtr before = WeightOf(original, name);
    const tov::TensorPtr after = WeightOf(reloaded, name);
    ASSERT_TRUE(before != nullptr && after != nullptr);
    EXPECT_EQ(BytesOf(*after), BytesOf(*before));
    const tov::ExternalLocation* external = after->GetExternal();
    ASSERT_EQ(external != nullptr, bytes >= tov::kMinExternalTensorBytes);
    if (external == nullptr) continue;
    EXPECT_EQ(external->location, "out.weights");
    EXPECT_EQ(external->offset % tov::kExternalTensorAlignment, 0u);
    EXPECT_EQ(external->length, bytes);
  }
}

// An op's wire bytes may repeat a map entry or a field, or switch the attribute's kind after
// its tensor; the bytes located on the wire are the ones protobuf's own parse keeps.
TEST(TensorBytesTest, DataLocatedOnTheWireIsWhatProtobufWouldKeep) {
  const auto opBytes = [](const std::string& json) {
    tesu::proto::OpDef op;
    EXPECT_TRUE(google::protobuf::util::JsonStringToMessage(json, &op).ok()) << json;
    return op.SerializeAsString();
  };
  const std::string head =
      opBytes(R"({"name": "w", "type": "Const", "output_desc": [{"shape": [2, 2]}]})");
  const std::string first = opBytes(std::string(R"({"attr": {"value": {"t": {)") + kDesc +
                                    R"(, "data": "AAECAwQFBgcICQoLDA0ODw=="}}}})");
  const std::string second = opBytes(std::string(R"({"attr": {"value": {"t": {)") + kDesc +
                                     R"(, "data": "EBESExQVFhcYGRobHB0eHw=="}}}})");
  const std::string noData = opBytes(std::string(R"({"attr": {"value": {"t": {)") + kDesc + "}}}}");
  const std::string other = opBytes(R"({"attr": {"other": {"i": 3}}})");
  const std::vector<std::string> forms = {head + first + second, head + second + first,
                                          head + first + noData, head + first + other,
                                          head + second + other + first};
  for (const std::string& op : forms) {
    tesu::proto::ModelDef def;
    ASSERT_TRUE(def.add_graph()->add_op()->ParseFromString(op));
    const std::string expected = def.graph(0).op(0).attr().at("value").t().data();
    // The op's bytes as they stand, as the op of the model's graph.
    const std::string bytes = GraphField(GraphField(op));
    tov::Model model;
    ASSERT_EQ(model.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
              tov::GRAPH_SUCCESS);
    const tov::TensorPtr weight = WeightOf(model);
    ASSERT_NE(weight, nullptr);
    EXPECT_EQ(BytesOf(*weight), expected);
  }
}

}  // namespace
