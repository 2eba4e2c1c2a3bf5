#include "sparse_model.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "graph/model_wire.h"
#include "graph/proto/model.pb.h"
#include "modelkit/model_builder.h"

namespace bench {
namespace {

using tov::wire::AppendVarint;
using tov::wire::WireFormatLite;

constexpr uint64_t kSideAlignment = 64;

void AppendTag(int number, std::string& out) {
  AppendVarint(WireFormatLite::MakeTag(number, WireFormatLite::WIRETYPE_LENGTH_DELIMITED), out);
}

// A length-delimited field whose contents are `head` followed by `tailBytes` bytes that are
// written elsewhere.
std::string Field(int number, const std::string& head, uint64_t tailBytes = 0) {
  std::string out;
  AppendTag(number, out);
  AppendVarint(head.size() + tailBytes, out);
  return out + head;
}

// A file written at offsets; what is never written reads as zeros and takes no disk.
class SparseFile {
 public:
  explicit SparseFile(const std::string& path)
      : fd_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {}
  ~SparseFile() {
    if (fd_ >= 0) close(fd_);
  }
  bool ok() const { return fd_ >= 0 && ok_; }
  uint64_t size() const { return size_; }

  void Append(const std::string& bytes) {
    Write(size_, bytes.data(), bytes.size());
    size_ += bytes.size();
  }
  // `bytes` bytes, zero but for the markers of weight `index` at both ends.
  void AppendWeight(size_t index, uint64_t bytes) {
    const Marker head = WeightMarker(index, false);
    const Marker tail = WeightMarker(index, true);
    Write(size_, head.data(), head.size());
    Write(size_ + bytes - tail.size(), tail.data(), tail.size());
    size_ += bytes;
  }
  void Pad(uint64_t alignment) { size_ = (size_ + alignment - 1) / alignment * alignment; }
  bool Finish() {
    ok_ = ok_ && ftruncate(fd_, static_cast<off_t>(size_)) == 0 && close(fd_) == 0;
    fd_ = -1;
    return ok_;
  }

 private:
  void Write(uint64_t offset, const void* data, size_t size) {
    ok_ = ok_ && pwrite(fd_, data, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
  }

  int fd_;
  bool ok_ = true;
  uint64_t size_ = 0;
};

std::string WeightName(size_t index) {
  return "w" + std::to_string(index);
}

// The chain with every weight's tensor a description only; `sideFile` gives each weight its
// side-file range.
tesu::proto::ModelDef ChainModel(size_t weights, int64_t side, const std::string& sideFile,
                                 uint64_t weightBytes) {
  modelkit::ModelBuilder model("sparse_weights");
  std::string x = "input";
  model.Data(x, {1, side});
  uint64_t offset = 0;
  for (size_t i = 0; i < weights; ++i) {
    modelkit::OpBuilder weight = model.ConstFloat(WeightName(i), {}, {side, side});
    tesu::proto::TensorDef* tensor = (*weight.Def().mutable_attr())["value"].mutable_t();
    tensor->clear_data();
    if (!sideFile.empty()) {
      tesu::proto::ExternalData* external = tensor->mutable_external();
      external->set_location(sideFile);
      external->set_offset(offset);
      external->set_length(weightBytes);
      offset = (offset + weightBytes + kSideAlignment - 1) / kSideAlignment * kSideAlignment;
    }
    const std::string out = "mm" + std::to_string(i);
    model.Op(out, "MatMul")
        .Input(x)
        .Input(WeightName(i))
        .InputDesc({1, side})
        .InputDesc({side, side})
        .InputConst({false, true})
        .Output({1, side})
        .Attr("transpose_a", false)
        .Attr("transpose_b", false);
    x = out;
  }
  return model.Def();
}

// An op whose weight data is spliced in on the wire: the op without its "value" attribute,
// then that attribute's map entry with a data field of `weightBytes` bytes, whose contents
// follow the returned bytes.
std::string OpHead(tesu::proto::OpDef op, uint64_t weightBytes) {
  const tesu::proto::TensorDef tensor = op.attr().at("value").t();
  op.mutable_attr()->erase("value");
  std::string head = op.SerializeAsString();
  std::string tensorHead =
      Field(tesu::proto::TensorDef::kDescFieldNumber, tensor.desc().SerializeAsString());
  AppendTag(tesu::proto::TensorDef::kDataFieldNumber, tensorHead);
  AppendVarint(weightBytes, tensorHead);
  const std::string attrHead = Field(tesu::proto::AttrDef::kTFieldNumber, tensorHead, weightBytes);
  const std::string entryHead = Field(1, "value") + Field(2, attrHead, weightBytes);
  return head + Field(tesu::proto::OpDef::kAttrFieldNumber, entryHead, weightBytes);
}

}  // namespace

Marker WeightMarker(size_t index, bool tail) {
  Marker marker{};
  for (size_t j = 0; j < marker.size(); ++j) {
    marker[j] = static_cast<uint8_t>((index * 37 + j * 11 + (tail ? 101 : 3)) % 251 + 1);
  }
  return marker;
}

bool WriteSparseModel(const std::string& path, size_t weights, int64_t side,
                      const std::string& sideFile, std::string& error) {
  const uint64_t weightBytes = static_cast<uint64_t>(side) * static_cast<uint64_t>(side) * 4;
  const tesu::proto::ModelDef def = ChainModel(weights, side, sideFile, weightBytes);
  const tesu::proto::GraphDef& graph = def.graph(0);
  const bool inline_ = sideFile.empty();
  // The ops' bytes, with the length of each weight's data that follows a Const's head.
  std::vector<std::string> heads;
  std::vector<uint64_t> tails;
  uint64_t graphBytes = Field(tesu::proto::GraphDef::kNameFieldNumber, graph.name()).size();
  for (const tesu::proto::OpDef& op : graph.op()) {
    const bool weight = inline_ && op.type() == "Const";
    heads.push_back(weight ? OpHead(op, weightBytes) : op.SerializeAsString());
    tails.push_back(weight ? weightBytes : 0);
    graphBytes += Field(tesu::proto::GraphDef::kOpFieldNumber, heads.back(), tails.back()).size() +
                  tails.back();
  }
  SparseFile model(path);
  model.Append(Field(tesu::proto::ModelDef::kNameFieldNumber, def.name()));
  model.Append(Field(tesu::proto::ModelDef::kGraphFieldNumber, "", graphBytes));
  model.Append(Field(tesu::proto::GraphDef::kNameFieldNumber, graph.name()));
  size_t weightIndex = 0;
  for (size_t i = 0; i < heads.size(); ++i) {
    model.Append(Field(tesu::proto::GraphDef::kOpFieldNumber, heads[i], tails[i]));
    if (tails[i] != 0) model.AppendWeight(weightIndex++, tails[i]);
  }
  if (!inline_) {
    const size_t slash = path.rfind('/');
    SparseFile weightsFile(path.substr(0, slash == std::string::npos ? 0 : slash + 1) + sideFile);
    for (size_t i = 0; i < weights; ++i) {
      weightsFile.Pad(kSideAlignment);
      weightsFile.AppendWeight(i, weightBytes);
    }
    if (!weightsFile.Finish()) {
      error = std::string("cannot write the side file: ") + std::strerror(errno);
      return false;
    }
  }
  if (!model.Finish()) {
    error = std::string("cannot write the model: ") + std::strerror(errno);
    return false;
  }
  return true;
}

}  // namespace bench
