// Files mapped read-only into memory, so that a model's tensors can refer to their bytes where
// they lie instead of being read into memory. While a mapping lives it is listed by address:
// given bytes of a model, the loader finds the mapping they lie in, to keep it alive from the
// graph and to find side files next to the file.
#ifndef TOV_GRAPH_MAPPED_FILE_H
#define TOV_GRAPH_MAPPED_FILE_H

#include <cstdint>
#include <memory>
#include <string>

namespace tov {

class MappedFile {
 public:
  ~MappedFile();
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  // Maps the regular file at `path` read-only; an empty file maps to no bytes. Null, with the
  // reason in `error` (without the path), when it is not a regular file or cannot be read.
  static std::shared_ptr<const MappedFile> Open(const std::string& path, std::string& error);
  // Maps the regular file open as `fd` (which stays the caller's), whose path is `path`.
  static std::shared_ptr<const MappedFile> FromDescriptor(int fd, const std::string& path,
                                                          std::string& error);

  const uint8_t* data() const { return data_; }
  uint64_t size() const { return size_; }
  const std::string& path() const { return path_; }

  // The live mapping that holds all of [data, data + size), or null.
  static std::shared_ptr<const MappedFile> Containing(const uint8_t* data, uint64_t size);

 private:
  MappedFile(const uint8_t* data, uint64_t size, std::string path)
      : data_(data), size_(size), path_(std::move(path)) {}

  const uint8_t* data_;
  uint64_t size_;
  std::string path_;
};

}  // namespace tov

#endif
