// tov::Model::Load on arbitrary bytes. Besides not crashing, a model that loads must save, the
// saved bytes must load again, and saving that copy must give the same bytes: what the library
// accepts it can also write back.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "graph/model.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::SilenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tov::Model model;
  if (model.Load(data, size) != tov::GRAPH_SUCCESS) return 0;
  std::string saved;
  if (model.Save(saved) != tov::GRAPH_SUCCESS) fuzzsupport::Fail("a loaded model does not save");
  tov::Model reloaded;
  if (reloaded.Load(reinterpret_cast<const uint8_t*>(saved.data()), saved.size()) !=
      tov::GRAPH_SUCCESS) {
    fuzzsupport::Fail("a saved model does not load");
  }
  std::string again;
  if (reloaded.Save(again) != tov::GRAPH_SUCCESS || again != saved) {
    fuzzsupport::Fail("saving a reloaded model changes its bytes");
  }
  return 0;
}
