#include "framework/proto_io.h"

#include <memory>
#include <string>
#include <vector>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/util/json_util.h>

#include "framework/input_file.h"
#include "graph/model_limits.h"
#include "log/log.h"

namespace tesu {
namespace {

constexpr const char* kModule = "TESU_FMK";

// Drops every field named in `excluded`, in this message and in every message below it,
// map values included.
void StripFields(google::protobuf::Message& message, const std::set<std::string>& excluded) {
  const google::protobuf::Reflection* reflection = message.GetReflection();
  std::vector<const google::protobuf::FieldDescriptor*> fields;
  reflection->ListFields(message, &fields);
  for (const google::protobuf::FieldDescriptor* field : fields) {
    if (excluded.count(field->name()) != 0) {
      reflection->ClearField(&message, field);
      continue;
    }
    if (field->cpp_type() != google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (field->is_repeated()) {
      const int size = reflection->FieldSize(message, field);
      for (int i = 0; i < size; ++i) {
        StripFields(*reflection->MutableRepeatedMessage(&message, field, i), excluded);
      }
    } else {
      StripFields(*reflection->MutableMessage(&message, field), excluded);
    }
  }
}

}  // namespace

bool ReadFileBytes(const std::string& path, std::string& bytes, std::string& error) {
  InputFile file;
  return file.Open(path, tov::kMaxMessageBytes, error) && file.ReadAll(bytes, error);
}

bool ReadProtoFromBinaryFile(const char* file, google::protobuf::MessageLite* message) {
  if (file == nullptr || message == nullptr) return false;
  // The framing is checked before the file is read, so a large file that is not a message is
  // refused without reading it.
  InputFile input;
  std::string bytes;
  std::string error;
  if (!input.Open(file, tov::kMaxMessageBytes, error)) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "cannot read %s: %s", file, error.c_str());
    return false;
  }
  if (!CheckMessageFraming(input, error)) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "%s does not hold a serialised %s: %s", file,
                 message->GetTypeName().c_str(), error.c_str());
    return false;
  }
  if (!input.ReadAll(bytes, error)) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "cannot read %s: %s", file, error.c_str());
    return false;
  }
  if (!message->ParseFromString(bytes)) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "%s does not hold a serialised %s", file,
                 message->GetTypeName().c_str());
    return false;
  }
  return true;
}

void Pb2Json::Message2Json(const google::protobuf::Message& message,
                           const std::set<std::string>& excluded, nlohmann::json& json,
                           bool enumAsString) {
  std::unique_ptr<google::protobuf::Message> copy(message.New());
  copy->CopyFrom(message);
  StripFields(*copy, excluded);

  google::protobuf::util::JsonPrintOptions options;
  options.preserve_proto_field_names = true;
  options.always_print_enums_as_ints = !enumAsString;
  std::string text;
  const auto status = google::protobuf::util::MessageToJsonString(*copy, &text, options);
  if (!status.ok()) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "cannot convert %s to JSON: %s",
                 message.GetTypeName().c_str(), status.ToString().c_str());
    json = nullptr;
    return;
  }
  json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_discarded()) json = nullptr;
}

Status ModelSaver::SaveJsonToFile(const char* path, const nlohmann::json& json) {
  if (path == nullptr) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "no path given for the JSON file");
    return FILE_WRITE_FAILED;
  }
  // Invalid UTF-8 in a string is replaced rather than thrown on: the file is for reading.
  std::string text = json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
  text += '\n';
  return WriteFileAtomically(path, text);
}

}  // namespace tesu
