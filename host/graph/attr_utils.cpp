#include "graph/attr_utils.h"

#include "graph/op_desc.h"

namespace tov {

AttrUtils::ConstAttrHolderAdapter::ConstAttrHolderAdapter(const std::shared_ptr<OpDesc>& holder)
    : holder_(holder.get()) {}
AttrUtils::ConstAttrHolderAdapter::ConstAttrHolderAdapter(
    const std::shared_ptr<const OpDesc>& holder)
    : holder_(holder.get()) {}
AttrUtils::AttrHolderAdapter::AttrHolderAdapter(const std::shared_ptr<OpDesc>& holder)
    : holder_(holder.get()) {}

namespace {

template <typename T>
bool Get(const AttrUtils::ConstAttrHolderAdapter& holder, const std::string& name, T& value) {
  if (holder.get() == nullptr) return false;
  const AttrValue* held = holder.get()->FindAttr(name);
  return held != nullptr && held->GetValue(value);
}

template <typename T>
bool Set(const AttrUtils::AttrHolderAdapter& holder, const std::string& name, T&& value) {
  if (holder.get() == nullptr) return false;
  return holder.get()->SetAttr(name, AttrValue::CreateFrom(std::forward<T>(value))) ==
         GRAPH_SUCCESS;
}

}  // namespace

bool AttrUtils::HasAttr(ConstAttrHolderAdapter&& holder, const std::string& name) {
  return holder.get() != nullptr && holder.get()->HasAttr(name);
}

bool AttrUtils::GetBool(ConstAttrHolderAdapter&& h, const std::string& n, bool& v) {
  return Get(h, n, v);
}
bool AttrUtils::GetFloat(ConstAttrHolderAdapter&& h, const std::string& n, float& v) {
  return Get(h, n, v);
}
bool AttrUtils::GetInt(ConstAttrHolderAdapter&& h, const std::string& n, int64_t& v) {
  return Get(h, n, v);
}
bool AttrUtils::GetInt(ConstAttrHolderAdapter&& h, const std::string& n, int32_t& v) {
  int64_t wide = 0;
  if (!Get(h, n, wide) || wide < INT32_MIN || wide > INT32_MAX) return false;
  v = static_cast<int32_t>(wide);
  return true;
}
bool AttrUtils::GetStr(ConstAttrHolderAdapter&& h, const std::string& n, std::string& v) {
  return Get(h, n, v);
}
bool AttrUtils::GetTensor(ConstAttrHolderAdapter&& h, const std::string& n, TensorPtr& v) {
  return Get(h, n, v);
}
bool AttrUtils::GetListInt(ConstAttrHolderAdapter&& h, const std::string& n,
                           std::vector<int64_t>& v) {
  return Get(h, n, v);
}
bool AttrUtils::GetListInt(ConstAttrHolderAdapter&& h, const std::string& n,
                           std::vector<int32_t>& v) {
  return Get(h, n, v);
}
bool AttrUtils::GetListFloat(ConstAttrHolderAdapter&& h, const std::string& n,
                             std::vector<float>& v) {
  return Get(h, n, v);
}
bool AttrUtils::GetListBool(ConstAttrHolderAdapter&& h, const std::string& n,
                            std::vector<bool>& v) {
  return Get(h, n, v);
}
bool AttrUtils::GetListStr(ConstAttrHolderAdapter&& h, const std::string& n,
                           std::vector<std::string>& v) {
  return Get(h, n, v);
}

bool AttrUtils::SetBool(AttrHolderAdapter&& h, const std::string& n, bool v) {
  return Set(h, n, v);
}
bool AttrUtils::SetFloat(AttrHolderAdapter&& h, const std::string& n, float v) {
  return Set(h, n, v);
}
bool AttrUtils::SetInt(AttrHolderAdapter&& h, const std::string& n, int64_t v) {
  return Set(h, n, v);
}
bool AttrUtils::SetStr(AttrHolderAdapter&& h, const std::string& n, const std::string& v) {
  return Set(h, n, std::string(v));
}
bool AttrUtils::SetTensor(AttrHolderAdapter&& h, const std::string& n, TensorPtr v) {
  return Set(h, n, std::move(v));
}
bool AttrUtils::SetListInt(AttrHolderAdapter&& h, const std::string& n, std::vector<int64_t> v) {
  return Set(h, n, std::move(v));
}
bool AttrUtils::SetListFloat(AttrHolderAdapter&& h, const std::string& n, std::vector<float> v) {
  return Set(h, n, std::move(v));
}
bool AttrUtils::SetListBool(AttrHolderAdapter&& h, const std::string& n, std::vector<bool> v) {
  return Set(h, n, std::move(v));
}
bool AttrUtils::SetListStr(AttrHolderAdapter&& h, const std::string& n,
                           std::vector<std::string> v) {
  return Set(h, n, std::move(v));
}

}  // namespace tov
