// Files for tests that write them: a fresh directory per test and small read/write helpers.
#ifndef TESU_TESTS_FRAMEWORK_TEST_FILES_H
#define TESU_TESTS_FRAMEWORK_TEST_FILES_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace frameworktest {

class TempDir {
 public:
  TempDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::filesystem::path(::testing::TempDir()) /
            (std::string("tesu_") + info->test_suite_name() + "_" + info->name());
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string Path(const std::string& name = "") const { return (path_ / name).string(); }
  // Names of the entries in the directory, temporary files included, sorted.
  std::vector<std::string> Entries(const std::string& sub = "") const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_ / sub)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::filesystem::path path_;
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// True when an object anywhere in the value has the key.
inline bool HasKeyAnywhere(const nlohmann::json& value, const std::string& key) {
  if (value.is_object() && value.contains(key)) return true;
  if (!value.is_structured()) return false;
  for (const nlohmann::json& child : value) {
    if (HasKeyAnywhere(child, key)) return true;
  }
  return false;
}

}  // namespace frameworktest

#endif
