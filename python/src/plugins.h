// Where the Python module finds its parser plug-ins when the caller names no directory.
#ifndef TESU_PYTHON_PLUGINS_H
#define TESU_PYTHON_PLUGINS_H

#include <string>

namespace tesupy {

// `requested` when given; else $TESU_PLUGIN_DIR; else the plug-in directory of the build or
// install tree, found from this module's own file.
std::string PluginDirectoryFor(const std::string& requested);

}  // namespace tesupy

#endif
