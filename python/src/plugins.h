// Parser plug-ins for the Python module: found and loaded as the CLI loads them, once per
// directory and process.
#ifndef TESU_PYTHON_PLUGINS_H
#define TESU_PYTHON_PLUGINS_H

#include <string>

namespace tesupy {

struct PluginDirectory {
  std::string path;
  bool listed = false;  // false: the directory could not be read (see error)
  std::string error;
};

// Loads the plug-ins of `requested`, or, when it is empty, of $TESU_PLUGIN_DIR, or else of the
// plug-in directory of the build or install tree, found from this module's own file. Each
// directory is loaded once; concurrent callers wait for that load and then share its result.
// The parser factory is complete for that directory once this returns. A library that fails to
// load is logged, as a warning, to the caller that loaded the directory.
const PluginDirectory& LoadPluginsOnce(const std::string& requested);

}  // namespace tesupy

#endif
