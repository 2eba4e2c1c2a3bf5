#include "output_files.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <nlohmann/json.hpp>

#include "framework/proto_io.h"
#include "graph/dot_writer.h"
#include "graph/proto/model.pb.h"
#include "log/log.h"

namespace tesu {
namespace cli {
namespace {

// The weights file's path relative to the model file's folder, both with their links resolved,
// as the model records it; false when the weights file is not in that folder or below it, or is
// the model file itself.
bool WeightsLocation(const std::string& modelPath, const std::string& weightsPath,
                     std::string& location) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::path model = fs::weakly_canonical(fs::absolute(modelPath, ec), ec);
  const fs::path weights = fs::weakly_canonical(fs::absolute(weightsPath, ec), ec);
  const fs::path relative = weights.lexically_relative(model.parent_path());
  const auto up = std::find(relative.begin(), relative.end(), "..");
  if (ec || relative.empty() || up != relative.end() || weights == model) {
    AI_Log_Print(AI_LOG_ERROR, "TESU_FMK",
                 "cannot write weights %s: a model names its weights file by a path below its "
                 "own folder, and %s is not below the folder of %s",
                 weightsPath.c_str(), weightsPath.c_str(), modelPath.c_str());
    return false;
  }
  location = relative.generic_string();
  return true;
}

// Writes nlohmann's indented text (dump with an indent of 2) of the model's JSON form, one part
// at a time: the model's and the graph's own members are held until their objects close, each op
// is written as it comes.
class ModelJsonWriter {
 public:
  explicit ModelJsonWriter(google::protobuf::io::ZeroCopyOutputStream& stream) : out_(&stream) {}

  bool Part(tov::ModelPart part, std::string_view bytes) {
    switch (part) {
      case tov::ModelPart::kModel:
        return ToJson<tesu::proto::ModelDef>(bytes, model_) && Open(model_, kGraph, 0, models_);
      case tov::ModelPart::kGraph:
        hasGraph_ = true;
        if (!ToJson<tesu::proto::GraphDef>(bytes, graph_)) return false;
        Member(kGraph, 1, models_);
        Text("[");
        NewLine(2);
        return Open(graph_, kOp, 2, graphs_);
      case tov::ModelPart::kOp: {
        nlohmann::json op;
        if (!ToJson<tesu::proto::OpDef>(bytes, op)) return false;
        if (ops_++ == 0) {
          Member(kOp, 3, graphs_);
          Text("[");
        } else {
          Text(",");
        }
        NewLine(4);
        Value(op, 4);
        return !out_.HadError();
      }
    }
    return false;
  }

  bool Finish() {
    if (hasGraph_) {
      if (ops_ > 0) {
        NewLine(3);
        Text("]");
      }
      Close(graph_, kOp, 2, graphs_);
      NewLine(1);
      Text("]");
    }
    Close(model_, kGraph, 0, models_);
    Text("\n");
    out_.Trim();
    return !out_.HadError();
  }

 private:
  static constexpr char kGraph[] = "graph";
  static constexpr char kOp[] = "op";

  static std::string Dump(const nlohmann::json& value, int indent) {
    // Invalid UTF-8 in a string is replaced rather than thrown on: the file is for reading.
    return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
  }

  // The JSON form of one part, as the parser's JSON dump makes it.
  template <typename Message>
  bool ToJson(std::string_view bytes, nlohmann::json& json) {
    Message message;
    if (!message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) return false;
    Pb2Json::Message2Json(message, {"data"}, json, false);
    return json.is_object();
  }

  void Text(std::string_view text) {
    constexpr size_t kMaxPiece = size_t{1} << 30;  // CodedOutputStream takes an int
    while (!text.empty()) {
      const size_t size = std::min(text.size(), kMaxPiece);
      out_.WriteRaw(text.data(), static_cast<int>(size));
      text.remove_prefix(size);
    }
  }
  void NewLine(int depth) {
    Text("\n");
    Text(std::string(static_cast<size_t>(depth) * 2, ' '));
  }
  // The value's text as it stands at `depth` in the whole document.
  void Value(const nlohmann::json& value, int depth) {
    const std::string text = Dump(value, 2);
    size_t start = 0;
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
      Text(std::string_view(text).substr(start, end - start));
      NewLine(depth);
      start = end + 1;
    }
    Text(std::string_view(text).substr(start));
  }
  void Member(const std::string& key, int depth, size_t& count) {
    if (count++ > 0) Text(",");
    NewLine(depth);
    Text(Dump(key, -1));
    Text(": ");
  }
  // The members of an object at `depth` whose keys sort before, or after, `key`: those before are
  // written when the object opens, those after when it closes, the streamed member in between.
  void Members(const nlohmann::json& object, const char* key, bool before, int depth,
               size_t& count) {
    for (const auto& [name, value] : object.items()) {
      if ((name < key) != before) continue;
      Member(name, depth + 1, count);
      Value(value, depth + 1);
    }
  }
  bool Open(const nlohmann::json& object, const char* key, int depth, size_t& count) {
    Text("{");
    Members(object, key, true, depth, count);
    return !out_.HadError();
  }
  void Close(const nlohmann::json& object, const char* key, int depth, size_t& count) {
    Members(object, key, false, depth, count);
    if (count > 0) NewLine(depth);
    Text("}");
  }

  google::protobuf::io::CodedOutputStream out_;
  nlohmann::json model_;
  nlohmann::json graph_;
  size_t models_ = 0;  // members written of the model object, of the graph object
  size_t graphs_ = 0;
  size_t ops_ = 0;
  bool hasGraph_ = false;
};

}  // namespace

Status WriteModelFile(const tov::Model& model, const std::string& path,
                      const std::string& weightsPath) {
  Status saved = SUCCESS;
  if (weightsPath.empty()) {
    const Status written = WriteFileAtomically(path, [&](int fd) {
      saved = model.Save(fd);
      return saved == SUCCESS;
    });
    return saved != SUCCESS ? saved : written;
  }
  std::string location;
  if (!WeightsLocation(path, weightsPath, location)) return FILE_WRITE_FAILED;
  // Both files are written in one pass; the weights file is renamed into place before the model.
  const Status written = WriteFileAtomically(path, [&](int modelFd) {
    return WriteFileAtomically(weightsPath, [&](int weightsFd) {
             saved = model.Save(modelFd, tov::WeightsFile{weightsFd, location});
             return saved == SUCCESS;
           }) == SUCCESS;
  });
  return saved != SUCCESS ? saved : written;
}

Status WriteModelJson(const tov::Model& model, google::protobuf::io::ZeroCopyOutputStream& stream) {
  ModelJsonWriter writer(stream);
  const Status status = model.SaveParts(
      [&writer](tov::ModelPart part, std::string_view bytes) { return writer.Part(part, bytes); },
      /*withTensorData=*/false);
  if (status != SUCCESS) return status;
  return writer.Finish() ? SUCCESS : FAILED;
}

Status WriteModelJson(const ConversionResult& result, const std::string& path) {
  Status status = SUCCESS;
  const Status written = WriteFileAtomically(path, [&](int fd) {
    google::protobuf::io::FileOutputStream stream(fd);
    status = WriteModelJson(result.converted, stream);
    return status == SUCCESS && stream.Flush();
  });
  return status != SUCCESS ? status : written;
}

Status WriteGraphDot(const ConversionResult& result, const std::string& path) {
  const auto graph = tov::GraphUtils::GetComputeGraph(result.converted.GetGraph());
  return WriteFileAtomically(path, graph == nullptr ? std::string() : tov::ToDot(*graph));
}

Status WriteSourceDot(const ConversionResult& result, const std::string& path) {
  return WriteFileAtomically(path, result.sourceDot);
}

}  // namespace cli
}  // namespace tesu
