#include "plugins.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

#include "framework/plugin_loader.h"

namespace tesupy {
namespace {

namespace fs = std::filesystem;

// Where this module's shared object lives; its plug-in directory is relative to it.
std::string ModuleDirectory() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&PluginDirectoryFor), &info) == 0 ||
      info.dli_fname == nullptr) {
    return ".";
  }
  return fs::path(info.dli_fname).parent_path().string();
}

}  // namespace

std::string PluginDirectoryFor(const std::string& requested) {
  const char* env = std::getenv("TESU_PLUGIN_DIR");
  if (!requested.empty() || (env != nullptr && *env != '\0')) {
    return tesu::ResolvePluginDirectory(requested);
  }
  return (fs::path(ModuleDirectory()) / TESU_MODULE_TO_PLUGINS).lexically_normal().string();
}

}  // namespace tesupy
