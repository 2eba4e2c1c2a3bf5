// Protobuf file reading, the JSON converter and the atomic writers.
#include <set>
#include <string>

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "framework/proto_io.h"
#include "graph/proto/model.pb.h"
#include "test_files.h"

namespace {

using frameworktest::HasKeyAnywhere;
using frameworktest::ReadFile;
using frameworktest::TempDir;
using frameworktest::WriteFile;
using nlohmann::json;

// A model with tensor bytes at the bottom of graph -> op -> attr map -> tensor.
tesu::proto::ModelDef ModelWithTensor() {
  tesu::proto::ModelDef model;
  model.set_name("m");
  tesu::proto::OpDef* op = model.add_graph()->add_op();
  op->set_name("w");
  op->set_type("Const");
  tesu::proto::TensorDef* tensor = (*op->mutable_attr())["value"].mutable_t();
  tensor->mutable_desc()->add_shape(2);
  tensor->set_data(std::string("\x01\x02\x03\x04", 4));
  (*op->mutable_attr())["label"].set_s("keep");
  return model;
}

TEST(Pb2JsonTest, ExcludedNamesAreDroppedAtEveryDepthAndTheMessageIsKept) {
  const tesu::proto::ModelDef model = ModelWithTensor();
  struct Case {
    std::set<std::string> excluded;
    std::vector<std::string> gone;
    std::vector<std::string> kept;
  };
  const Case cases[] = {
      {{}, {}, {"data", "desc", "name"}},
      {{"data"}, {"data"}, {"desc", "name", "label"}},
      {{"name", "desc"}, {"name", "desc"}, {"data", "type"}},
  };
  for (const Case& c : cases) {
    json out;
    tesu::Pb2Json::Message2Json(model, c.excluded, out, false);
    for (const auto& key : c.gone) EXPECT_FALSE(HasKeyAnywhere(out, key)) << key;
    for (const auto& key : c.kept) EXPECT_TRUE(HasKeyAnywhere(out, key)) << key;
  }
  EXPECT_EQ(model.graph(0).op(0).attr().at("value").t().data().size(), 4u);

  json out;
  tesu::Pb2Json::Message2Json(model, {"data"}, out, false);
  EXPECT_EQ(out["graph"][0]["op"][0]["attr"]["label"]["s"], "keep");
  EXPECT_EQ(out["graph"][0]["op"][0]["attr"]["value"]["t"]["desc"]["shape"][0], "2");
}

TEST(Pb2JsonTest, EnumFlagSelectsNamesOrNumbers) {
  google::protobuf::FileDescriptorProto file;
  google::protobuf::FieldDescriptorProto* field = file.add_message_type()->add_field();
  field->set_type(google::protobuf::FieldDescriptorProto::TYPE_INT32);
  field->set_json_name("x_y");
  for (bool asString : {true, false}) {
    json out;
    tesu::Pb2Json::Message2Json(file, {}, out, asString);
    const json& written = out["message_type"][0]["field"][0];
    EXPECT_EQ(written["type"], asString ? json("TYPE_INT32") : json(5)) << asString;
    EXPECT_TRUE(written.contains("json_name")) << "proto field names are kept";
  }
}

TEST(SaveJsonToFileTest, ReplacesTheFileWithIndentedJson) {
  TempDir dir;
  WriteFile(dir.Path("out.json"), std::string(10000, 'x'));
  const json value = {{"a", {1, 2}}, {"b", "text"}};
  ASSERT_EQ(tesu::ModelSaver::SaveJsonToFile(dir.Path("out.json").c_str(), value), tesu::SUCCESS);
  const std::string text = ReadFile(dir.Path("out.json"));
  EXPECT_EQ(text, value.dump(2) + "\n");
  EXPECT_EQ(dir.Entries(), std::vector<std::string>{"out.json"});
}

TEST(SaveJsonToFileTest, UnwritablePathFailsAndLeavesNoFile) {
  TempDir dir;
  WriteFile(dir.Path("plain"), "x");
  std::filesystem::create_directory(dir.Path("sub"));
  WriteFile(dir.Path("sub/inside"), "x");
  const json value = {{"a", 1}};
  for (const std::string& path :
       {dir.Path("plain/out.json"), dir.Path("none/out.json"), dir.Path("sub"), dir.Path("sub/")}) {
    EXPECT_NE(tesu::ModelSaver::SaveJsonToFile(path.c_str(), value), tesu::SUCCESS) << path;
  }
  EXPECT_NE(tesu::ModelSaver::SaveJsonToFile(nullptr, value), tesu::SUCCESS);
  EXPECT_EQ(dir.Entries(), (std::vector<std::string>{"plain", "sub"}));
  EXPECT_EQ(dir.Entries("sub"), std::vector<std::string>{"inside"});
}

TEST(ReadProtoFromBinaryFileTest, ReadsASerialisedMessageAndRefusesOthers) {
  TempDir dir;
  const tesu::proto::ModelDef model = ModelWithTensor();
  WriteFile(dir.Path("model.pb"), model.SerializeAsString());
  WriteFile(dir.Path("junk.pb"), "\xff\xff\xff not a model");

  tesu::proto::ModelDef read;
  ASSERT_TRUE(tesu::ReadProtoFromBinaryFile(dir.Path("model.pb").c_str(), &read));
  EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(read, model));
  EXPECT_FALSE(tesu::ReadProtoFromBinaryFile(dir.Path("junk.pb").c_str(), &read));
  EXPECT_FALSE(tesu::ReadProtoFromBinaryFile(dir.Path("missing.pb").c_str(), &read));
  EXPECT_FALSE(tesu::ReadProtoFromBinaryFile(nullptr, &read));
}

}  // namespace
