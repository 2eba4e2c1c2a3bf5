// The JSON converter and the atomic JSON writer. Reading model files is covered through the
// parser's JSON dump.
#include <unistd.h>

#include <functional>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "files.h"
#include "framework/input_file.h"
#include "framework/proto_io.h"
#include "graph/proto/model.pb.h"
#include "log_capture.h"

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

TEST(SaveJsonToFileTest, ReplacesTheFileWithIndentedJsonOrWritesNothing) {
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
  // A writer that fails, or breaks the file it was handed, leaves no file behind either.
  const std::function<bool(int)> writers[] = {[](int) { return false; },
                                              [](int fd) { return close(fd) == 0; }};
  for (const auto& writer : writers) {
    EXPECT_EQ(tesu::WriteFileAtomically(dir.Path("out"), writer), tesu::FILE_WRITE_FAILED);
  }
  EXPECT_EQ(dir.Entries(), (std::vector<std::string>{"out.json", "plain", "sub"}));
  EXPECT_EQ(dir.Entries("sub"), std::vector<std::string>{"inside"});
}

TEST(ReadFileTest, UnreadableInputIsRefused) {
  TempDir dir;
  std::string bytes;
  std::string error;
  EXPECT_FALSE(tesu::ReadFileBytes(dir.Path(), bytes, error));
  EXPECT_FALSE(error.empty());
  tesu::proto::ModelDef model;
  EXPECT_FALSE(tesu::ReadProtoFromBinaryFile(nullptr, &model));
  EXPECT_FALSE(tesu::ReadProtoFromBinaryFile(dir.Path().c_str(), nullptr));
  // Framed like a message, but its name is not UTF-8.
  LogCapture log;
  EXPECT_FALSE(tesu::ReadProtoFromBinaryFile(dir.Write("bad.pb", "\x0a\x01\xff").c_str(), &model));
  EXPECT_TRUE(log.Contains("does not hold a serialised tesu.proto.ModelDef"));
  // A file that shrinks once it is open is not read as a shorter one.
  tesu::InputFile file;
  ASSERT_TRUE(file.Open(dir.Write("shrinks", "abcd"), 100, error));
  std::filesystem::resize_file(dir.Path("shrinks"), 2);
  EXPECT_FALSE(file.ReadAll(bytes, error));
  EXPECT_EQ(error, "the file shrank while it was read");
}

}  // namespace

// The framing check reads only tags and lengths: each field kind is stepped over, and the first
// field that cannot be one ends the check with what is wrong and where.
TEST(MessageFramingTest, StepsOverEveryFieldKindAndNamesTheFirstBadOne) {
  const struct {
    std::string bytes;
    const char* fault;  // empty when the framing holds
  } cases[] = {
      {std::string("\x08\x96\x01", 3) + "\x11" + std::string(8, '\0') + "\x1d" +
           std::string(4, '\0') + "\x22\x02xy",
       ""},
      {std::string("\x00\x01", 2), "no valid field tag at byte 0"},
      {"\x08\x80", "byte 1"},
      {"\x0b", "field 1 at byte 0 has wire type 3, which this format never uses"},
      {"\x11\x01", "field 2 at byte 0 runs past the end of the file"},
      {"\x1a\x05xy", "field 3 at byte 0 runs past the end of the file"},
      {std::string("\x88\x80\x80\x80\x80\x00", 6), "no valid field tag at byte 0"},
      {"\xf8\xff\xff\xff\x1f", "no valid field tag at byte 0"},  // field number above 2^29 - 1
      {"\x22\x80", "a truncated or overlong number at byte 1"},
      {"\x22\xff\xff\xff\xff\x0f", "field 4 at byte 0 runs past the end of the file"},
      // Only the first 1024 fields are checked.
      {[] {
         std::string fields;
         for (int i = 0; i < 1024; ++i) fields += "\x08\x01";
         return fields + "\x0b";
       }(),
       ""},
  };
  const TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    tesu::InputFile file;
    std::string error;
    ASSERT_TRUE(file.Open(dir.Write("m.pb", c.bytes), 1 << 20, error)) << error;
    EXPECT_EQ(tesu::CheckMessageFraming(file, error), *c.fault == '\0');
    EXPECT_NE(error.find(c.fault), std::string::npos) << error;
  }
}
