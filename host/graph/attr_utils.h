#ifndef TOV_GRAPH_ATTR_UTILS_H
#define TOV_GRAPH_ATTR_UTILS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "graph/attr_holder.h"

namespace tov {

class OpDesc;

// Typed reads and writes of attributes. The getters return true and fill the value when the
// attribute exists with that kind, and return false leaving the value untouched otherwise. The
// adapters accept a holder by reference or by (possibly null) shared pointer.
class AttrUtils {
 public:
  class ConstAttrHolderAdapter {
   public:
    ConstAttrHolderAdapter(const AttrHolder& holder) : holder_(&holder) {}  // NOLINT
    ConstAttrHolderAdapter(const std::shared_ptr<OpDesc>& holder);          // NOLINT
    ConstAttrHolderAdapter(const std::shared_ptr<const OpDesc>& holder);    // NOLINT
    const AttrHolder* get() const { return holder_; }

   private:
    const AttrHolder* holder_;
  };

  class AttrHolderAdapter {
   public:
    AttrHolderAdapter(AttrHolder& holder) : holder_(&holder) {}  // NOLINT
    AttrHolderAdapter(const std::shared_ptr<OpDesc>& holder);    // NOLINT
    AttrHolder* get() const { return holder_; }

   private:
    AttrHolder* holder_;
  };

  static bool HasAttr(ConstAttrHolderAdapter&& holder, const std::string& name);

  static bool GetBool(ConstAttrHolderAdapter&& holder, const std::string& name, bool& value);
  static bool GetFloat(ConstAttrHolderAdapter&& holder, const std::string& name, float& value);
  static bool GetInt(ConstAttrHolderAdapter&& holder, const std::string& name, int64_t& value);
  static bool GetInt(ConstAttrHolderAdapter&& holder, const std::string& name, int32_t& value);
  static bool GetStr(ConstAttrHolderAdapter&& holder, const std::string& name, std::string& value);
  static bool GetTensor(ConstAttrHolderAdapter&& holder, const std::string& name, TensorPtr& value);
  static bool GetListInt(ConstAttrHolderAdapter&& holder, const std::string& name,
                         std::vector<int64_t>& value);
  static bool GetListInt(ConstAttrHolderAdapter&& holder, const std::string& name,
                         std::vector<int32_t>& value);
  static bool GetListFloat(ConstAttrHolderAdapter&& holder, const std::string& name,
                           std::vector<float>& value);
  static bool GetListBool(ConstAttrHolderAdapter&& holder, const std::string& name,
                          std::vector<bool>& value);
  static bool GetListStr(ConstAttrHolderAdapter&& holder, const std::string& name,
                         std::vector<std::string>& value);

  static bool SetBool(AttrHolderAdapter&& holder, const std::string& name, bool value);
  static bool SetFloat(AttrHolderAdapter&& holder, const std::string& name, float value);
  static bool SetInt(AttrHolderAdapter&& holder, const std::string& name, int64_t value);
  static bool SetStr(AttrHolderAdapter&& holder, const std::string& name, const std::string& value);
  static bool SetTensor(AttrHolderAdapter&& holder, const std::string& name, TensorPtr value);
  static bool SetListInt(AttrHolderAdapter&& holder, const std::string& name,
                         std::vector<int64_t> value);
  static bool SetListFloat(AttrHolderAdapter&& holder, const std::string& name,
                           std::vector<float> value);
  static bool SetListBool(AttrHolderAdapter&& holder, const std::string& name,
                          std::vector<bool> value);
  static bool SetListStr(AttrHolderAdapter&& holder, const std::string& name,
                         std::vector<std::string> value);
};

}  // namespace tov

#endif
