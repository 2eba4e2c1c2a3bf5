// Reading files that a user names as input, without trusting them: only regular files are read,
// never beyond a size limit, and nothing blocks on a FIFO or a device.
#ifndef TESU_FRAMEWORK_INPUT_FILE_H
#define TESU_FRAMEWORK_INPUT_FILE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "graph/mapped_file.h"

namespace tesu {

class InputFile {
 public:
  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  // Opens `path` for reading. A path that is not a regular file (directory, FIFO, device,
  // socket) is refused before it is opened, and the open itself does not block, so a FIFO
  // swapped in meanwhile is refused too rather than waited on. False, with the reason in
  // `error` (without the path), when the file cannot be opened or is larger than `maxBytes`.
  bool Open(const std::string& path, uint64_t maxBytes, std::string& error);

  // The size the file had when it was opened.
  uint64_t Size() const { return size_; }

  // Reads up to `count` bytes at `offset` into `out`; `got` is short only at the end of the file.
  bool ReadAt(uint64_t offset, char* out, size_t count, size_t& got, std::string& error) const;

  // Reads the whole file: exactly Size() bytes, or false when it shrank meanwhile.
  bool ReadAll(std::string& bytes, std::string& error) const;

  // Maps the whole file read-only instead of reading it; null, with the reason in `error`,
  // when it cannot be mapped. Model::Load of the mapped bytes refers to their tensors.
  std::shared_ptr<const tov::MappedFile> Map(std::string& error) const;

 private:
  int fd_ = -1;
  std::string path_;
  uint64_t size_ = 0;
};

// Checks the top level of the serialised protobuf message that the file should hold: every tag
// is valid, and every length-delimited field ends within the file, which must end with the last
// field. Only tags and lengths are read, so a large file of anything else is refused after a few
// bytes. Group fields, which protobuf 3 messages never have, are refused. After the first
// `mostFields` fields the rest is left to the parser.
bool CheckMessageFraming(const InputFile& file, std::string& error, size_t mostFields = 1024);

}  // namespace tesu

#endif
