// Reading the model file given to the CLI.
#ifndef TESU_TOOLS_MODEL_FILE_H
#define TESU_TOOLS_MODEL_FILE_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "graph/base_buffer.h"
#include "graph/mapped_file.h"
#include "status.h"

namespace tesu {
namespace cli {

// Checks, reading as little as it can, that the file may hold a model in this host's format: a
// regular file, not empty, of at most tov::kMaxModelBytes, and either the JSON form or framed at
// its top level as a serialised message. False otherwise, with the reason in `error` and the exit
// status that reports it in `failure`: kFailure when the file cannot be read, kNotAModel when its
// bytes are no model.
bool CheckModelFile(const std::string& path, std::string& error, int& failure);

// Reads `path` into serialised ModelDef bytes, after the checks of CheckModelFile. A file whose
// first non-blank byte is '{' is the model's JSON form: it is parsed with protobuf's JSON mapping
// and serialised again. With `modelDef` false the file is for another framework's plug-in: only
// the checks that do not look at its bytes apply, and the bytes are returned as they are. The
// file is only read. False, with `error` and `failure` as above, when it cannot be read, is no
// model or its JSON is invalid; binary content past its framing is not validated here, the
// parser does that.
bool ReadModelFile(const std::string& path, std::string& bytes, std::string& error, int& failure,
                   bool modelDef = true);

// A model file's bytes as the parser is given them: the file mapped read-only, or, for the JSON
// form, the serialised message built from it. Tensors loaded from a mapped file refer to its
// bytes, and the graph keeps the mapping alive.
class ModelBytes {
 public:
  const char* data() const { return View().data(); }
  size_t size() const { return View().size(); }
  operator std::string_view() const { return View(); }  // NOLINT: read wherever bytes are
  // The buffer the parser loads: it carries the mapping, so tensors refer to it.
  tov::BaseBuffer Buffer() const;
  // Lets go of the bytes; a graph loaded from them keeps what it refers to.
  void Release();

 private:
  friend bool ReadModelFile(const std::string&, ModelBytes&, std::string&, int&, bool);
  std::string_view View() const;

  std::shared_ptr<const tov::MappedFile> mapping_;
  std::string converted_;
};

// ReadModelFile mapping the file instead of reading it.
bool ReadModelFile(const std::string& path, ModelBytes& bytes, std::string& error, int& failure,
                   bool modelDef = true);

// True when model bytes are the JSON form: their first non-blank byte is '{'.
bool IsJsonModel(const char* data, size_t size);
// Turns the JSON form held in `bytes` into serialised ModelDef bytes, in place. False, with the
// reason in `error`, when the JSON is not a valid model.
bool JsonModelToBinary(std::string& bytes, std::string& error);

}  // namespace cli
}  // namespace tesu

#endif
