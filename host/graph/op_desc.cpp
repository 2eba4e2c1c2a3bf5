#include "graph/op_desc.h"

#include <algorithm>
#include <new>

#include "log/log.h"

namespace tov {
namespace {
const TensorDesc& EmptyDesc() {
  static const TensorDesc empty;
  return empty;
}
}  // namespace

OpDesc::OpDesc(const OpDesc& other)
    : AttrHolder(other),
      std::enable_shared_from_this<OpDesc>(other),
      arena_(nullptr),
      name_(other.name_),
      type_(other.type_) {
  isInputConst_.assign(other.isInputConst_.begin(), other.isInputConst_.end(), DescMemory());
  for (uint32_t i = 0; i < other.inputCount_; ++i) AddInputDesc(*other.inputs_[i]);
  for (const TensorDesc* desc : other.outputs_) AddOutputDesc(*desc);
}

OpDesc::~OpDesc() {
  std::pmr::memory_resource* resource = DescMemory();
  for (DescList* descs : {&inputs_, &outputs_}) {
    for (TensorDesc* desc : *descs) {
      desc->~TensorDesc();
      resource->deallocate(desc, sizeof(TensorDesc), alignof(TensorDesc));
    }
    descs->Release(resource);
  }
  isInputConst_.Release(resource);
}

TensorDesc* OpDesc::NewDesc(const TensorDesc& desc) {
  void* memory = DescMemory()->allocate(sizeof(TensorDesc), alignof(TensorDesc));
  return new (memory) TensorDesc(desc);
}

std::shared_ptr<TensorDesc> OpDesc::Share(TensorDesc* desc) const {
  return std::shared_ptr<TensorDesc>(std::const_pointer_cast<OpDesc>(weak_from_this().lock()),
                                     desc);
}

graphStatus OpDesc::AddInputDesc(const TensorDesc& desc) {
  TensorDesc* added = NewDesc(desc);
  inputs_.insert(inputCount_, added, DescMemory());
  ++inputCount_;
  return GRAPH_SUCCESS;
}

graphStatus OpDesc::AddOutputDesc(const TensorDesc& desc) {
  outputs_.push_back(NewDesc(desc), DescMemory());
  return GRAPH_SUCCESS;
}

const TensorDesc& OpDesc::GetInputDesc(uint32_t index) const {
  return index < inputCount_ ? *inputs_[index] : EmptyDesc();
}

const TensorDesc& OpDesc::GetOutputDesc(uint32_t index) const {
  return index < outputs_.size() ? *outputs_[index] : EmptyDesc();
}

std::shared_ptr<TensorDesc> OpDesc::MutableInputDesc(uint32_t index) const {
  return index < inputCount_ ? Share(inputs_[index]) : nullptr;
}

std::shared_ptr<TensorDesc> OpDesc::MutableOutputDesc(uint32_t index) const {
  return index < outputs_.size() ? Share(outputs_[index]) : nullptr;
}

graphStatus OpDesc::UpdateInputDesc(uint32_t index, const TensorDesc& desc) {
  if (index >= inputCount_) {
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
  if (index >= inputCount_) return GRAPH_PARAM_INVALID;
  // The removed description moves behind the inputs: a handle to it may still be held.
  std::rotate(inputs_.begin() + index, inputs_.begin() + index + 1, inputs_.begin() + inputCount_);
  --inputCount_;
  if (index < isInputConst_.size()) isInputConst_.erase(index);
  return GRAPH_SUCCESS;
}

}  // namespace tov
