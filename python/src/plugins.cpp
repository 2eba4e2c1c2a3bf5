#include "plugins.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>

#include "framework/plugin_loader.h"
#include "log/log.h"

namespace tesupy {
namespace {

namespace fs = std::filesystem;

// Where this module's shared object lives; its plug-in directory is relative to it.
std::string ModuleDirectory() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&LoadPluginsOnce), &info) == 0 ||
      info.dli_fname == nullptr) {
    return ".";
  }
  return fs::path(info.dli_fname).parent_path().string();
}

std::string DirectoryFor(const std::string& requested) {
  const char* env = std::getenv("TESU_PLUGIN_DIR");
  if (!requested.empty() || (env != nullptr && *env != '\0')) {
    return tesu::ResolvePluginDirectory(requested);
  }
  return (fs::path(ModuleDirectory()) / TESU_MODULE_TO_PLUGINS).lexically_normal().string();
}

struct Entry {
  std::once_flag once;
  PluginDirectory result;
};

}  // namespace

const PluginDirectory& LoadPluginsOnce(const std::string& requested) {
  const std::string path = DirectoryFor(requested);
  std::error_code ec;
  const fs::path canonical = fs::weakly_canonical(path, ec);
  const std::string key = ec ? path : canonical.string();

  // Entries are never removed, so a reference stays valid after the map's lock is released; the
  // load itself runs outside that lock, once.
  static std::mutex mutex;
  static std::map<std::string, std::unique_ptr<Entry>> entries;
  Entry* entry = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex);
    std::unique_ptr<Entry>& slot = entries[key];
    if (slot == nullptr) slot = std::make_unique<Entry>();
    entry = slot.get();
  }
  std::call_once(entry->once, [entry, &path] {
    PluginDirectory& result = entry->result;
    result.path = path;
    tesu::PluginLoadResult loaded;
    result.listed = tesu::LoadPlugins(path, loaded, result.error);
    for (const std::string& failure : loaded.errors) {
      AI_Log_Print(AI_LOG_WARNING, "TESU_PY", "cannot load plug-in: %s", failure.c_str());
    }
  });
  return entry->result;
}

}  // namespace tesupy
