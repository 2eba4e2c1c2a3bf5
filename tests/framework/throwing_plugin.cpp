// A plug-in whose static constructor throws, as one with a broken start-up would.
#include <stdexcept>

namespace {

struct FailsAtLoad {
  FailsAtLoad() { throw std::runtime_error("registration table is corrupt"); }
};
const FailsAtLoad failsAtLoad;

}  // namespace
