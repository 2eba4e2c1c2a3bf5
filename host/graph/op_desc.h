#ifndef TOV_GRAPH_OP_DESC_H
#define TOV_GRAPH_OP_DESC_H

#include <cstdint>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

#include "graph/attr_holder.h"
#include "graph/graph_arena.h"
#include "graph/tensor_desc.h"

namespace tov {

// The operator description of a node: name, type, attributes, one tensor description per input
// and per output, and one flag per input telling whether that input is constant.
//
// The tensor descriptions are plain objects that the description owns, in its arena when it has
// one. A handle to one (MutableInputDesc) shares the description's ownership, and a description
// removed from the inputs is kept until the description dies, so a handle never dangles.
class OpDesc : public AttrHolder, public std::enable_shared_from_this<OpDesc> {
 public:
  OpDesc() : OpDesc(nullptr) {}
  OpDesc(const std::string& name, const std::string& type) : OpDesc(nullptr) {
    name_ = name;
    SetType(type);
  }
  // A description whose tensor descriptions come from `arena`; only for descriptions that live
  // in that arena themselves (see GraphArena), so the arena outlives them.
  explicit OpDesc(GraphArena* arena) : AttrHolder(ResourceOf(arena)), arena_(arena) {}
  // A copy is an independent description on the heap.
  OpDesc(const OpDesc& other);
  OpDesc& operator=(const OpDesc&) = delete;
  ~OpDesc() override;

  const std::string& GetName() const { return name_; }
  void SetName(const std::string& name) { name_ = name; }
  void SetName(std::string&& name) { name_ = std::move(name); }
  const std::string& GetType() const { return type_; }
  // Types come from a small set and repeat on many nodes: each is kept once per process, like
  // attribute names, and a description holds a pointer to it.
  void SetType(std::string_view type) { type_ = AttrName::Intern(type); }
  void SetType(AttrName type) { type_ = type; }

  graphStatus AddInputDesc(const TensorDesc& desc);
  graphStatus AddOutputDesc(const TensorDesc& desc);
  size_t GetInputsSize() const { return inputCount_; }
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

  std::vector<bool> GetIsInputConst() const {
    return std::vector<bool>(isInputConst_.begin(), isInputConst_.end());
  }
  void SetIsInputConst(const std::vector<bool>& flags) {
    isInputConst_.assign(flags.begin(), flags.end(), DescMemory());
  }
  template <typename It>
  void SetIsInputConst(It first, It last) {
    isInputConst_.assign(first, last, DescMemory());
  }
  size_t GetIsInputConstSize() const { return isInputConst_.size(); }
  bool IsInputConst(size_t index) const {
    return index < isInputConst_.size() && isInputConst_[index];
  }
  // Room for that many descriptions, for callers that know how many they will add.
  void ReserveDescs(size_t inputs, size_t outputs) {
    inputs_.reserve(inputs, DescMemory());
    outputs_.reserve(outputs, DescMemory());
  }

 private:
  static AttrName NoType() {
    static const AttrName none = AttrName::Intern("");
    return none;
  }
  using DescList = ArenaVector<TensorDesc*>;
  // Where the descriptions and the lists live: the arena's region for them, or the heap.
  std::pmr::memory_resource* DescMemory() const {
    return ResourceOf(arena_, GraphArena::kTensorDescs);
  }
  TensorDesc* NewDesc(const TensorDesc& desc);
  // A handle to `desc` that holds this description alive; it owns nothing when no shared
  // pointer owns this description.
  std::shared_ptr<TensorDesc> Share(TensorDesc* desc) const;

  GraphArena* arena_;
  std::string name_;
  AttrName type_ = NoType();
  DescList inputs_;  // the inputs' descriptions, then those of removed inputs
  DescList outputs_;
  ArenaVector<uint8_t> isInputConst_;  // 0 or 1 each; a byte list is smaller than bits
  uint32_t inputCount_ = 0;
};

using OpDescPtr = std::shared_ptr<OpDesc>;
using ConstOpDescPtr = std::shared_ptr<const OpDesc>;

}  // namespace tov

#endif
