// Files for tests that write them: a fresh directory per test, and reading and writing whole
// files.
#ifndef TESU_TESTS_SUPPORT_FILES_H
#define TESU_TESTS_SUPPORT_FILES_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace testkit {

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// A directory named after the running test and the process, emptied when made and removed when
// done: two builds running the same test at once never share it.
class TempDir {
 public:
  TempDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::path(::testing::TempDir()) /
            (std::string("tesu_") + info->test_suite_name() + "_" + info->name() + "_" +
             std::to_string(::getpid()));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string Path(const std::string& name = "") const { return (path_ / name).string(); }
  // Names of the entries in the directory (or its subdirectory), temporary files included, sorted.
  std::vector<std::string> Entries(const std::string& sub = "") const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_ / sub)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  // Writes the file in the directory and returns its path.
  std::string Write(const std::string& name, const std::string& bytes) const {
    WriteFile(Path(name), bytes);
    return Path(name);
  }

 private:
  std::filesystem::path path_;
};

// True when an object anywhere in the value has the key.
inline bool HasKeyAnywhere(const nlohmann::json& value, const std::string& key) {
  if (value.is_object() && value.contains(key)) return true;
  return value.is_structured() &&
         std::any_of(value.begin(), value.end(),
                     [&key](const nlohmann::json& child) { return HasKeyAnywhere(child, key); });
}

}  // namespace testkit

#endif
