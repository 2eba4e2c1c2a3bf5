// Attribute names, interned: each distinct name is stored once per process and an attribute
// holds only a pointer to it, so setting an attribute never copies its name and names compare
// by pointer. Interning is safe from any thread; repeated names are found without a lock.
#ifndef TOV_GRAPH_ATTR_NAME_H
#define TOV_GRAPH_ATTR_NAME_H

#include <ostream>
#include <string>
#include <string_view>

namespace tov {

class AttrName {
 public:
  // The interned name for `text`; the same text always yields the same name.
  static AttrName Intern(std::string_view text);

  const std::string& str() const { return *text_; }
  operator const std::string&() const { return *text_; }  // NOLINT
  const char* c_str() const { return text_->c_str(); }
  size_t size() const { return text_->size(); }
  bool empty() const { return text_->empty(); }
  char operator[](size_t index) const { return (*text_)[index]; }

  friend bool operator==(AttrName a, AttrName b) { return a.text_ == b.text_; }
  friend bool operator!=(AttrName a, AttrName b) { return a.text_ != b.text_; }
  friend bool operator==(AttrName a, std::string_view b) { return *a.text_ == b; }
  friend bool operator==(std::string_view a, AttrName b) { return a == *b.text_; }
  friend bool operator!=(AttrName a, std::string_view b) { return *a.text_ != b; }
  friend bool operator==(AttrName a, const char* b) { return *a.text_ == b; }
  friend bool operator==(AttrName a, const std::string& b) { return *a.text_ == b; }
  // Byte-wise order of the text, the order in which attributes are listed and saved.
  friend bool operator<(AttrName a, AttrName b) {
    return a.text_ != b.text_ && *a.text_ < *b.text_;
  }
  friend std::ostream& operator<<(std::ostream& out, AttrName name) { return out << *name.text_; }

 private:
  explicit AttrName(const std::string* text) : text_(text) {}
  const std::string* text_;
};

}  // namespace tov

#endif
