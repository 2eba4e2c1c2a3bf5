#ifndef TOV_GRAPH_OP_DESC_H
#define TOV_GRAPH_OP_DESC_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "graph/attr_holder.h"
#include "graph/tensor_desc.h"

namespace tov {

// The operator description of a node: name, type, attributes, one tensor description per input
// and per output, and one flag per input telling whether that input is constant.
class OpDesc : public AttrHolder {
 public:
  OpDesc() = default;
  OpDesc(const std::string& name, const std::string& type) : name_(name), type_(type) {}
  ~OpDesc() override = default;

  const std::string& GetName() const { return name_; }
  void SetName(const std::string& name) { name_ = name; }
  const std::string& GetType() const { return type_; }
  void SetType(const std::string& type) { type_ = type; }

  graphStatus AddInputDesc(const TensorDesc& desc);
  graphStatus AddOutputDesc(const TensorDesc& desc);
  size_t GetInputsSize() const { return inputs_.size(); }
  virtual size_t GetOutputsSize() const { return outputs_.size(); }

  // An out-of-range index yields an empty description.
  const TensorDesc& GetInputDesc(uint32_t index) const;
  virtual const TensorDesc& GetOutputDesc(uint32_t index) const;
  // Handles through which the description itself changes; null when out of range.
  std::shared_ptr<TensorDesc> MutableInputDesc(uint32_t index) const;
  std::shared_ptr<TensorDesc> MutableOutputDesc(uint32_t index) const;
  graphStatus UpdateInputDesc(uint32_t index, const TensorDesc& desc);
  graphStatus UpdateOutputDesc(uint32_t index, const TensorDesc& desc);
  // Drops input description `index` and its constness flag, if it has one.
  graphStatus RemoveInputDesc(uint32_t index);

  std::vector<bool> GetIsInputConst() const { return isInputConst_; }
  void SetIsInputConst(const std::vector<bool>& flags) { isInputConst_ = flags; }

 private:
  std::string name_;
  std::string type_;
  std::vector<std::shared_ptr<TensorDesc>> inputs_;
  std::vector<std::shared_ptr<TensorDesc>> outputs_;
  std::vector<bool> isInputConst_;
};

using OpDescPtr = std::shared_ptr<OpDesc>;
using ConstOpDescPtr = std::shared_ptr<const OpDesc>;

}  // namespace tov

#endif
