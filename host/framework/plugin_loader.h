// Finds and loads parser plug-ins. A plug-in registers its parsers with the parser factory while
// it loads, so loading is all a host does with it.
#ifndef TESU_FRAMEWORK_PLUGIN_LOADER_H
#define TESU_FRAMEWORK_PLUGIN_LOADER_H

#include <cstdint>
#include <string>
#include <vector>

namespace tesu {

enum FrameworkType : int32_t;  // framework/model_parser.h

// The directory to search: `flagValue` when set, else $TESU_PLUGIN_DIR when set, else the
// directory that PluginDirectoryBeside finds for the running executable with the default
// candidates.
std::string ResolvePluginDirectory(const std::string& flagValue);

// Where plug-ins sit relative to the directory of an executable of this project: "plugins"
// beside it in a build tree, then the installed plug-in directory ("../lib/tesu/plugins" from
// the installed bin/).
std::vector<std::string> DefaultPluginDirectoryCandidates();

// The plug-in directory of the program or library at `file`: the first of `candidates`, each
// taken relative to the directory that holds the real file (symbolic links resolved), that is a
// directory. When none is, the first candidate, so that messages can name where plug-ins were
// expected. An absolute candidate is taken as it is.
std::string PluginDirectoryBeside(const std::string& file,
                                  const std::vector<std::string>& candidates);

struct PluginLoadResult {
  std::vector<std::string> loaded;  // paths, in load order
  std::vector<std::string> errors;  // one line per library that failed to load
  // Per entry of `loaded`: the framework types that loading it registered, ascending.
  std::vector<std::vector<FrameworkType>> frameworks;
};

// Loads every lib*.so of `dir` in name order. Libraries stay loaded for the life of the process,
// since the parsers they create run their code. False (with `error`) when the directory cannot
// be listed; a library that fails to load is recorded and the others are still loaded.
bool LoadPlugins(const std::string& dir, PluginLoadResult& result, std::string& error);

}  // namespace tesu

#endif
