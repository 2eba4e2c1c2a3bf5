// Where a loaded model's tensor bytes come from: the mapped model file they lie in, or side
// files next to it. Internal to the library.
#ifndef TOV_GRAPH_TENSOR_SOURCE_H
#define TOV_GRAPH_TENSOR_SOURCE_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "graph/mapped_file.h"
#include "graph/model_wire.h"
#include "graph/tensor.h"

namespace tov {

class TensorSource {
 public:
  // `model` is the mapping the model's bytes lie in; null when they are not a mapped file, so
  // tensor bytes are copied and no side file can be found.
  explicit TensorSource(std::shared_ptr<const MappedFile> model) : model_(std::move(model)) {}

  // Gives `tensor` the bytes `data` of the model: referred to when the model is mapped, copied
  // otherwise.
  void Refer(Tensor& tensor, wire::Span data) const;

  // Gives `tensor` the `length` bytes at `offset` of the side file `location`, a path relative
  // to the model's folder that must stay inside it (symbolic links resolved). False, with what
  // is wrong in `problem`, when the location is not such a path, the file cannot be read or is
  // too short.
  bool ReferExternal(Tensor& tensor, const ExternalLocation& external, std::string& problem);

 private:
  // The side file at `location`, mapped once per load however many tensors it holds.
  const MappedFile* SideFile(const std::string& location, std::string& problem);
  // The model's folder with every symbolic link resolved; empty when it cannot be resolved.
  const std::string& Folder(std::string& problem);

  std::shared_ptr<const MappedFile> model_;
  std::string folder_;
  std::map<std::string, std::shared_ptr<const MappedFile>> sideFiles_;
};

}  // namespace tov

#endif
