#include "model_file.h"

#include <string_view>
#include <vector>

#include <google/protobuf/util/json_util.h>
#include <nlohmann/json.hpp>

#include "framework/input_file.h"
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

// Reads a JSON model as a stream and stops at the first limit it exceeds: more ops in its
// graphs ("graph"[...]."op"[...]) than a model may have nodes, or deeper nesting than the format
// has any use for. Syntax errors are left for protobuf to report.
class JsonLimits : public nlohmann::json_sax<nlohmann::json> {
 public:
  // The format nests nine deep at most (model, graph list, graph, op list, op, attribute map,
  // attribute, tensor, description); this leaves room and bounds what is tracked.
  static constexpr size_t kMaxDepth = 32;

  std::string refusal;

  bool start_object(std::size_t) override {
    const bool isOp = frames_.size() == 4 && frames_[1].key == "graph" && frames_[3].key == "op";
    if (isOp && ++ops_ > tov::kMaxGraphNodes) {
      refusal = "the model has more than " + std::to_string(tov::kMaxGraphNodes) +
                " nodes, the most a model may have";
      return false;
    }
    return Push(false, std::string());
  }
  bool start_array(std::size_t) override {
    return Push(true, frames_.empty() ? std::string() : frames_.back().key);
  }
  bool key(string_t& name) override {
    frames_.back().key = name;
    return true;
  }
  bool end_object() override { return Pop(); }
  bool end_array() override { return Pop(); }
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  // An object, with the last key read in it, or an array, with the key it is the value of.
  struct Frame {
    bool array;
    std::string key;
  };

  bool Push(bool array, std::string key) {
    if (frames_.size() == kMaxDepth) {
      refusal = "the JSON nests deeper than " + std::to_string(kMaxDepth) + " levels";
      return false;
    }
    frames_.push_back({array, std::move(key)});
    return true;
  }
  bool Pop() {
    frames_.pop_back();
    return true;
  }

  std::vector<Frame> frames_;
  size_t ops_ = 0;
};

// Opens the file and applies the checks of CheckModelFile; with `modelDef` false only those
// that do not look at its bytes. `json` says whether it holds the JSON form.
bool OpenModelFile(const std::string& path, InputFile& file, bool& json, std::string& error,
                   int& failure, bool modelDef) {
  failure = kFailure;
  json = false;
  if (!file.Open(path, tov::kMaxModelBytes, error)) return false;
  if (file.Size() == 0) {
    error = "the file is empty";
    return false;
  }
  if (!modelDef) return true;
  if (!StartsAsJson(file, json, error)) return false;
  // A binary model is checked field by field at its top level before the rest is read.
  if (json || CheckMessageFraming(file, error)) return true;
  error = "not a model, neither its JSON form nor a serialised ModelDef: " + error;
  failure = kNotAModel;
  return false;
}

}  // namespace

bool CheckModelFile(const std::string& path, std::string& error, int& failure) {
  InputFile file;
  bool json = false;
  return OpenModelFile(path, file, json, error, failure, true);
}

bool ReadModelFile(const std::string& path, std::string& bytes, std::string& error, int& failure,
                   bool modelDef) {
  InputFile file;
  bool json = false;
  if (!OpenModelFile(path, file, json, error, failure, modelDef)) return false;
  failure = kFailure;
  if (!file.ReadAll(bytes, error)) return false;
  return !json || JsonModelToBinary(bytes, error);
}

bool ReadModelFile(const std::string& path, ModelBytes& bytes, std::string& error, int& failure,
                   bool modelDef) {
  InputFile file;
  bool json = false;
  bytes.Release();
  if (!OpenModelFile(path, file, json, error, failure, modelDef)) return false;
  failure = kFailure;
  if (json)
    return file.ReadAll(bytes.converted_, error) && JsonModelToBinary(bytes.converted_, error);
  bytes.mapping_ = file.Map(error);
  return bytes.mapping_ != nullptr;
}

std::string_view ModelBytes::View() const {
  if (mapping_ == nullptr) return converted_;
  return {reinterpret_cast<const char*>(mapping_->data()), static_cast<size_t>(mapping_->size())};
}

tov::BaseBuffer ModelBytes::Buffer() const {
  const std::string_view bytes = View();
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  if (mapping_ == nullptr) return tov::BaseBuffer(data, bytes.size());
  return tov::BaseBuffer(data, bytes.size(), mapping_, mapping_->path());
}

void ModelBytes::Release() {
  mapping_.reset();
  std::string().swap(converted_);
}

bool IsJsonModel(const char* data, size_t size) {
  const std::string_view text(data, size);
  const size_t first = text.find_first_not_of(kBlanks);
  return first != std::string_view::npos && text[first] == '{';
}

bool JsonModelToBinary(std::string& bytes, std::string& error) {
  // protobuf builds the whole message before the graph library can count its nodes, so the
  // text is streamed through once first: a model beyond the limits costs no message.
  JsonLimits limits;
  if (!nlohmann::json::sax_parse(bytes, &limits) && !limits.refusal.empty()) {
    error = limits.refusal;
    return false;
  }
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
