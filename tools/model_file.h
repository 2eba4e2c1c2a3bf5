// Reading the model file given to the CLI.
#ifndef TESU_TOOLS_MODEL_FILE_H
#define TESU_TOOLS_MODEL_FILE_H

#include <string>

namespace tesu {
namespace cli {

// Reads `path` into serialised ModelDef bytes. A file whose first non-blank byte is '{' is the
// model's JSON form: it is parsed with protobuf's JSON mapping and serialised again. The file is
// only read. False, with the reason in `error`, when it cannot be read or its JSON is invalid;
// binary content is not validated here, the parser does that.
bool ReadModelFile(const std::string& path, std::string& bytes, std::string& error);

}  // namespace cli
}  // namespace tesu

#endif
