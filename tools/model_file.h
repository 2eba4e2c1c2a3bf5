// Reading the model file given to the CLI.
#ifndef TESU_TOOLS_MODEL_FILE_H
#define TESU_TOOLS_MODEL_FILE_H

#include <cstddef>
#include <string>

#include "exit_status.h"
#include "framework/input_file.h"

namespace tesu {
namespace cli {

// Opens the model file and checks, reading as little as it can, that it may hold a model: a
// regular file, not empty, of at most tov::kMaxModelBytes and, when `modelDef` says the file is
// in this host's model format, either the JSON form (`json`) or framed at its top level as a
// serialised message. Other frameworks' files are handed to their plug-in as they are. False
// otherwise, with the reason in `error` and the exit status that reports it in `failure`: kFailure
// when the file cannot be read, kNotAModel when its bytes are no model.
bool OpenModelFile(const std::string& path, InputFile& file, bool& json, std::string& error,
                   int& failure, bool modelDef = true);

// The checks of OpenModelFile alone, for a caller that hands the path on to be read.
bool CheckModelFile(const std::string& path, std::string& error, int& failure,
                    bool modelDef = true);

// Reads `path` into serialised ModelDef bytes, after the checks of OpenModelFile. A file whose
// first non-blank byte is '{' is the model's JSON form: it is parsed with protobuf's JSON mapping
// and serialised again. The file is only read. False, with `error` and `failure` as above, when
// it cannot be read, is no model or its JSON is invalid; binary content past its framing is not
// validated here, the parser does that.
bool ReadModelFile(const std::string& path, std::string& bytes, std::string& error, int& failure,
                   bool modelDef = true);

// True when model bytes are the JSON form: their first non-blank byte is '{'.
bool IsJsonModel(const char* data, size_t size);
// Turns the JSON form held in `bytes` into serialised ModelDef bytes, in place. False, with the
// reason in `error`, when the JSON is not a valid model.
bool JsonModelToBinary(std::string& bytes, std::string& error);

}  // namespace cli
}  // namespace tesu

#endif
