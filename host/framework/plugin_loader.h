// Finds and loads parser plug-ins. A plug-in registers its parsers with the parser factory while
// it loads, so loading is all a host does with it.
#ifndef TESU_FRAMEWORK_PLUGIN_LOADER_H
#define TESU_FRAMEWORK_PLUGIN_LOADER_H

#include <string>
#include <vector>

namespace tesu {
// The directory to search: `flagValue` when set, else $TESU_PLUGIN_DIR when set, else
// "plugins" next to the running executable.
std::string ResolvePluginDirectory(const std::string& flagValue);

struct PluginLoadResult {
  std::vector<std::string> loaded;  // paths, in load order
  std::vector<std::string> errors;  // one line per library that failed to load
};

// Loads every lib*.so of `dir` in name order. Libraries stay loaded for the life of the process,
// since the parsers they create run their code. False (with `error`) when the directory cannot
// be listed; a library that fails to load is recorded and the others are still loaded.
bool LoadPlugins(const std::string& dir, PluginLoadResult& result, std::string& error);

}  // namespace tesu

#endif
