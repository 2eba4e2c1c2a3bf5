#include "framework/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tesu {
namespace {

// Why a file that is not a regular file is refused. stat follows symbolic links, so a socket is
// the only kind left after the others.
std::string NotRegular(mode_t mode) {
  const char* kind = S_ISDIR(mode)    ? "a directory"
                     : S_ISFIFO(mode) ? "a FIFO (named pipe)"
                     : S_ISCHR(mode)  ? "a character device"
                     : S_ISBLK(mode)  ? "a block device"
                                      : "a socket";
  return std::string("it is ") + kind + ", not a regular file";
}

// The reason an open or stat failed; a dangling symbolic link says so.
std::string OpenFailure(const std::string& path, int error) {
  struct stat link {};
  if (error == ENOENT && lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
    return "a symbolic link to a file that does not exist";
  }
  return std::strerror(error);
}

// A protobuf varint at `offset`: its value and its length in bytes.
bool ReadVarint(const InputFile& file, uint64_t offset, uint64_t& value, size_t& length,
                std::string& error) {
  char bytes[10];
  size_t got = 0;
  if (!file.ReadAt(offset, bytes, sizeof bytes, got, error)) return false;
  value = 0;
  for (length = 0; length < got; ++length) {
    const auto byte = static_cast<unsigned char>(bytes[length]);
    value |= static_cast<uint64_t>(byte & 0x7f) << (7 * length);
    if ((byte & 0x80) == 0) {
      ++length;
      return true;
    }
  }
  error = "a truncated or overlong number at byte " + std::to_string(offset);
  return false;
}

}  // namespace

InputFile::~InputFile() {
  if (fd_ >= 0) close(fd_);
}

bool InputFile::Open(const std::string& path, uint64_t maxBytes, std::string& error) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) {
    error = OpenFailure(path, errno);
    return false;
  }
  if (!S_ISREG(info.st_mode)) {
    error = NotRegular(info.st_mode);
    return false;
  }
  fd_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd_ < 0) {
    error = OpenFailure(path, errno);
    return false;
  }
  if (fstat(fd_, &info) != 0) {
    error = std::strerror(errno);
    return false;
  }
  if (!S_ISREG(info.st_mode)) {
    error = NotRegular(info.st_mode);
    return false;
  }
  size_ = static_cast<uint64_t>(info.st_size);
  path_ = path;
  if (size_ > maxBytes) {
    error = "the file has " + std::to_string(size_) + " bytes, more than the " +
            std::to_string(maxBytes) + " accepted";
    return false;
  }
  return true;
}

bool InputFile::ReadAt(uint64_t offset, char* out, size_t count, size_t& got,
                       std::string& error) const {
  got = 0;
  while (got < count) {
    const ssize_t n = pread(fd_, out + got, count - got, static_cast<off_t>(offset + got));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error = std::string("read error: ") + std::strerror(errno);
      return false;
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  return true;
}

bool InputFile::ReadAll(std::string& bytes, std::string& error) const {
  // The size is what the file system reports for bytes that exist, not a size the file claims.
  bytes.resize(static_cast<size_t>(size_));
  size_t got = 0;
  if (size_ > 0 && !ReadAt(0, &bytes[0], bytes.size(), got, error)) return false;
  if (got != bytes.size()) {
    error = "the file shrank while it was read";
    return false;
  }
  return true;
}

std::shared_ptr<const tov::MappedFile> InputFile::Map(std::string& error) const {
  return tov::MappedFile::FromDescriptor(fd_, path_, error);
}

bool CheckMessageFraming(const InputFile& file, std::string& error, size_t mostFields) {
  const uint64_t size = file.Size();
  uint64_t offset = 0;
  for (size_t fields = 0; offset < size && fields < mostFields; ++fields) {
    uint64_t tag = 0;
    size_t length = 0;
    if (!ReadVarint(file, offset, tag, length, error)) return false;
    const uint64_t number = tag >> 3;
    const unsigned wireType = tag & 7;
    if (number == 0 || number > (1u << 29) - 1 || length > 5) {
      error = "no valid field tag at byte " + std::to_string(offset);
      return false;
    }
    const uint64_t fieldStart = offset;
    offset += length;
    uint64_t value = 0;
    switch (wireType) {
      case 0:  // varint
        if (!ReadVarint(file, offset, value, length, error)) return false;
        offset += length;
        break;
      case 1:  // fixed64
        offset += 8;
        break;
      case 5:  // fixed32
        offset += 4;
        break;
      case 2:  // length-delimited
        if (!ReadVarint(file, offset, value, length, error)) return false;
        offset = value > size ? UINT64_MAX : offset + length + value;
        break;
      default:
        error = "field " + std::to_string(number) + " at byte " + std::to_string(fieldStart) +
                " has wire type " + std::to_string(wireType) + ", which this format never uses";
        return false;
    }
    if (offset > size) {
      error = "field " + std::to_string(number) + " at byte " + std::to_string(fieldStart) +
              " runs past the end of the file";
      return false;
    }
  }
  return true;
}

}  // namespace tesu
