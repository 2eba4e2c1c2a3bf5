// Reading the model file given to the CLI.
#ifndef TESU_TOOLS_MODEL_FILE_H
#define TESU_TOOLS_MODEL_FILE_H

#include <cstddef>
#include <string>

namespace tesu {
namespace cli {

// Reads `path` into serialised ModelDef bytes. A file whose first non-blank byte is '{' is the
// model's JSON form: it is parsed with protobuf's JSON mapping and serialised again. The file is
// only read. False, with the reason in `error`, when it cannot be read or its JSON is invalid;
// binary content is not validated here, the parser does that.
bool ReadModelFile(const std::string& path, std::string& bytes, std::string& error);

// True when model bytes are the JSON form: their first non-blank byte is '{'.
bool IsJsonModel(const char* data, size_t size);
// Turns the JSON form held in `bytes` into serialised ModelDef bytes, in place. False, with the
// reason in `error`, when the JSON is not a valid model.
bool JsonModelToBinary(std::string& bytes, std::string& error);

}  // namespace cli
}  // namespace tesu

#endif
