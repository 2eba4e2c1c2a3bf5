// The converter registry and the converters that rewrite one source node each into the host
// operator set: in place (activations, pooling, convolution, reductions, batch-to-space) or by
// replacing the node with a new one (Concat, BatchNorm).
#include "orvane_util.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "framework/model_parser.h"
#include "graph/anchor.h"
#include "graph/attr_utils.h"
#include "graph/attr_value.h"
#include "graph/graph.h"
#include "graph/op_desc.h"
#include "graph/op_desc_utils.h"
#include "graph/shape.h"
#include "graph/shape_math.h"
#include "graph/tensor.h"
#include "graph/tensor_desc.h"
#include "graph/types.h"
#include "log/log.h"

// Every failure is one line: the source's base name, the logging function and a fixed line
// number that identifies the check, then the message. Line numbers are constants so that a
// message stays the same when this file is edited.
#define OV_LOG(line, msg) \
  AI_Log_Print(AI_LOG_ERROR, "AI_FMK", "%s %s(%d)::\"" msg "\"", kSourceName, __func__, line)
#define OV_LOGF(line, msg, ...)                                                               \
  AI_Log_Print(AI_LOG_ERROR, "AI_FMK", "%s %s(%d)::\"" msg "\"", kSourceName, __func__, line, \
               __VA_ARGS__)
// The parameter check prints its text without enclosing quotes.
#define OV_LOG_NULL_PARAM(line, param)                                                      \
  AI_Log_Print(AI_LOG_ERROR, "AI_FMK", "%s %s(%d)::param[\"" param "\"] must not be null.", \
               kSourceName, __func__, line)

namespace tesu {
namespace {

constexpr const char* kSourceName = "orvane_util";
constexpr uint32_t kStatusFailed = 1;
// Reported for faults in a node's inputs or weights, and for failed temporary allocations.
constexpr uint32_t kStatusInputFault = 3;

// The host operator version that every node built by a converter carries.
constexpr int64_t kHostOpVersion = 5;

// Positions of the height and width values in a list laid out in the given data format.
bool SpatialPositions(const std::string& format, size_t& first, size_t& second) {
  if (format == "NHWC") {
    first = 1;
    second = 2;
    return true;
  }
  if (format == "NCHW") {
    first = 2;
    second = 3;
    return true;
  }
  return false;
}

tov::AttrValue PairAttr(const std::vector<int64_t>& values, size_t first, size_t second) {
  return tov::AttrValue::CreateFrom(std::vector<int64_t>{values[first], values[second]});
}

// Stores each value's low 32 bits as the tensor's data. An empty list leaves the tensor without
// data. False when the temporary array cannot be allocated.
bool SetInt32Data(tov::Tensor& tensor, const std::vector<int64_t>& values) {
  const size_t count = values.size();
  if (count == 0) return true;
  std::unique_ptr<int32_t[]> array(new (std::nothrow) int32_t[count]());
  if (array == nullptr) return false;
  for (size_t i = 0; i < count; ++i) {
    array[i] = static_cast<int32_t>(static_cast<uint32_t>(values[i]));
  }
  (void)tensor.SetData(reinterpret_cast<const uint8_t*>(array.get()), count * sizeof(int32_t));
  return true;
}

void DescribeInt32Constant(tov::Tensor& tensor, std::vector<int64_t> dims) {
  tov::TensorDesc& desc = tensor.MutableTensorDesc();
  desc.SetFormat(tov::FORMAT_NCHW);
  desc.SetDataType(tov::DT_INT32);
  desc.SetShape(tov::Shape(std::move(dims)));
}

// Appends the tensors to the node's weights and marks each new input constant.
void AppendConstInputs(tov::Node& node, const std::vector<tov::TensorPtr>& tensors) {
  std::vector<tov::TensorPtr> weights = tov::OpDescUtils::MutableWeights(node);
  weights.insert(weights.end(), tensors.begin(), tensors.end());
  (void)tov::OpDescUtils::SetWeights(node, weights);

  const tov::OpDescPtr opDesc = node.GetOpDesc();
  std::vector<bool> flags = opDesc->GetIsInputConst();
  flags.insert(flags.end(), tensors.size(), true);
  opDesc->SetIsInputConst(flags);
}

// The description of a node that replaces `name`: version 5, default input and output
// descriptions. Null when it cannot be allocated.
tov::OpDescPtr NewReplacementDesc(const std::string& name, const std::string& type,
                                  size_t inputCount) {
  tov::OpDescPtr opDesc = make_shared_nothrow<tov::OpDesc>(name, type);
  if (opDesc == nullptr) return opDesc;
  (void)tov::AttrUtils::SetInt(opDesc, "version", kHostOpVersion);
  for (size_t i = 0; i < inputCount; ++i) (void)opDesc->AddInputDesc(tov::TensorDesc());
  (void)opDesc->AddOutputDesc(tov::TensorDesc());
  return opDesc;
}

using ConsumerList = tov::RangeVistor<tov::InDataAnchorPtr, tov::OutDataAnchorPtr>;

// Moves every consumer of the snapshot from `from` to `to`, in snapshot order. Stops at the
// first edge that cannot be removed or added; consumers moved before it stay moved.
bool MoveConsumers(const ConsumerList& consumers, const tov::OutDataAnchorPtr& from,
                   const tov::OutDataAnchorPtr& to) {
  for (const tov::InDataAnchorPtr& consumer : consumers) {
    if (tov::GraphUtils::RemoveEdge(from, consumer) != tov::GRAPH_SUCCESS ||
        tov::GraphUtils::AddEdge(to, consumer) != tov::GRAPH_SUCCESS) {
      return false;
    }
  }
  return true;
}

uint32_t SetActivation(tov::Node& node, int64_t mode) {
  const tov::OpDescPtr opDesc = node.GetOpDesc();
  opDesc->SetType("Activation");
  (void)opDesc->SetAttr("mode", tov::AttrValue::CreateFrom(mode));
  (void)opDesc->SetAttr("coef", tov::AttrValue::CreateFrom(0.0f));
  (void)opDesc->SetAttr("negative_slope", tov::AttrValue::CreateFrom(0.0f));
  return 0;
}

}  // namespace

std::map<std::string, OrvaneOpParserFunc>& GetParserFuncMap() {
  static std::map<std::string, OrvaneOpParserFunc> orvaneOpParserFuncMap;
  return orvaneOpParserFuncMap;
}

bool RegisterOpParser(const std::string& opType, OrvaneOpParserFunc func) {
  return GetParserFuncMap().insert(std::make_pair(opType, func)).second;
}

uint32_t OrvaneAbsParserFunc(tov::Node& node, tov::ComputeGraph& /*graph*/) {
  return SetActivation(node, 6);
}

uint32_t OrvaneReluParserFunc(tov::Node& node, tov::ComputeGraph& /*graph*/) {
  return SetActivation(node, 1);
}

// MaxPool -> PoolingD. The type is set first, so a failing node already carries it; the
// pooling defaults are written only where the node has no value of its own.
uint32_t OrvaneMaxPoolParserFunc(tov::Node& node, tov::ComputeGraph& /*graph*/) {
  static const std::string OV_ATTR_KSIZE = "ksize";
  static const std::string OV_ATTR_STRIDES = "strides";
  static const std::string OV_ATTR_PADDING = "padding";
  static const std::string OV_ATTR_DATA_FORMAT = "data_format";

  const tov::OpDescPtr opDesc = node.GetOpDesc();
  opDesc->SetType("PoolingD");
  (void)opDesc->SetAttr("mode", tov::AttrValue::CreateFrom(int64_t{0}));

  std::vector<int64_t> ksize;
  if (!tov::AttrUtils::GetListInt(opDesc, OV_ATTR_KSIZE, ksize)) {
    OV_LOG(378, "get ksize fail.");
    return kStatusFailed;
  }
  if (ksize.size() != 4) {
    OV_LOG(379, "ksize size should be 4");
    return kStatusFailed;
  }
  std::vector<int64_t> strides;
  if (!tov::AttrUtils::GetListInt(opDesc, OV_ATTR_STRIDES, strides)) {
    OV_LOG(382, "get strides fail.");
    return kStatusFailed;
  }
  if (strides.size() != 4) {
    OV_LOG(383, "strides size should be 4");
    return kStatusFailed;
  }
  std::string padding;
  if (!tov::AttrUtils::GetStr(opDesc, OV_ATTR_PADDING, padding)) {
    OV_LOG(385, "get padding fail.");
    return kStatusFailed;
  }
  std::string dataFormat;
  if (!tov::AttrUtils::GetStr(opDesc, OV_ATTR_DATA_FORMAT, dataFormat)) {
    OV_LOG(388, "get dataFormat fail.");
    return kStatusFailed;
  }

  int64_t ceilMode = 0;
  if (!tov::AttrUtils::GetInt(opDesc, "ceil_mode", ceilMode)) {
    (void)opDesc->SetAttr("ceil_mode", tov::AttrValue::CreateFrom(int64_t{0}));
  }
  bool globalPooling = false;
  if (!tov::AttrUtils::GetBool(opDesc, "global_pooling", globalPooling)) {
    (void)opDesc->SetAttr("global_pooling", tov::AttrValue::CreateFrom(false));
  }

  size_t first = 0;
  size_t second = 0;
  if (!SpatialPositions(dataFormat, first, second)) {
    OV_LOGF(409, "dont support dataFormat %s", dataFormat.c_str());
    return kStatusFailed;
  }
  (void)opDesc->SetAttr("window", PairAttr(ksize, first, second));
  (void)opDesc->SetAttr("stride", PairAttr(strides, first, second));

  int64_t padMode = 0;
  if (padding == "VALID") {
    padMode = 5;
  } else if (padding == "SAME") {
    padMode = 6;
  } else {
    OV_LOGF(417, "dont support padding %s", padding.c_str());
    return kStatusFailed;
  }
  (void)opDesc->SetAttr("pad_mode", tov::AttrValue::CreateFrom(padMode));
  (void)opDesc->SetAttr("data_mode", tov::AttrValue::CreateFrom(int64_t{1}));

  std::vector<int32_t> pad;
  if (!tov::AttrUtils::GetListInt(opDesc, "pad", pad)) {
    (void)opDesc->SetAttr("pad", tov::AttrValue::CreateFrom(std::vector<int64_t>{0, 0, 0, 0}));
  }

  (void)opDesc->DelAttr(OV_ATTR_KSIZE);
  (void)opDesc->DelAttr(OV_ATTR_STRIDES);
  (void)opDesc->DelAttr(OV_ATTR_PADDING);
  (void)opDesc->DelAttr(OV_ATTR_DATA_FORMAT);
  return 0;
}

// Conv2D -> Convolution, DepthwiseConv2D -> ConvolutionDepthwise. Dilations and strides keep
// their spatial pair; the depthwise weight [d0, d1, h, w] is folded to [d0 * d1, 1, h, w].
uint32_t ConvParserFunc(tov::Node& node) {
  const tov::OpDescPtr opDesc = node.GetOpDesc();
  int64_t group = 1;
  (void)tov::AttrUtils::GetInt(opDesc, "groups", group);
  (void)opDesc->SetAttr("pad_mode", tov::AttrValue::CreateFrom(int64_t{0}));
  (void)opDesc->SetAttr("groups", tov::AttrValue::CreateFrom(group));
  std::string format = "NCHW";
  (void)tov::AttrUtils::GetStr(opDesc, "data_format", format);

  std::vector<int64_t> dilations;
  if (!tov::AttrUtils::GetListInt(opDesc, "dilations", dilations)) {
    OV_LOG(212, "get dilations fail.");
    return kStatusFailed;
  }
  if (dilations.size() < 4) {
    OV_LOG(214, "dilations size error!");
    return kStatusFailed;
  }
  std::vector<int64_t> strides;
  if (!tov::AttrUtils::GetListInt(opDesc, "strides", strides)) {
    OV_LOG(219, "get strides fail.");
    return kStatusFailed;
  }
  if (strides.size() < 4) {
    OV_LOGF(221, "strides size error! size : %lu", static_cast<unsigned long>(strides.size()));
    return kStatusFailed;
  }
  size_t first = 0;
  size_t second = 0;
  if (!SpatialPositions(format, first, second)) {
    OV_LOGF(236, "dont support dataFormat %s", format.c_str());
    return kStatusFailed;
  }
  (void)opDesc->SetAttr("dilations", PairAttr(dilations, first, second));
  (void)opDesc->SetAttr("strides", PairAttr(strides, first, second));

  if (opDesc->GetType() != "DepthwiseConv2D") {
    opDesc->SetType("Convolution");
    return 0;
  }

  (void)opDesc->DelAttr("groups");
  (void)opDesc->SetAttr("pad_mode", tov::AttrValue::CreateFrom(int64_t{5}));
  const std::vector<tov::TensorPtr> weights = tov::OpDescUtils::MutableWeights(node);
  if (weights.size() != 1) {
    OV_LOGF(247, "node: %s, weightsVec size : %lu", node.ROLE(NodeSpec).Name().c_str(),
            static_cast<unsigned long>(weights.size()));
    return kStatusInputFault;
  }
  const tov::TensorPtr& weight = weights[0];
  if (weight->GetTensorDesc().GetShape().GetDimNum() != 4) {
    OV_LOG(250, "Dim number of size must be 4.");
    return kStatusInputFault;
  }
  tov::Shape shape = weight->MutableTensorDesc().GetShape();
  const int64_t d0 = shape.GetDim(0);
  const int64_t d1 = shape.GetDim(1);
  // An unknown dimension folds into an unknown one. A loaded model's weight cannot overflow
  // here (its element count was checked), but a graph built in memory can.
  int64_t folded = -1;
  if (d0 >= 0 && d1 >= 0 && !tov::CheckedMultiply(d0, d1, folded)) {
    OV_LOGF(251, "node: %s, weight dims %lld x %lld overflow 64 bits",
            node.ROLE(NodeSpec).Name().c_str(), static_cast<long long>(d0),
            static_cast<long long>(d1));
    return kStatusInputFault;
  }
  (void)shape.SetDim(0, folded);
  (void)shape.SetDim(1, 1);
  weight->MutableTensorDesc().SetShape(shape);
  opDesc->SetType("ConvolutionDepthwise");
  return 0;
}

uint32_t OrvaneConv2DParserFunc(tov::Node& node, tov::ComputeGraph& /*graph*/) {
  return ConvParserFunc(node);
}

uint32_t OrvaneDepthwiseConv2DParserFunc(tov::Node& node, tov::ComputeGraph& /*graph*/) {
  return ConvParserFunc(node);
}

// ReduceMeanD -> ReduceMean: the "axes" attribute becomes an INT32 constant input; without
// axes the constant lists every axis of input 0.
uint32_t OrvaneReduceMeanDParserFunc(tov::Node& node, tov::ComputeGraph& /*graph*/) {
  const tov::OpDescPtr opDesc = node.GetOpDesc();
  std::vector<int64_t> axes;
  (void)tov::AttrUtils::GetListInt(opDesc, "axes", axes);
  (void)opDesc->DelAttr("axes");
  opDesc->SetType("ReduceMean");

  const size_t rank = opDesc->GetInputDesc(0).GetShape().GetDimNum();
  if (rank == 0) {
    OV_LOG(294, "dim num is invaild");
    return kStatusFailed;
  }
  const tov::TensorPtr axesTensor = make_shared_nothrow<tov::Tensor>();
  if (axesTensor == nullptr) {
    OV_LOG(298, "axesTensor is nullptr !");
    return kStatusFailed;
  }
  if (axes.empty()) {
    for (size_t i = 0; i < rank; ++i) axes.push_back(static_cast<int64_t>(i));
  }
  if (!SetInt32Data(*axesTensor, axes)) {
    OV_LOG_NULL_PARAM(301, "addr");
    return kStatusInputFault;
  }
  DescribeInt32Constant(*axesTensor, {static_cast<int64_t>(axes.size())});
  AppendConstInputs(node, {axesTensor});
  return 0;
}

// BatchToSpaceD / BatchToSpaceNDD -> BatchToSpaceND: the block shape and the crops become two
// INT32 constant inputs. Everything is read and built before the node changes, so a failure
// leaves the node as it was.
uint32_t BatchToSpaceParserFunc(tov::Node& node, tov::ComputeGraph& /*graph*/) {
  static const std::string OV_ATTR_BLOCK_SHAPE = "block_shape";
  static const std::string OV_ATTR_BLOCK_SIZE = "block_size";
  static const std::string OV_ATTR_CROPS = "crops";

  const tov::OpDescPtr opDesc = node.GetOpDesc();
  std::vector<int64_t> blockShape;
  if (opDesc->GetType() == "BatchToSpaceNDD") {
    if (!tov::AttrUtils::GetListInt(opDesc, OV_ATTR_BLOCK_SHAPE, blockShape)) {
      OV_LOG(444, "get blockShape fail.");
      return kStatusFailed;
    }
  } else {
    int64_t blockSize = 0;
    if (!tov::AttrUtils::GetInt(opDesc, OV_ATTR_BLOCK_SIZE, blockSize)) {
      OV_LOG(448, "get blockSize fail.");
      return kStatusFailed;
    }
    blockShape = {blockSize, blockSize};
  }
  std::vector<int64_t> crops;
  if (!tov::AttrUtils::GetListInt(opDesc, OV_ATTR_CROPS, crops)) {
    OV_LOG(453, "get crops fail.");
    return kStatusFailed;
  }

  const tov::TensorPtr blockShapeTensor = make_shared_nothrow<tov::Tensor>();
  if (blockShapeTensor == nullptr) {
    OV_LOG(455, "blockShapeTensor is nullptr !");
    return kStatusFailed;
  }
  if (!SetInt32Data(*blockShapeTensor, blockShape)) {
    OV_LOG_NULL_PARAM(458, "addr");
    return kStatusInputFault;
  }
  const tov::TensorPtr cropsTensor = make_shared_nothrow<tov::Tensor>();
  if (cropsTensor == nullptr) {
    OV_LOG(466, "cropsTensor is nullptr !");
    return kStatusFailed;
  }
  if (!SetInt32Data(*cropsTensor, crops)) {
    OV_LOG_NULL_PARAM(469, "addr");
    return kStatusInputFault;
  }
  // Two crop amounts per spatial dimension; an odd trailing value stays in the data only.
  DescribeInt32Constant(*blockShapeTensor, {static_cast<int64_t>(blockShape.size())});
  DescribeInt32Constant(*cropsTensor, {static_cast<int64_t>(crops.size() / 2), 2});

  AppendConstInputs(node, {blockShapeTensor, cropsTensor});
  opDesc->SetType("BatchToSpaceND");
  (void)opDesc->DelAttr(OV_ATTR_BLOCK_SHAPE);
  (void)opDesc->DelAttr(OV_ATTR_BLOCK_SIZE);
  (void)opDesc->DelAttr(OV_ATTR_CROPS);
  return 0;
}

uint32_t OrvaneBatchToSpaceDParserFunc(tov::Node& node, tov::ComputeGraph& graph) {
  return BatchToSpaceParserFunc(node, graph);
}

uint32_t OrvaneBatchToSpaceNDDParserFunc(tov::Node& node, tov::ComputeGraph& graph) {
  return BatchToSpaceParserFunc(node, graph);
}

// Concat / ConcatV2 -> ConcatD. The last input is the axis; its constant becomes "concat_dim"
// and the new node keeps only the data inputs:
//
//   x0 ... xk  axis(Const)          x0 ... xk
//     \  |  /  /                      \  |  /
//     Concat          ==>        ConcatD(concat_dim = axis)
//        |                               |
//    consumers                       consumers
uint32_t ConcatParserFunc(tov::Node& node, tov::ComputeGraph& graph) {
  const tov::OpDescPtr opDesc = node.GetOpDesc();
  const size_t inputCount = node.GetAllInDataAnchors().size();
  if (inputCount <= 1) {
    OV_LOG(131, "input size should more than 1");
    return kStatusFailed;
  }
  const size_t dataInputCount = inputCount - 1;
  const std::string& name = node.ROLE(NodeSpec).Name();
  const tov::OpDescPtr newDesc = NewReplacementDesc(name, "ConcatD", dataInputCount);
  if (newDesc == nullptr) {
    OV_LOG(135, "op is nullptr !");
    return kStatusFailed;
  }

  const std::vector<tov::TensorPtr> weights = tov::OpDescUtils::MutableWeights(node);
  if (weights.size() != 1) {
    OV_LOGF(146, "node: %s, weightsVec size : %lu", name.c_str(),
            static_cast<unsigned long>(weights.size()));
    return kStatusInputFault;
  }
  const tov::Tensor& axisTensor = *weights[0];
  const tov::DataType axisType = axisTensor.GetTensorDesc().GetDataType();
  if (axisType != tov::DT_INT32) {
    OV_LOGF(152, "node: %s, data type : %u", name.c_str(), static_cast<unsigned>(axisType));
    return kStatusInputFault;
  }
  // Fewer than four bytes cannot hold the axis; treated like a tensor without data.
  const uint8_t* axisData = axisTensor.GetData().GetData();
  if (axisData == nullptr || axisTensor.GetData().GetSize() < sizeof(int32_t)) {
    OV_LOG_NULL_PARAM(154, "pData");
    return kStatusInputFault;
  }
  int32_t axis = 0;
  std::memcpy(&axis, axisData, sizeof(axis));
  (void)newDesc->SetAttr("concat_dim", tov::AttrValue::CreateFrom(int64_t{axis}));
  int64_t inputNumber = 0;
  if (tov::AttrUtils::GetInt(opDesc, "N", inputNumber)) {
    (void)newDesc->SetAttr("N", tov::AttrValue::CreateFrom(inputNumber));
  }

  const tov::NodePtr newNode = graph.AddNode(newDesc);
  if (newNode == nullptr) {
    OV_LOG(165, "newNode is nullptr");
    return kStatusFailed;
  }
  for (size_t i = 0; i < dataInputCount; ++i) {
    const int index = static_cast<int>(i);
    const tov::InDataAnchorPtr inAnchor = node.GetInDataAnchor(index);
    const tov::OutDataAnchorPtr producer =
        inAnchor == nullptr ? nullptr : inAnchor->GetPeerOutAnchor();
    if (producer == nullptr) {
      OV_LOG(169, "peerDataAnchor is nullptr");
      return kStatusFailed;
    }
    const tov::InDataAnchorPtr newInAnchor = newNode->GetInDataAnchor(index);
    if (newInAnchor == nullptr) {
      OV_LOG(171, "newInDataAnchor is nullptr");
      return kStatusFailed;
    }
    if (tov::GraphUtils::AddEdge(producer, newInAnchor) != tov::GRAPH_SUCCESS) {
      OV_LOG(173, "add edge failed");
      return kStatusFailed;
    }
  }

  const tov::OutDataAnchorPtr outAnchor = node.GetOutDataAnchor(0);
  if (outAnchor == nullptr) {
    OV_LOG(178, "outDataAnchor is nullptr");
    return kStatusFailed;
  }
  const ConsumerList consumers = outAnchor->GetPeerInDataAnchors();
  const tov::OutDataAnchorPtr newOutAnchor = newNode->GetOutDataAnchor(0);
  if (newOutAnchor == nullptr) {
    OV_LOG(182, "newOutDataAnchor is nullptr");
    return kStatusFailed;
  }
  if (!MoveConsumers(consumers, outAnchor, newOutAnchor)) {
    OV_LOG(187, "add edge failed");
    return kStatusFailed;
  }
  // The producers' edges into the source node, the axis constant's included, go with it.
  if (graph.RemoveNode(node) != tov::GRAPH_SUCCESS) {
    OV_LOG(192, "remove netoutput node failed.");
    return kStatusFailed;
  }
  return 0;
}

uint32_t OrvaneConcatParserFunc(tov::Node& node, tov::ComputeGraph& graph) {
  return ConcatParserFunc(node, graph);
}

uint32_t OrvaneConcatV2ParserFunc(tov::Node& node, tov::ComputeGraph& graph) {
  return ConcatParserFunc(node, graph);
}

// BatchNorm / BatchNormExt2 -> BNInference, in inference mode only. The new node takes over
// the data input, the four weights and the consumers of output 0:
//
//   x  mean var scale offset          x  mean var scale offset
//    \   \   |   /   /                 \   \   |   /   /
//       BatchNorm           ==>           BNInference
//           |                                  |
//       consumers                          consumers
uint32_t BatchNormParserFunc(tov::Node& node, tov::ComputeGraph& graph) {
  const tov::OpDescPtr opDesc = node.GetOpDesc();
  if (tov::OpDescUtils::GetNonConstInputsSize(node) != 1 ||
      tov::OpDescUtils::GetConstInputs(node).size() != 4) {
    OV_LOG(66, "BatchNorm should have 1 non const input and 4 weights");
    return kStatusInputFault;
  }
  const std::vector<tov::TensorPtr> weights = tov::OpDescUtils::MutableWeights(node);
  bool isTraining = false;
  (void)tov::AttrUtils::GetBool(opDesc, "is_training", isTraining);
  if (isTraining) {
    OV_LOG(73, "only support is_training as false");
    return kStatusFailed;
  }
  float epsilon = 0.0001f;
  (void)tov::AttrUtils::GetFloat(opDesc, "epsilon", epsilon);

  const tov::OpDescPtr newDesc = NewReplacementDesc(node.ROLE(NodeSpec).Name(), "BNInference", 1);
  if (newDesc == nullptr) {
    OV_LOG(79, "op is nullptr !");
    return kStatusFailed;
  }
  (void)newDesc->SetAttr("epsilon", tov::AttrValue::CreateFrom(epsilon));
  (void)newDesc->SetAttr("momentum", tov::AttrValue::CreateFrom(0.9f));
  (void)newDesc->SetAttr("mode", tov::AttrValue::CreateFrom(int64_t{1}));
  (void)newDesc->SetAttr("use_global_stats", tov::AttrValue::CreateFrom(true));
  newDesc->SetIsInputConst(opDesc->GetIsInputConst());

  const tov::NodePtr newNode = graph.AddNode(newDesc);
  if (newNode == nullptr) {
    OV_LOG(91, "newNode is nullptr");
    return kStatusFailed;
  }
  (void)tov::OpDescUtils::SetWeights(*newNode, weights);

  // Every anchor is fetched before any edge changes.
  const tov::InDataAnchorPtr inAnchor = node.GetInDataAnchor(0);
  if (inAnchor == nullptr) {
    OV_LOG(94, "inDataAnchor is nullptr");
    return kStatusFailed;
  }
  const tov::OutDataAnchorPtr outAnchor = node.GetOutDataAnchor(0);
  if (outAnchor == nullptr) {
    OV_LOG(97, "outDataAnchor is nullptr");
    return kStatusFailed;
  }
  const tov::OutDataAnchorPtr newOutAnchor = newNode->GetOutDataAnchor(0);
  if (newOutAnchor == nullptr) {
    OV_LOG(100, "newOutDataAnchor is nullptr");
    return kStatusFailed;
  }
  const tov::InDataAnchorPtr newInAnchor = newNode->GetInDataAnchor(0);
  if (newInAnchor == nullptr) {
    OV_LOG(103, "newInDataAnchor is nullptr");
    return kStatusFailed;
  }
  const tov::OutDataAnchorPtr producer = inAnchor->GetPeerOutAnchor();
  if (producer == nullptr) {
    OV_LOG(106, "peerDataAnchor is nullptr");
    return kStatusFailed;
  }
  if (tov::GraphUtils::AddEdge(producer, newInAnchor) != tov::GRAPH_SUCCESS) {
    OV_LOG(109, "add edge failed");
    return kStatusFailed;
  }
  if (!MoveConsumers(outAnchor->GetPeerInDataAnchors(), outAnchor, newOutAnchor)) {
    OV_LOG(116, "add edge failed");
    return kStatusFailed;
  }
  // The producer's edge and the weight edges into the source node go with it.
  if (graph.RemoveNode(node) != tov::GRAPH_SUCCESS) {
    OV_LOG(122, "remove netoutput node failed.");
    return kStatusFailed;
  }
  return 0;
}

uint32_t OrvaneBatchNormParserFunc(tov::Node& node, tov::ComputeGraph& graph) {
  return BatchNormParserFunc(node, graph);
}

uint32_t OrvaneBatchNormExt2ParserFunc(tov::Node& node, tov::ComputeGraph& graph) {
  return BatchNormParserFunc(node, graph);
}

namespace {

// Registers one converter while the library loads; a refused registration is not an error
// here, since every key below is distinct.
struct ConverterRegistration {
  ConverterRegistration(const char* opType, uint32_t (*func)(tov::Node&, tov::ComputeGraph&)) {
    (void)RegisterOpParser(opType, func);
  }
};

// Definition order is registration order.
const ConverterRegistration g_batchNormRegistration("BatchNorm", OrvaneBatchNormParserFunc);
const ConverterRegistration g_batchNormExt2Registration("BatchNormExt2",
                                                        OrvaneBatchNormExt2ParserFunc);
const ConverterRegistration g_concatRegistration("Concat", OrvaneConcatParserFunc);
const ConverterRegistration g_concatV2Registration("ConcatV2", OrvaneConcatV2ParserFunc);
const ConverterRegistration g_reduceMeanDRegistration("ReduceMeanD", OrvaneReduceMeanDParserFunc);
const ConverterRegistration g_reluRegistration("Relu", OrvaneReluParserFunc);
const ConverterRegistration g_absRegistration("Abs", OrvaneAbsParserFunc);
const ConverterRegistration g_conv2DRegistration("Conv2D", OrvaneConv2DParserFunc);
const ConverterRegistration g_depthwiseConv2DRegistration("DepthwiseConv2D",
                                                          OrvaneDepthwiseConv2DParserFunc);
const ConverterRegistration g_maxPoolRegistration("MaxPool", OrvaneMaxPoolParserFunc);
const ConverterRegistration g_batchToSpaceDRegistration("BatchToSpaceD",
                                                        OrvaneBatchToSpaceDParserFunc);
const ConverterRegistration g_batchToSpaceNDDRegistration("BatchToSpaceNDD",
                                                          OrvaneBatchToSpaceNDDParserFunc);

}  // namespace
}  // namespace tesu
