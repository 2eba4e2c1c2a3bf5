#include "graph/op_desc.h"

#include "log/log.h"

namespace tov {
namespace {
const TensorDesc& EmptyDesc() {
  static const TensorDesc empty;
  return empty;
}
}  // namespace

graphStatus OpDesc::AddDesc(std::pmr::vector<std::shared_ptr<TensorDesc>>& descs,
                            const TensorDesc& desc) {
  descs.push_back(MakeShared<TensorDesc>(arena_, desc));
  return GRAPH_SUCCESS;
}

graphStatus OpDesc::AddInputDesc(const TensorDesc& desc) {
  return AddDesc(inputs_, desc);
}

graphStatus OpDesc::AddOutputDesc(const TensorDesc& desc) {
  return AddDesc(outputs_, desc);
}

const TensorDesc& OpDesc::GetInputDesc(uint32_t index) const {
  return index < inputs_.size() ? *inputs_[index] : EmptyDesc();
}

const TensorDesc& OpDesc::GetOutputDesc(uint32_t index) const {
  return index < outputs_.size() ? *outputs_[index] : EmptyDesc();
}

std::shared_ptr<TensorDesc> OpDesc::MutableInputDesc(uint32_t index) const {
  return index < inputs_.size() ? inputs_[index] : nullptr;
}

std::shared_ptr<TensorDesc> OpDesc::MutableOutputDesc(uint32_t index) const {
  return index < outputs_.size() ? outputs_[index] : nullptr;
}

graphStatus OpDesc::UpdateInputDesc(uint32_t index, const TensorDesc& desc) {
  if (index >= inputs_.size()) {
    AI_Log_Print(AI_LOG_ERROR, "GRAPH", "node \"%s\" (%s) has no input description %u",
                 name_.c_str(), type_.c_str(), index);
    return GRAPH_PARAM_INVALID;
  }
  *inputs_[index] = desc;
  return GRAPH_SUCCESS;
}

graphStatus OpDesc::UpdateOutputDesc(uint32_t index, const TensorDesc& desc) {
  if (index >= outputs_.size()) {
    AI_Log_Print(AI_LOG_ERROR, "GRAPH", "node \"%s\" (%s) has no output description %u",
                 name_.c_str(), type_.c_str(), index);
    return GRAPH_PARAM_INVALID;
  }
  *outputs_[index] = desc;
  return GRAPH_SUCCESS;
}

graphStatus OpDesc::RemoveInputDesc(uint32_t index) {
  if (index >= inputs_.size()) return GRAPH_PARAM_INVALID;
  inputs_.erase(inputs_.begin() + index);
  if (index < isInputConst_.size()) isInputConst_.erase(isInputConst_.begin() + index);
  return GRAPH_SUCCESS;
}

}  // namespace tov
