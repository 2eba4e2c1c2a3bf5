// The plug-in's JSON dump on an arbitrary model file. A dump that succeeds must have written a
// file that holds JSON.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include <nlohmann/json.hpp>

#include "fuzz_support.h"
#include "orvane_parser.h"

namespace {
const char* const kModelFile = "model.pb";
const char* const kJsonFile = "model.json";
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::SilenceLog();
  (void)fuzzsupport::ScratchDir();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string modelPath = fuzzsupport::ScratchDir() + "/" + kModelFile;
  const std::string jsonPath = fuzzsupport::ScratchDir() + "/" + kJsonFile;
  {
    std::ofstream out(modelPath, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!out) fuzzsupport::Fail("cannot write the model file");
  }
  const tesu::Status status = tesu::OrvaneModelParser().ToJson(modelPath.c_str(), jsonPath.c_str());
  if (status == tesu::SUCCESS) {
    std::ifstream in(jsonPath, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!nlohmann::json::accept(text)) fuzzsupport::Fail("the dump is not JSON");
  }
  std::remove(modelPath.c_str());
  std::remove(jsonPath.c_str());
  return 0;
}
