#include "graph/wire_output.h"

#include <google/protobuf/io/zero_copy_stream.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace tov {
namespace {

constexpr size_t kDiscardBytes = 4096;
constexpr size_t kBufferBytes = 1 << 20;
// One write(2) moves at most about 2 GiB; larger payloads are written in pieces of this size.
constexpr size_t kMaxWriteBytes = size_t{1} << 30;

}  // namespace

void WireOutput::Zeros(size_t count) {
  static const uint8_t kZeros[64] = {};
  while (count > 0) {
    const size_t size = std::min(count, sizeof(kZeros));
    Put(kZeros, size);
    count -= size;
  }
}

void WireOutput::PutLarge(const uint8_t* data, size_t size) {
  while (size > 0 && !failed_) {
    if (Room() == 0 && !NextWindow()) return Fail();
    const size_t part = std::min(size, Room());
    std::memcpy(cur_, data, part);
    cur_ += part;
    data += part;
    size -= part;
  }
}

void WireOutput::Fail() {
  failed_ = true;
  if (discard_ == nullptr) discard_.reset(new uint8_t[kDiscardBytes]);
  SetWindow(discard_.get(), kDiscardBytes);
}

FdWireOutput::FdWireOutput(int fd) : fd_(fd), buffer_(new uint8_t[kBufferBytes]) {
  SetWindow(buffer_.get(), kBufferBytes);
}

bool FdWireOutput::WriteAll(const uint8_t* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd_, data, std::min(size, kMaxWriteBytes));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool FdWireOutput::Flush() {
  if (Failed()) return false;
  const size_t size = static_cast<size_t>(Cursor() - buffer_.get());
  SetWindow(buffer_.get(), kBufferBytes);
  return WriteAll(buffer_.get(), size);
}

bool FdWireOutput::NextWindow() {
  return Flush();
}

void FdWireOutput::PutLarge(const uint8_t* data, size_t size) {
  if (size < kDirectBytes || Failed()) return WireOutput::PutLarge(data, size);
  if (!Flush() || !WriteAll(data, size)) Fail();
}

bool FdWireOutput::Finish() {
  return Flush();
}

StreamWireOutput::StreamWireOutput(google::protobuf::io::ZeroCopyOutputStream& stream)
    : stream_(stream) {}

bool StreamWireOutput::NextWindow() {
  void* data = nullptr;
  int size = 0;
  do {
    if (!stream_.Next(&data, &size)) return false;
  } while (size == 0);
  SetWindow(static_cast<uint8_t*>(data), static_cast<size_t>(size));
  return true;
}

bool StreamWireOutput::Finish() {
  if (Failed()) return false;
  stream_.BackUp(static_cast<int>(Room()));
  SetWindow(nullptr, 0);
  return true;
}

StringWireOutput::StringWireOutput(std::string& bytes, size_t size) : bytes_(bytes) {
  bytes_.resize(size);
  SetWindow(reinterpret_cast<uint8_t*>(&bytes_[0]), size);
}

bool StringWireOutput::NextWindow() {
  return false;
}

bool StringWireOutput::Finish() {
  if (Failed()) return false;
  bytes_.resize(bytes_.size() - Room());
  return true;
}

}  // namespace tov
