// The JSON converter and the atomic JSON writer. Reading model files is covered through the
// parser's JSON dump.
#include <unistd.h>

#include <functional>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "files.h"
#include "framework/proto_io.h"
#include "graph/proto/model.pb.h"

namespace {

using nlohmann::json;
using namespace testkit;

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
  json out;
  tesu::Pb2Json::Message2Json(model, {"data"}, out, false);
  EXPECT_FALSE(HasKeyAnywhere(out, "data"));
  EXPECT_EQ(out["graph"][0]["op"][0]["attr"]["label"]["s"], "keep");
  EXPECT_EQ(out["graph"][0]["op"][0]["attr"]["value"]["t"]["desc"]["shape"][0], "2");
  json other;
  tesu::Pb2Json::Message2Json(model, {"name", "desc"}, other, false);
  EXPECT_FALSE(HasKeyAnywhere(other, "name") || HasKeyAnywhere(other, "desc"));
  EXPECT_TRUE(HasKeyAnywhere(other, "data") && HasKeyAnywhere(other, "type"));
  EXPECT_EQ(model.graph(0).op(0).attr().at("value").t().data().size(), 4u);
}

TEST(SaveJsonToFileTest, ReplacesTheFileWithIndentedJsonOrFailsLeavingNoFile) {
  TempDir dir;
  WriteFile(dir.Path("out.json"), std::string(10000, 'x'));
  WriteFile(dir.Path("plain"), "x");
  std::filesystem::create_directory(dir.Path("sub"));
  WriteFile(dir.Path("sub/inside"), "x");
  const json value = {{"a", {1, 2}}, {"b", "text"}};
  ASSERT_EQ(tesu::ModelSaver::SaveJsonToFile(dir.Path("out.json").c_str(), value), tesu::SUCCESS);
  EXPECT_EQ(ReadFile(dir.Path("out.json")), value.dump(2) + "\n");
  for (const std::string& path :
       {dir.Path("plain/out.json"), dir.Path("none/out.json"), dir.Path("sub"), dir.Path("sub/")}) {
    EXPECT_NE(tesu::ModelSaver::SaveJsonToFile(path.c_str(), value), tesu::SUCCESS) << path;
  }
  EXPECT_NE(tesu::ModelSaver::SaveJsonToFile(nullptr, value), tesu::SUCCESS);
  EXPECT_EQ(dir.Entries(), (std::vector<std::string>{"out.json", "plain", "sub"}));
  EXPECT_EQ(dir.Entries("sub"), std::vector<std::string>{"inside"});
}

// A writer that fails, or breaks the file it was handed, leaves no file behind; unreadable
// input is refused.
TEST(SaveJsonToFileTest, FailedWritesLeaveNoFileAndUnreadableInputIsRefused) {
  TempDir dir;
  const std::function<bool(int)> writers[] = {[](int) { return false; },
                                              [](int fd) { return close(fd) == 0; }};
  for (const auto& writer : writers) {
    EXPECT_EQ(tesu::WriteFileAtomically(dir.Path("out"), writer), tesu::FILE_WRITE_FAILED);
  }
  EXPECT_TRUE(dir.Entries().empty());
  std::string bytes;
  std::string error;
  EXPECT_FALSE(tesu::ReadFileBytes(dir.Path(), bytes, error));
  EXPECT_FALSE(error.empty());
  tesu::proto::ModelDef model;
  EXPECT_FALSE(tesu::ReadProtoFromBinaryFile(nullptr, &model));
  EXPECT_FALSE(tesu::ReadProtoFromBinaryFile(dir.Path().c_str(), nullptr));
}

}  // namespace
