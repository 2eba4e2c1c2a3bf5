#include "files.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace testkit {

namespace fs = std::filesystem;

TempDir::TempDir() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  path_ = (fs::path(::testing::TempDir()) /
           (std::string("tesu_") + info->test_suite_name() + "_" + info->name()))
              .string();
  fs::remove_all(path_);
  fs::create_directories(path_);
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string TempDir::Path(const std::string& name) const {
  return (fs::path(path_) / name).string();
}

std::vector<std::string> TempDir::Entries(const std::string& sub) const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(fs::path(path_) / sub)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string TempDir::Write(const std::string& name, const std::string& bytes) const {
  WriteFile(Path(name), bytes);
  return Path(name);
}

std::string TempDir::WriteModel(const std::string& name, const ModelBuilder& model) const {
  return Write(name, model.Bytes());
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

bool HasKeyAnywhere(const nlohmann::json& value, const std::string& key) {
  if (value.is_object() && value.contains(key)) return true;
  if (!value.is_structured()) return false;
  return std::any_of(value.begin(), value.end(),
                     [&key](const nlohmann::json& child) { return HasKeyAnywhere(child, key); });
}

}  // namespace testkit
