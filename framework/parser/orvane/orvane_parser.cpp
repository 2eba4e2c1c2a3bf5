// The Orvane model parser: registration with the host, the parse driver, the JSON dump, the
// translation tables and the graph passes that run before and around the per-operator converters.
#include "orvane_parser.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <nlohmann/json.hpp>

#include "framework/pre_checker.h"
#include "framework/profiler.h"
#include "framework/proto_io.h"
#include "graph/attr_utils.h"
#include "graph/compute_graph.h"
#include "graph/graph.h"
#include "graph/model.h"
#include "graph/node.h"
#include "graph/op_desc.h"
#include "graph/proto/model.pb.h"
#include "graph/shape.h"
#include "graph/tensor_desc.h"
#include "log/log.h"
#include "orvane_util.h"

// Every message names this source, the function and a fixed line number that support staff
// search for, so the numbers are constants rather than __LINE__.
#define OV_LOG(module, text, ...) \
  AI_Log_Print(AI_LOG_ERROR, module, "%s %s(%d)::" text, "orvane_parser", __VA_ARGS__)
// A named handle that is null; the caller returns FAILED.
#define OV_LOG_NULL(func, line, name) \
  OV_LOG("AI_INFRA", "\"" name "\" \"null, return FAIL.\"", func, line)
// A condition that does not hold; the caller returns FAILED.
#define OV_LOG_FALSE(func, line, expr) \
  OV_LOG("AI_INFRA", "\"" expr "\" \"false, return FAIL.\"", func, line)

namespace tesu {
namespace op {
namespace ReduceMean {
constexpr char keep_dims[] = "keep_dims";
}  // namespace ReduceMean
}  // namespace op

namespace {

// The tables are built in this order, before the registrar below: dynamic initialisation runs
// in order of definition within this file, so a creator is never registered before the tables
// it relies on exist.

// Source operator type -> host operator type. Keys are the supported source types.
const std::map<std::string, std::string> ORVANE_OP_MAP = {
    {"Abs", "Activation"},
    {"Acos", "Acos"},
    {"Add", "Add"},
    {"BatchNorm", "BNInference"},
    {"BatchNormExt2", "BNInference"},
    {"BatchMatMul", "BatchMatMul"},
    {"BatchToSpaceND", "BatchToSpaceND"},
    {"BatchToSpaceD", "BatchToSpaceND"},
    {"BatchToSpaceNDD", "BatchToSpaceND"},
    {"BiasAdd", "BiasAdd"},
    {"Cast", "CastT"},
    {"Const", "Const"},
    {"Concat", "ConcatD"},
    {"ConcatV2", "ConcatD"},
    {"ConcatD", "ConcatD"},
    {"ConcatV2D", "ConcatD"},
    {"Conv2D", "Convolution"},
    {"Cos", "Cos"},
    {"Data", "Data"},
    {"DepthwiseConv2D", "ConvolutionDepthwise"},
    {"Eltwise", "Eltwise"},
    {"Equal", "Equal"},
    {"Exp", "Exp"},
    {"ExpandDims", "ExpandDims"},
    {"Flatten", "Flatten"},
    {"FlattenV2", "FlattenV2"},
    {"Floor", "Floor"},
    {"FloorDiv", "FloorDiv"},
    {"GatherNd", "GatherNd"},
    {"MatMul", "MatMul"},
    {"MaxPool", "PoolingD"},
    {"Pooling", "PoolingD"},
    {"ReduceMean", "ReduceMean"},
    {"ReduceMeanD", "ReduceMean"},
    {"Relu", "Activation"},
    {"Reshape", "Reshape"},
    {"Squeeze", "Squeeze"},
};

// Source operator type -> (source attribute name -> host attribute name).
const std::map<std::string, std::map<std::string, std::string>> ATTR_CONVERT_MAP = {
    {"MatMul", {{"transpose_a", "transpose_x1"}, {"transpose_b", "transpose_x2"}}},
    {"BatchMatMul", {{"adj_x", "adj_x1"}, {"adj_y", "adj_x2"}}},
    {"Cast", {{"dst_type", "dst_dtype"}}},
};

// Source operator type -> attributes the host does not understand and that are dropped.
const std::map<std::string, std::vector<std::string>> USELESS_ATTR_MAP = {
    {"ConcatD", {"__dynamic_input_x_cnt"}},
};

class OrvaneParserRegistrar {
 public:
  OrvaneParserRegistrar() {
    // Reads the host's model format; a refusal (slot taken) leaves the host's choice in place.
    (void)ModelParserFactory::Instance()->RegisterCreator(
        FRAMEWORK_ORVANE, Creator_ORVANE_Model_Parser, "Orvane", ModelInput::kHostModel);
  }
};

const OrvaneParserRegistrar g_ORVANE_Model_Parser_Creator;

constexpr char kDataType[] = "Data";
constexpr char kReduceMeanDType[] = "ReduceMeanD";
constexpr char kReshapeType[] = "Reshape";
constexpr char kVersionAttr[] = "version";
constexpr int64_t kVersion = 5;
constexpr char kInferredFormatAttr[] = "inferred_format";
constexpr tov::Format kDefaultInputFormat = tov::FORMAT_NCHW;

// Attributes the source framework keeps for its own bookkeeping; deleted in this order.
constexpr const char* kBookkeepingAttrs[] = {
    "_output_name_key",    "_output_name_value", "_input_name_idx_value",
    "_input_name_idx_key", "_opt_input",         "_opt_output",
};

// ---------------------------------------------------------------------------------------------
// Operator support check

// Records every node with the host's pre-checker so that one report lists all unsupported
// nodes. The report is saved when something failed, or on request.
Status CheckNodeSupport(const ParserOptions& options, tov::ComputeGraph& graph) {
  PreChecker checker("", ORVANE_OP_MAP);
  const Status walkStatus = graph.ROLE(GraphListWalker).WalkAllNodes([&checker](tov::Node& node) {
    const tov::NodeSpec& spec = node.ROLE(NodeSpec);
    return checker.Check(&node, spec.Name(), spec.Type());
  });
  if (walkStatus != SUCCESS) {
    return walkStatus;
  }
  const bool hasError = checker.HasError();
  if (!hasError && !options.saveCheckReport) {
    return SUCCESS;
  }
  const Status saveStatus = checker.Save(options.checkReportPath);
  if (saveStatus != SUCCESS) {
    return saveStatus;
  }
  return hasError ? FAILED : SUCCESS;
}

// ---------------------------------------------------------------------------------------------
// ReduceMean-Reshape fusion
//
//   x -> ReduceMeanD(axes, keep_dims=true) -> Reshape(drops the kept dims) -> y
// becomes
//   x -> ReduceMeanD(axes, keep_dims=false) -> y
//
// A pattern that does not hold is "no match", never a failure.

bool CheckIsReduceMeanReshapePattern(const tov::Node& reduceMeanNode) {
  const tov::NodeSpec& reduceMeanNodeSpec = reduceMeanNode.ROLE(NodeSpec);
  if (reduceMeanNodeSpec.Type() != kReduceMeanDType || reduceMeanNodeSpec.OutEdgeSize() != 1) {
    return false;
  }
  bool keepDims = false;
  if (!tov::AttrUtils::GetBool(reduceMeanNodeSpec.OpDesc(), op::ReduceMean::keep_dims, keepDims)) {
    OV_LOG_FALSE("CheckIsReduceMeanReshapePattern", 121,
                 "tov::AttrUtils::GetBool(reduceMeanNodeSpec.OpDesc(), "
                 "tesu::op::ReduceMean::keep_dims, keepDims)");
    return false;
  }
  if (!keepDims) {
    return false;
  }
  const tov::Node* nextNode = reduceMeanNode.ROLE(NodeWalker).OutDataNode(0, 0);
  if (nextNode == nullptr) {
    OV_LOG_NULL("CheckIsReduceMeanReshapePattern", 127, "nextNode");
    return false;
  }
  return nextNode->ROLE(NodeSpec).Type() == kReshapeType;
}

// True when the Reshape's output is exactly the ReduceMeanD input with the reduced axes dropped.
bool CheckReduceMeanAndReshapeShape(const tov::Node& reduceMeanNode) {
  const tov::OpDesc& opDesc = reduceMeanNode.ROLE(NodeSpec).OpDesc();
  std::vector<int64_t> axes;
  if (!tov::AttrUtils::GetListInt(opDesc, "axes", axes)) {
    OV_LOG_FALSE("CheckReduceMeanAndReshapeShape", 138,
                 "tov::AttrUtils::GetListInt(opDesc, \\\"axes\\\", axes)");
    return false;
  }
  if (axes.empty()) {
    return false;
  }
  // Axes are matched against the indices as written: a negative axis removes nothing and a
  // repeated axis removes its dimension once.
  const tov::Shape& inputShape = opDesc.GetInputDesc(0).GetShape();
  std::vector<int64_t> expectedDims;
  for (size_t i = 0; i < inputShape.GetDimNum(); ++i) {
    if (std::find(axes.begin(), axes.end(), static_cast<int64_t>(i)) == axes.end()) {
      expectedDims.push_back(inputShape.GetDim(i));
    }
  }
  const tov::Node* reshapeNode = reduceMeanNode.ROLE(NodeWalker).OutDataNode(0, 0);
  if (reshapeNode == nullptr) {
    OV_LOG_NULL("CheckReduceMeanAndReshapeShape", 155, "reshapeNode");
    return false;
  }
  return tov::Shape(expectedDims) ==
         reshapeNode->ROLE(NodeSpec).OpDesc().GetOutputDesc(0).GetShape();
}

Status RemoveReshapeNode(tov::Node& reduceMeanNode, tov::ComputeGraph& graph) {
  tov::Node* reshapeNode = reduceMeanNode.ROLE(NodeWalker).OutDataNode(0, 0);
  if (reshapeNode == nullptr) {
    OV_LOG_NULL("RemoveReshapeNode", 170, "reshapeNode");
    return FAILED;
  }
  // Drop the shape input first so that the Reshape has the single data input a bypass needs.
  Status ret = reshapeNode->ROLE(NodeCompatibler).RemoveSpecificInput(1);
  if (ret != SUCCESS) {
    return ret;
  }
  ret = graph.ROLE(GraphBypasser).ByPassNode(*reshapeNode);
  if (ret != SUCCESS) {
    return ret;
  }
  if (!tov::AttrUtils::SetBool(reduceMeanNode.ROLE(NodeSpec).OpDesc(), op::ReduceMean::keep_dims,
                               false)) {
    OV_LOG_FALSE("RemoveReshapeNode", 174,
                 "tov::AttrUtils::SetBool(reduceMeanNode.ROLE(NodeSpec).OpDesc(), "
                 "tesu::op::ReduceMean::keep_dims, false)");
    return FAILED;
  }
  return SUCCESS;
}

Status FusionReduceMeanAndReshape(tov::ComputeGraph& graph) {
  return graph.ROLE(GraphListWalker)
      .WalkAllNodesModifiable(
          [](tov::Node& node) {
            return CheckIsReduceMeanReshapePattern(node) && CheckReduceMeanAndReshapeShape(node);
          },
          [&graph](tov::Node& node) { return RemoveReshapeNode(node, graph); });
}

// ---------------------------------------------------------------------------------------------
// Data node conversion

bool CheckIsDataTypeSupport(const std::string& nodeName, tov::DataType dataType) {
  static constexpr tov::DataType kAccepted[] = {
      tov::DT_FLOAT, tov::DT_DOUBLE, tov::DT_FLOAT16, tov::DT_INT64, tov::DT_INT32,
      tov::DT_INT16, tov::DT_INT8,   tov::DT_UINT32,  tov::DT_BOOL,  tov::DT_UINT8,
  };
  if (std::find(std::begin(kAccepted), std::end(kAccepted), dataType) != std::end(kAccepted)) {
    return true;
  }
  OV_LOG("AI_FMK",
         "\"input tensor type of %s should be DOUBLE or FLOAT or FLOAT16 or INT64 or INT32 or "
         "INT16 or INT8 or \" \"UINT32 or BOOL or UINT8\"",
         "CheckIsDataTypeSupport", 259, nodeName.c_str());
  return false;
}

// A designated shape always wins; otherwise the model's shape must have at least one dimension.
Status SetDataNodeInputShape(const std::string& nodeName, tov::TensorDesc& tensorDesc,
                             const std::unordered_map<std::string, std::vector<int64_t>>& shapes) {
  const auto designated = shapes.find(nodeName);
  if (designated != shapes.end()) {
    tensorDesc.SetShape(tov::Shape(designated->second));
    return SUCCESS;
  }
  if (tensorDesc.GetShape().GetDimNum() > 0) {
    return SUCCESS;
  }
  OV_LOG("AI_FMK",
         "\"parse data node %s shape has no dim, not supported. you should designate \" "
         "\"dim by '--input_shape=xxx:x,x,x,x'\"",
         "SetDataNodeInputShape", 293, nodeName.c_str());
  return FAILED;
}

// The model's own data type is checked; a designated one replaces it unchecked, since the user
// asked for it explicitly.
Status SetDataNodeInputTypeAndShape(const ParserOptions& options, const std::string& nodeName,
                                    tov::TensorDesc& tensorDesc) {
  if (!CheckIsDataTypeSupport(nodeName, tensorDesc.GetDataType())) {
    OV_LOG_FALSE("SetDataNodeInputTypeAndShape", 302,
                 "CheckIsDataTypeSupport(nodeName, tensorDesc.GetDataType())");
    return FAILED;
  }
  const auto designatedType = options.inputDataTypes.find(nodeName);
  if (designatedType != options.inputDataTypes.end()) {
    tensorDesc.SetDataType(designatedType->second.first);
  }
  const auto designatedFormat = options.inputFormats.find(nodeName);
  if (designatedFormat != options.inputFormats.end()) {
    tensorDesc.SetFormat(designatedFormat->second);
  }
  return SetDataNodeInputShape(nodeName, tensorDesc, options.inputShapes);
}

Status ConvertDataNode(const ParserOptions& options, tov::Node& node) {
  tov::OpDesc& opDesc = node.ROLE(NodeSpec).OpDesc();
  const std::shared_ptr<tov::TensorDesc> inputDesc = opDesc.MutableInputDesc(0);
  if (inputDesc == nullptr) {
    OV_LOG_NULL("ConvertDataNode", 327, "inputDesc");
    return FAILED;
  }
  const std::string& nodeName = node.ROLE(NodeSpec).Name();
  if (SetDataNodeInputTypeAndShape(options, nodeName, *inputDesc) != SUCCESS) {
    return FAILED;
  }
  (void)tov::TensorUtils::SetReuseInput(*inputDesc, false);
  // A format the user designated for this input is kept; every other input gets the default.
  if (options.inputFormats.find(nodeName) == options.inputFormats.end()) {
    inputDesc->SetFormat(kDefaultInputFormat);
  }
  return opDesc.UpdateOutputDesc(0, *inputDesc);
}

// ---------------------------------------------------------------------------------------------
// Node conversion

// What the conversion pass does with every node of one source type, looked up once per type
// rather than in four tables per node.
struct TypePlan {
  const OrvaneOpParserFunc* converter = nullptr;  // the operator's own converter, if any
  const std::string* hostType = nullptr;          // the plain rename; null for unknown types
  const std::map<std::string, std::string>* renames = nullptr;
  const std::vector<std::string>* useless = nullptr;
};

template <typename Table>
const typename Table::mapped_type* Lookup(const Table& table, const std::string& key) {
  const auto found = table.find(key);
  return found == table.end() ? nullptr : &found->second;
}

// The plans of the types seen so far in one pass.
class TypePlans {
 public:
  const TypePlan& For(const std::string& opType) {
    const auto found = plans_.find(opType);
    if (found != plans_.end()) {
      return found->second;
    }
    TypePlan plan;
    plan.converter = Lookup(GetParserFuncMap(), opType);
    plan.hostType = Lookup(ORVANE_OP_MAP, opType);
    plan.renames = Lookup(ATTR_CONVERT_MAP, opType);
    plan.useless = Lookup(USELESS_ATTR_MAP, opType);
    return plans_.emplace(opType, plan).first->second;
  }

 private:
  std::unordered_map<std::string, TypePlan> plans_;
};

// Moves attributes to their host names. A missing source attribute is skipped.
Status TranslateAttrNames(tov::OpDesc& opDesc, const TypePlan& plan) {
  if (plan.renames == nullptr) {
    return SUCCESS;
  }
  for (const auto& rename : *plan.renames) {
    tov::AttrValue value;
    if (opDesc.GetAttr(rename.first, value) != SUCCESS) {
      continue;
    }
    Status ret = opDesc.SetAttr(rename.second, value);
    if (ret != SUCCESS) {
      return ret;
    }
    ret = opDesc.DelAttr(rename.first);
    if (ret != SUCCESS) {
      return ret;
    }
  }
  return SUCCESS;
}

void DeleteUnusedAttrs(tov::OpDesc& opDesc, const TypePlan& plan) {
  // Every bookkeeping name starts with '_'; most nodes have no such attribute, so one look at
  // the names spares a search per bookkeeping name.
  bool mayHaveBookkeeping = false;
  for (const auto& attr : opDesc.GetAllAttrs()) {
    if (!attr.first.empty() && attr.first[0] == '_') {
      mayHaveBookkeeping = true;
      break;
    }
  }
  if (mayHaveBookkeeping) {
    for (const char* name : kBookkeepingAttrs) {
      (void)opDesc.DelAttr(name);
    }
  }
  if (plan.useless != nullptr) {
    for (const std::string& name : *plan.useless) {
      (void)opDesc.DelAttr(name);
    }
  }
}

// Converts one node: graph inputs first, then the common attribute clean-up, then either the
// operator's own converter or a plain change of type.
Status ConvertNode(const ParserOptions& options, tov::ComputeGraph& graph, tov::Node& node,
                   TypePlans& plans) {
  // Taken before anything changes: the converter may replace the node, and the type changes at
  // the last step.
  const TypePlan& plan = plans.For(node.ROLE(NodeSpec).Type());
  if (node.ROLE(NodeSpec).Type() == kDataType) {
    const Status ret = ConvertDataNode(options, node);
    if (ret != SUCCESS) {
      return ret;
    }
  }
  tov::OpDesc& opDesc = node.ROLE(NodeSpec).OpDesc();
  static const tov::AttrName versionName = tov::AttrName::Intern(kVersionAttr);
  (void)opDesc.SetAttr(versionName, tov::AttrValue::CreateFrom(kVersion));
  const Status ret = TranslateAttrNames(opDesc, plan);
  if (ret != SUCCESS) {
    return ret;
  }
  DeleteUnusedAttrs(opDesc, plan);

  if (plan.converter != nullptr) {
    return (*plan.converter)(node, graph);
  }
  // The support check refuses unknown types before this pass runs, so one arriving here is our
  // own fault: report it rather than hand the host a node it cannot know.
  if (plan.hostType == nullptr) {
    OV_LOG_FALSE("ConvertNodesAttrInfo", 542, "ORVANE_OP_MAP.find(opType) != ORVANE_OP_MAP.end()");
    return FAILED;
  }
  opDesc.SetType(*plan.hostType);
  return SUCCESS;
}

Status ConvertNodesAttrInfo(const ParserOptions& options, tov::ComputeGraph& graph) {
  TypePlans plans;
  return graph.ROLE(GraphListWalker)
      .WalkAllNodesModifiable([](tov::Node&) { return true; },
                              [&options, &graph, &plans](tov::Node& node) {
                                return ConvertNode(options, graph, node, plans);
                              });
}

// ---------------------------------------------------------------------------------------------
// Output format marking

// Only the NC1HWC0 request is passed on; every other format leaves the output at the default.
void SetNodeInferredFormat(tov::OpDesc& opDesc, uint64_t outputIndex,
                           const std::vector<TrelTensorFormat>& outputFormats) {
  const bool wantsNc1hwc0 =
      outputIndex < outputFormats.size() && outputFormats[outputIndex] == TREL_FORMAT_NC1HWC0;
  const int64_t format = wantsNc1hwc0 ? TREL_FORMAT_NC1HWC0 : TREL_FORMAT_NCHW;
  (void)tov::AttrUtils::SetInt(opDesc, kInferredFormatAttr, format);
}

// Numbers the graph outputs in walk order: terminal nodes when the user named no outputs,
// otherwise each designated (node, output index) pair.
Status SetOutputNodeInferredFormat(const ParserOptions& options, tov::ComputeGraph& graph) {
  uint64_t outputIndex = 0;
  return graph.ROLE(GraphListWalker).WalkAllNodes([&options, &outputIndex](tov::Node& node) {
    const tov::NodeSpec& spec = node.ROLE(NodeSpec);
    tov::OpDesc& opDesc = spec.OpDesc();
    if (options.outputNodes.empty()) {
      // Outputs first: most nodes have consumers, and a node has fewer outputs than inputs.
      if (spec.OutDataEdgeSize() == 0 && spec.InDataEdgeSize() > 0) {
        SetNodeInferredFormat(opDesc, outputIndex++, options.outputFormats);
      }
      return SUCCESS;
    }
    const auto designated = options.outputNodes.find(spec.Name());
    if (designated == options.outputNodes.end()) {
      return SUCCESS;
    }
    const std::vector<int32_t>& indices = designated->second;
    for (size_t i = 0; i < opDesc.GetOutputsSize(); ++i) {
      if (std::find(indices.begin(), indices.end(), static_cast<int32_t>(i)) != indices.end()) {
        SetNodeInferredFormat(opDesc, outputIndex++, options.outputFormats);
      }
    }
    return SUCCESS;
  });
}

}  // namespace

std::shared_ptr<ModelParser> Creator_ORVANE_Model_Parser() {
  return make_shared_nothrow<OrvaneModelParser>();
}

const std::map<std::string, std::string>& SupportedOperatorTable() {
  return ORVANE_OP_MAP;
}

// Runs one step of the parse, timed for --profile.
template <typename Step>
Status TimedStep(const char* name, Step step) {
  ProfileScope scope(name);
  return step();
}

Status OrvaneModelParser::ParseFromMemory(ParserOptions& options,
                                          std::vector<tov::BaseBuffer>& modelBuffer,
                                          tov::Graph& graph) {
  if (!(modelBuffer.size() == 1 && modelBuffer[0].data() != nullptr)) {
    OV_LOG_FALSE("ParseFromMemory", 444,
                 "modelBuffer.size() == 1 && modelBuffer[0].data() != nullptr");
    return FAILED;
  }
  tov::Model model;
  Status ret = TimedStep("load model", [&] {
    return model.Load(modelBuffer[0].data(), static_cast<size_t>(modelBuffer[0].size()));
  });
  if (ret != SUCCESS) {
    return ret;
  }
  const std::shared_ptr<tov::ComputeGraph> ovComputeGraph =
      tov::GraphUtils::GetComputeGraph(model.GetGraph());
  if (ovComputeGraph == nullptr) {
    OV_LOG_NULL("ParseFromMemory", 450, "ovComputeGraph");
    return FAILED;
  }

  // Each pass sees the graph as the previous one left it: the fusion still sees source types,
  // the output marking sees converted nodes. The first failing pass ends the parse.
  tov::ComputeGraph& computeGraph = *ovComputeGraph;
  ret = TimedStep("support check", [&] { return CheckNodeSupport(options, computeGraph); });
  if (ret == SUCCESS) {
    ret = TimedStep("ReduceMean-Reshape fusion",
                    [&] { return FusionReduceMeanAndReshape(computeGraph); });
  }
  if (ret == SUCCESS) {
    ret = TimedStep("node conversion", [&] { return ConvertNodesAttrInfo(options, computeGraph); });
  }
  if (ret == SUCCESS) {
    ret = TimedStep("output formats",
                    [&] { return SetOutputNodeInferredFormat(options, computeGraph); });
  }
  if (ret != SUCCESS) {
    return ret;
  }
  graph = tov::GraphUtils::CreateGraphFromComputeGraph(ovComputeGraph);
  return SUCCESS;
}

Status OrvaneModelParser::ToJson(const char* modelFile, const char* jsonFile) {
  if (modelFile == nullptr) {
    OV_LOG_NULL("ToJson", 459, "modelFile");
    return FAILED;
  }
  if (jsonFile == nullptr) {
    OV_LOG_NULL("ToJson", 460, "jsonFile");
    return FAILED;
  }
  proto::ModelDef modelProto;
  if (!ReadProtoFromBinaryFile(modelFile, &modelProto)) {
    OV_LOG_FALSE("ToJson", 463, "ReadProtoFromBinaryFile(modelFile, &ModelProto)");
    return FAILED;
  }
  nlohmann::json json;
  // Tensor bytes would swamp the dump; everything else is written.
  const std::set<std::string> excludedFields{"data"};
  Pb2Json::Message2Json(modelProto, excludedFields, json, false);
  return ModelSaver::SaveJsonToFile(jsonFile, json);
}

}  // namespace tesu
