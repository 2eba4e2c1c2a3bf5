// A parser plug-in for a toy text format, "chain": one layer a line, each fed by the layer
// before it. It registers itself for framework type 7 when the host loads it and builds the
// host graph directly, one node a layer, in the host operator set.
#include <cstdint>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <tesu/framework/model_parser.h>
#include <tesu/graph/attr_utils.h>
#include <tesu/graph/compute_graph.h>
#include <tesu/graph/graph.h>
#include <tesu/graph/op_desc.h>
#include <tesu/log/log.h>

namespace {

constexpr auto kChainFramework = static_cast<tesu::FrameworkType>(7);
constexpr const char* kModule = "CHAIN";

// Layer kind -> host operator type, and the activation mode it needs (-1: none).
struct HostOp {
  const char* type;
  int64_t mode;
};
const std::map<std::string, HostOp> kLayers = {
    {"relu", {"Activation", 1}}, {"sigmoid", {"Activation", 0}}, {"abs", {"Activation", 6}},
    {"exp", {"Exp", -1}},        {"floor", {"Floor", -1}},
};

tesu::Status Fail(int line, const std::string& message) {
  AI_Log_Print(AI_LOG_ERROR, kModule, "line %d: %s", line, message.c_str());
  return tesu::FAILED;
}

// "1,3,8,8" -> {1, 3, 8, 8}; -1 is an unknown dimension.
bool ParseShape(const std::string& text, std::vector<int64_t>& dims) {
  std::istringstream in(text);
  std::string part;
  while (std::getline(in, part, ',')) {
    try {
      size_t used = 0;
      dims.push_back(std::stoll(part, &used));
      if (used != part.size() || dims.back() < -1) return false;
    } catch (const std::exception&) {
      return false;
    }
  }
  return !dims.empty();
}

class ChainParser : public tesu::ModelParser {
 public:
  tesu::Status ParseFromMemory(tesu::ParserOptions& options,
                               std::vector<tov::BaseBuffer>& modelBuffer,
                               tov::Graph& graph) override {
    if (modelBuffer.size() != 1 || modelBuffer[0].data() == nullptr) {
      return Fail(0, "expected one model buffer");
    }
    std::istringstream in(
        std::string(reinterpret_cast<const char*>(modelBuffer[0].data()), modelBuffer[0].size()));
    auto computeGraph = std::make_shared<tov::ComputeGraph>("chain");
    tov::NodePtr previous;
    tov::TensorDesc tensor;
    std::string text;
    for (int line = 1; std::getline(in, text); ++line) {
      std::istringstream fields(text.substr(0, text.find('#')));
      std::string name;
      std::string kind;
      if (!(fields >> name)) continue;  // blank or comment
      if (!(fields >> kind)) return Fail(line, "layer " + name + " has no kind");
      if (computeGraph->FindNode(name) != nullptr) return Fail(line, "layer " + name + " twice");

      tov::OpDescPtr op;
      if (previous == nullptr) {
        std::string shapeText;
        std::vector<int64_t> dims;
        if (kind != "input" || !(fields >> shapeText) || !ParseShape(shapeText, dims)) {
          return Fail(line, "the first layer must be \"NAME input D1,D2,...\"");
        }
        // --input_shape overrides the shape written in the file.
        const auto designated = options.inputShapes.find(name);
        if (designated != options.inputShapes.end()) dims = designated->second;
        tensor = tov::TensorDesc(tov::Shape(dims));
        op = std::make_shared<tov::OpDesc>(name, "Data");
      } else {
        const auto layer = kLayers.find(kind);
        if (layer == kLayers.end()) return Fail(line, "unknown layer kind " + kind);
        op = std::make_shared<tov::OpDesc>(name, layer->second.type);
        if (layer->second.mode >= 0) tov::AttrUtils::SetInt(op, "mode", layer->second.mode);
      }
      // Every layer keeps the shape of its input.
      op->AddInputDesc(tensor);
      op->AddOutputDesc(tensor);
      const tov::NodePtr node = computeGraph->AddNode(op);
      if (previous != nullptr &&
          tov::GraphUtils::AddEdge(previous->GetOutDataAnchor(0), node->GetInDataAnchor(0)) !=
              tov::GRAPH_SUCCESS) {
        return Fail(line, "cannot connect layer " + name);
      }
      previous = node;
    }
    if (previous == nullptr) return Fail(0, "the model has no layers");
    graph = tov::GraphUtils::CreateGraphFromComputeGraph(computeGraph);
    return tesu::SUCCESS;
  }

  tesu::Status ToJson(const char* /*modelFile*/, const char* /*jsonFile*/) override {
    return Fail(0, "a chain model has no JSON form");
  }
};

// Runs when the host loads the library: one creator for framework type 7, with the name that
// users see in tesu-convert --list-frameworks, reading chain files of its own format as they are.
const bool kRegistered = tesu::ModelParserFactory::Instance()->RegisterCreator(
    kChainFramework, [] { return std::make_shared<ChainParser>(); }, "Chain",
    tesu::ModelInput::kOwnFormat);

}  // namespace
