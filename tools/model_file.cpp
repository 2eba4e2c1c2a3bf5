#include "model_file.h"

#include <string_view>

#include <google/protobuf/util/json_util.h>

#include "graph/model_limits.h"
#include "graph/proto/model.pb.h"

namespace tesu {
namespace cli {
namespace {

constexpr const char* kBlanks = " \t\r\n";

// Whether the first non-blank byte of the file is '{'; read a block at a time, so only the
// leading blanks and one block are read.
bool StartsAsJson(const InputFile& file, bool& json, std::string& error) {
  char block[4096];
  for (uint64_t offset = 0; offset < file.Size(); offset += sizeof block) {
    size_t got = 0;
    if (!file.ReadAt(offset, block, sizeof block, got, error)) return false;
    const std::string_view text(block, got);
    const size_t first = text.find_first_not_of(kBlanks);
    if (first != std::string_view::npos) {
      json = text[first] == '{';
      return true;
    }
  }
  json = false;
  return true;
}

}  // namespace

bool OpenModelFile(const std::string& path, InputFile& file, bool& json, std::string& error,
                   int& failure) {
  failure = kFailure;
  if (!file.Open(path, tov::kMaxModelBytes, error) || !StartsAsJson(file, json, error)) {
    return false;
  }
  if (file.Size() == 0) {
    error = "the file is empty";
    return false;
  }
  // A binary model is checked field by field at its top level before the rest is read.
  if (json || CheckMessageFraming(file, error)) return true;
  error = "not a model, neither its JSON form nor a serialised ModelDef: " + error;
  failure = kNotAModel;
  return false;
}

bool CheckModelFile(const std::string& path, std::string& error, int& failure) {
  InputFile file;
  bool json = false;
  return OpenModelFile(path, file, json, error, failure);
}

bool ReadModelFile(const std::string& path, std::string& bytes, std::string& error, int& failure) {
  InputFile file;
  bool json = false;
  if (!OpenModelFile(path, file, json, error, failure)) return false;
  failure = kFailure;
  if (!file.ReadAll(bytes, error)) return false;
  return !json || JsonModelToBinary(bytes, error);
}

bool IsJsonModel(const char* data, size_t size) {
  const std::string_view text(data, size);
  const size_t first = text.find_first_not_of(kBlanks);
  return first != std::string_view::npos && text[first] == '{';
}

bool JsonModelToBinary(std::string& bytes, std::string& error) {
  tesu::proto::ModelDef model;
  const auto status = google::protobuf::util::JsonStringToMessage(bytes, &model);
  if (!status.ok()) {
    error = "invalid model JSON: " + status.ToString();
    return false;
  }
  if (!model.SerializeToString(&bytes)) {
    error = "cannot serialise the model read from JSON";
    return false;
  }
  return true;
}

}  // namespace cli
}  // namespace tesu
