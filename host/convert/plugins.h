// Parser plug-ins for every front end: each directory is loaded once per process, and a parser
// is found for a framework, or for the model format when no framework is named.
#ifndef TESU_CONVERT_PLUGINS_H
#define TESU_CONVERT_PLUGINS_H

#include <memory>
#include <optional>
#include <string>

#include "framework/model_parser.h"
#include "framework/plugin_loader.h"

namespace tesu {
namespace convert {

struct PluginDirectory {
  std::string path;
  bool listed = false;  // false: the directory could not be read (see error)
  std::string error;
  PluginLoadResult loaded;
};

// Loads the plug-ins of `dir`, or, when it is empty, of ResolvePluginDirectory(""). Each
// directory is loaded once; concurrent callers wait for that load and then share its result.
// `loadedNow` tells whether this call did the loading (and so should report its failures).
const PluginDirectory& LoadPluginDirectory(const std::string& dir, bool* loadedNow = nullptr);

// The framework to convert with: `requested` when given, else the one registered framework whose
// plug-in reads the host's model format. Empty, with the reason in `error`, when there is none
// or more than one.
std::optional<FrameworkType> ChooseFramework(std::optional<FrameworkType> requested,
                                             const PluginDirectory& plugins, std::string& error);

// "7 Chain": a framework type as users see it, with the name its plug-in registered.
std::string FrameworkLabel(FrameworkType type);

}  // namespace convert
}  // namespace tesu

#endif
