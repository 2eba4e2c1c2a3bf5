#include "convert/plugins.h"

#include <filesystem>
#include <map>
#include <mutex>
#include <vector>

namespace tesu {
namespace convert {
namespace {

namespace fs = std::filesystem;

struct Entry {
  std::once_flag once;
  PluginDirectory result;
};

std::string Numbers(const std::vector<FrameworkType>& types) {
  std::string list;
  for (FrameworkType type : types) {
    list += (list.empty() ? "" : ", ") + std::to_string(static_cast<int>(type));
  }
  return list;
}

}  // namespace

const PluginDirectory& LoadPluginDirectory(const std::string& dir, bool* loadedNow) {
  const std::string path = ResolvePluginDirectory(dir);
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
  bool loaded = false;
  std::call_once(entry->once, [entry, &path, &loaded] {
    PluginDirectory& result = entry->result;
    result.path = path;
    result.listed = LoadPlugins(path, result.loaded, result.error);
    loaded = true;
  });
  if (loadedNow != nullptr) *loadedNow = loaded;
  return entry->result;
}

std::optional<FrameworkType> ChooseFramework(std::optional<FrameworkType> requested,
                                             const PluginDirectory& plugins, std::string& error) {
  if (requested) return requested;
  const ModelParserFactory& factory = *ModelParserFactory::Instance();
  std::vector<FrameworkType> readers;
  for (FrameworkType type : factory.RegisteredTypes()) {
    if (factory.InputOf(type) == ModelInput::kHostModel) readers.push_back(type);
  }
  if (readers.size() == 1) return readers.front();
  error = readers.empty() ? "no plug-in in " + plugins.path + " reads this host's model format"
                          : "plug-ins of frameworks " + Numbers(readers) + " in " + plugins.path +
                                " all read this host's model format: name the framework";
  return std::nullopt;
}

std::string FrameworkLabel(FrameworkType type) {
  const std::string name = ModelParserFactory::Instance()->FrameworkName(type);
  return std::to_string(static_cast<int>(type)) + (name.empty() ? "" : " " + name);
}

}  // namespace convert
}  // namespace tesu
