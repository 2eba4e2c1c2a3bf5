#include "graph/tensor_source.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace tov {
namespace {

std::string Quote(const std::string& text) {
  return "\"" + text + "\"";
}

bool HasParentStep(std::string_view path) {
  while (!path.empty()) {
    const size_t slash = path.find('/');
    if (path.substr(0, slash) == "..") return true;
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  return false;
}

// The path with every symbolic link resolved; false, with the reason, when it does not exist.
bool RealPath(const std::string& path, std::string& real, std::string& reason) {
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) {
    reason = std::strerror(errno);
    return false;
  }
  real = resolved;
  std::free(resolved);
  return true;
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool IsInside(const std::string& path, const std::string& folder) {
  if (folder == "/") return true;
  return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
         path[folder.size()] == '/';
}

}  // namespace

void TensorSource::Refer(Tensor& tensor, wire::Span data) const {
  tensor.ReferData(data.data, static_cast<size_t>(data.size), model_);
}

bool TensorSource::ReferExternal(Tensor& tensor, const ExternalLocation& external,
                                 std::string& problem) {
  const MappedFile* file = SideFile(external.location, problem);
  if (file == nullptr) return false;
  if (external.offset > file->size() || external.length > file->size() - external.offset) {
    problem = "reads " + std::to_string(external.length) + " bytes from byte " +
              std::to_string(external.offset) + " of the side file " + Quote(external.location) +
              ", which has only " + std::to_string(file->size());
    return false;
  }
  std::shared_ptr<const void> owner = sideFiles_.at(external.location);
  tensor.ReferData(file->data() + external.offset, static_cast<size_t>(external.length),
                   std::move(owner));
  tensor.SetExternal(external);
  return true;
}

const MappedFile* TensorSource::SideFile(const std::string& location, std::string& problem) {
  auto known = sideFiles_.find(location);
  if (known != sideFiles_.end()) return known->second.get();
  const std::string named = "names the side file " + Quote(location);
  if (location.empty()) {
    problem = "names no side file (an empty location)";
    return nullptr;
  }
  if (location.front() == '/') {
    problem = named + " by an absolute path; a side file is named relative to the model's folder";
    return nullptr;
  }
  if (HasParentStep(location)) {
    problem = named + ", which steps out of the model's folder with \"..\"";
    return nullptr;
  }
  if (model_ == nullptr) {
    problem = named + ", but the model was not read from a file, so it has no folder";
    return nullptr;
  }
  const std::string& folder = Folder(problem);
  if (folder.empty()) return nullptr;
  std::string real;
  std::string reason;
  if (!RealPath(FolderOf(model_->path()) + "/" + location, real, reason)) {
    problem = "cannot read the side file " + Quote(location) + ": " + reason;
    return nullptr;
  }
  if (!IsInside(real, folder)) {
    problem = named + ", which resolves to " + Quote(real) + " outside the model's folder " +
              Quote(folder);
    return nullptr;
  }
  std::shared_ptr<const MappedFile> file = MappedFile::Open(real, reason);
  if (file == nullptr) {
    problem = "cannot read the side file " + Quote(location) + ": " + reason;
    return nullptr;
  }
  return (sideFiles_[location] = std::move(file)).get();
}

const std::string& TensorSource::Folder(std::string& problem) {
  std::string reason;
  if (folder_.empty() && !RealPath(FolderOf(model_->path()), folder_, reason)) {
    problem = "cannot find the model's folder: " + reason;
  }
  return folder_;
}

}  // namespace tov
