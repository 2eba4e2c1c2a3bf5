// Where the model writer puts its bytes: a window of memory that the writer fills and that is
// handed on whenever it is full, to a file descriptor, a protobuf stream or a string sized in
// advance. Payloads of tensor bytes large enough to be worth it go to a file descriptor straight
// from where they lie (a mapped file, say) without passing through the window. Internal to the
// library.
#ifndef TOV_GRAPH_WIRE_OUTPUT_H
#define TOV_GRAPH_WIRE_OUTPUT_H

#include <google/protobuf/io/coded_stream.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace google {
namespace protobuf {
namespace io {
class ZeroCopyOutputStream;
}
}  // namespace protobuf
}  // namespace google

namespace tov {

class WireOutput {
 public:
  WireOutput() = default;
  WireOutput(const WireOutput&) = delete;
  WireOutput& operator=(const WireOutput&) = delete;
  virtual ~WireOutput() = default;

  void Put(const void* data, size_t size) {
    if (size <= Room()) {
      if (size > 0) std::memcpy(cur_, data, size);  // an empty view may be null
      cur_ += size;
    } else {
      PutLarge(static_cast<const uint8_t*>(data), size);
    }
  }
  void Varint(uint64_t value) {
    using google::protobuf::io::CodedOutputStream;
    if (Room() >= kMaxVarintBytes) {
      cur_ = CodedOutputStream::WriteVarint64ToArray(value, cur_);
      return;
    }
    uint8_t bytes[kMaxVarintBytes];
    const uint8_t* end = CodedOutputStream::WriteVarint64ToArray(value, bytes);
    Put(bytes, static_cast<size_t>(end - bytes));
  }
  void Fixed32(uint32_t value) {
    uint8_t bytes[sizeof(value)];
    google::protobuf::io::CodedOutputStream::WriteLittleEndian32ToArray(value, bytes);
    Put(bytes, sizeof(bytes));
  }
  void Zeros(size_t count);

  // Hands on whatever the window still holds. False when anything failed to be written; the
  // bytes put after a failure are dropped.
  virtual bool Finish() = 0;

 protected:
  static constexpr size_t kMaxVarintBytes = 10;

  size_t Room() const { return static_cast<size_t>(end_ - cur_); }
  void SetWindow(uint8_t* begin, size_t size) {
    cur_ = begin;
    end_ = begin + size;
  }
  // Hands on the full window and opens the next one. False when that failed; the output then
  // drops what follows.
  virtual bool NextWindow() = 0;
  // Bytes that do not fit the window: copied through window after window by default.
  virtual void PutLarge(const uint8_t* data, size_t size);
  void Fail();
  bool Failed() const { return failed_; }
  uint8_t* Cursor() const { return cur_; }

 private:
  uint8_t* cur_ = nullptr;
  uint8_t* end_ = nullptr;
  bool failed_ = false;
  // Where bytes go once the output failed, so that the writer can run to its end undisturbed.
  std::unique_ptr<uint8_t[]> discard_;
};

// Writes to a file descriptor through a buffer of its own; payloads of at least kDirectBytes
// are written from where they lie. Any size: nothing here is bounded by 2 GiB.
class FdWireOutput : public WireOutput {
 public:
  static constexpr size_t kDirectBytes = 64 * 1024;
  explicit FdWireOutput(int fd);
  bool Finish() override;

 private:
  bool NextWindow() override;
  void PutLarge(const uint8_t* data, size_t size) override;
  bool Flush();
  bool WriteAll(const uint8_t* data, size_t size);

  int fd_;
  std::unique_ptr<uint8_t[]> buffer_;
};

// Writes to a protobuf stream, window by window as the stream hands them out.
class StreamWireOutput : public WireOutput {
 public:
  explicit StreamWireOutput(google::protobuf::io::ZeroCopyOutputStream& stream);
  bool Finish() override;

 private:
  bool NextWindow() override;

  google::protobuf::io::ZeroCopyOutputStream& stream_;
};

// Writes into a string made exactly as large as the bytes to come, so they are written once.
class StringWireOutput : public WireOutput {
 public:
  StringWireOutput(std::string& bytes, size_t size);
  bool Finish() override;

 private:
  bool NextWindow() override;

  std::string& bytes_;
};

}  // namespace tov

#endif
