#include "graph/attr_name.h"

#include <deque>
#include <mutex>
#include <unordered_map>

namespace tov {
namespace {

// The process-wide table. Strings live in a deque so that their addresses never change; the
// index maps views of those strings to them.
struct NameTable {
  std::mutex mutex;
  std::deque<std::string> names;
  std::unordered_map<std::string_view, const std::string*> index;
};

NameTable& Table() {
  static NameTable* table = new NameTable();  // never destroyed: names outlive every holder
  return *table;
}

const std::string* InternLocked(std::string_view text) {
  NameTable& table = Table();
  std::lock_guard<std::mutex> lock(table.mutex);
  auto found = table.index.find(text);
  if (found != table.index.end()) return found->second;
  const std::string* stored = &table.names.emplace_back(text);
  table.index.emplace(*stored, stored);
  return stored;
}

}  // namespace

AttrName AttrName::Intern(std::string_view text) {
  // Each thread keeps its own view of the names it has seen, so the common case reads no shared
  // state and takes no lock.
  thread_local std::unordered_map<std::string_view, const std::string*> seen;
  auto found = seen.find(text);
  if (found != seen.end()) return AttrName(found->second);
  const std::string* stored = InternLocked(text);
  seen.emplace(*stored, stored);
  return AttrName(stored);
}

}  // namespace tov
