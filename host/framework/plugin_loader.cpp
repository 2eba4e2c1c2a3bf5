#include "framework/plugin_loader.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tesu {
namespace {

namespace fs = std::filesystem;

bool IsPluginFileName(const std::string& name) {
  constexpr const char* kPrefix = "lib";
  constexpr const char* kSuffix = ".so";
  return name.size() > 6 && name.compare(0, 3, kPrefix) == 0 &&
         name.compare(name.size() - 3, 3, kSuffix) == 0;
}

std::string ExecutableDirectory() {
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? std::string(".") : self.parent_path().string();
}

}  // namespace

std::string ResolvePluginDirectory(const std::string& flagValue) {
  if (!flagValue.empty()) return flagValue;
  const char* env = std::getenv("TESU_PLUGIN_DIR");
  if (env != nullptr && *env != '\0') return env;
  return (fs::path(ExecutableDirectory()) / "plugins").string();
}

bool LoadPlugins(const std::string& dir, PluginLoadResult& result, std::string& error) {
  std::error_code ec;
  std::vector<fs::path> libraries;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    if (IsPluginFileName(it->path().filename().string())) libraries.push_back(it->path());
  }
  if (ec) {
    error = "cannot list plug-in directory " + dir + ": " + ec.message();
    return false;
  }
  std::sort(libraries.begin(), libraries.end());
  for (const fs::path& library : libraries) {
    if (dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL) != nullptr) {
      result.loaded.push_back(library.string());
    } else {
      const char* reason = dlerror();
      result.errors.push_back(reason != nullptr ? reason : library.string());
    }
  }
  return true;
}

}  // namespace tesu
