// The extension module tesu._tesu; the package tesu (tesu/__init__.py) wraps it.
#include "framework/version.h"
#include "graph_state.h"

PYBIND11_MODULE(_tesu, module) {
  module.doc() = "Bindings of the tesu converter; use the tesu package rather than this module.";
  module.attr("__version__") = TESU_VERSION;
  tesupy::BindGraph(module);
  tesupy::BindConvert(module);
}
