// Files for tests that write them: a fresh directory per test, and reading and writing whole
// files, models included.
#ifndef TESU_TESTS_SUPPORT_FILES_H
#define TESU_TESTS_SUPPORT_FILES_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "model_builder.h"

namespace testkit {

// A directory named after the running test, emptied when made and removed when done.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string Path(const std::string& name = "") const;
  // Names of the entries in the directory (or its subdirectory), temporary files included, sorted.
  std::vector<std::string> Entries(const std::string& sub = "") const;
  // Writes the file in the directory and returns its path.
  std::string Write(const std::string& name, const std::string& bytes) const;
  // Writes the model's binary form in the directory and returns its path.
  std::string WriteModel(const std::string& name, const ModelBuilder& model) const;

 private:
  std::string path_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);

// True when an object anywhere in the value has the key.
bool HasKeyAnywhere(const nlohmann::json& value, const std::string& key);

}  // namespace testkit

#endif
