#include "graph/mapped_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>

namespace tov {
namespace {

// The live mappings by start address. Several conversions may run in parallel threads.
struct Registry {
  std::mutex mutex;
  std::map<const uint8_t*, std::weak_ptr<const MappedFile>, std::less<>> mappings;
};

Registry& Mappings() {
  static Registry* registry = new Registry();  // outlives every mapping, static ones included
  return *registry;
}

}  // namespace

MappedFile::~MappedFile() {
  if (size_ == 0) return;
  {
    Registry& registry = Mappings();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.mappings.erase(data_);
  }
  munmap(const_cast<uint8_t*>(data_), size_);
}

std::shared_ptr<const MappedFile> MappedFile::Open(const std::string& path, std::string& error) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    error = std::strerror(errno);
    return nullptr;
  }
  std::shared_ptr<const MappedFile> file = FromDescriptor(fd, path, error);
  close(fd);
  return file;
}

std::shared_ptr<const MappedFile> MappedFile::FromDescriptor(int fd, const std::string& path,
                                                             std::string& error) {
  struct stat info {};
  if (fstat(fd, &info) != 0) {
    error = std::strerror(errno);
    return nullptr;
  }
  if (!S_ISREG(info.st_mode)) {
    error = "it is not a regular file";
    return nullptr;
  }
  const auto size = static_cast<uint64_t>(info.st_size);
  if (size == 0) return std::shared_ptr<const MappedFile>(new MappedFile(nullptr, 0, path));
  void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
  if (data == MAP_FAILED) {
    error = std::string("cannot map it: ") + std::strerror(errno);
    return nullptr;
  }
  std::shared_ptr<const MappedFile> file(
      new MappedFile(static_cast<const uint8_t*>(data), size, path));
  Registry& registry = Mappings();
  std::lock_guard<std::mutex> lock(registry.mutex);
  registry.mappings[file->data_] = file;
  return file;
}

std::shared_ptr<const MappedFile> MappedFile::Containing(const uint8_t* data, uint64_t size) {
  if (data == nullptr) return nullptr;
  Registry& registry = Mappings();
  std::lock_guard<std::mutex> lock(registry.mutex);
  auto after = registry.mappings.upper_bound(data);
  if (after == registry.mappings.begin()) return nullptr;
  std::shared_ptr<const MappedFile> file = std::prev(after)->second.lock();
  if (file == nullptr) return nullptr;
  const auto offset = static_cast<uint64_t>(data - file->data_);
  if (offset > file->size_ || size > file->size_ - offset) return nullptr;
  return file;
}

}  // namespace tov
