#ifndef TESU_FRAMEWORK_PROTO_IO_H
#define TESU_FRAMEWORK_PROTO_IO_H

#include <set>
#include <string>

#include <google/protobuf/message.h>
#include <nlohmann/json.hpp>

#include "framework/model_parser.h"
#include "framework/output_file.h"
#include "status.h"

namespace tesu {

// Reads a whole regular file of at most tov::kMaxMessageBytes (framework/input_file.h); false with
// the reason in `error` when it cannot.
bool ReadFileBytes(const std::string& path, std::string& bytes, std::string& error);

// True when the file was read and parsed into the message.
bool ReadProtoFromBinaryFile(const char* file, google::protobuf::MessageLite* message);

class Pb2Json {
 public:
  // Fills `json` from the message. Fields whose name is in `excluded` are left out at every
  // depth; enums are written as names when `enumAsString` is true and as numbers otherwise.
  static void Message2Json(const google::protobuf::Message& message,
                           const std::set<std::string>& excluded, nlohmann::json& json,
                           bool enumAsString);
};

class ModelSaver {
 public:
  // Writes the value, indented, to the file. Non-zero when the file cannot be written; a file
  // is never left half-written.
  static Status SaveJsonToFile(const char* path, const nlohmann::json& json);
};

}  // namespace tesu

#endif
