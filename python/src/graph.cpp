// Graph, Node and TensorDesc: read-only views of a converted (or loaded) graph.
#include <pybind11/stl.h>

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include "framework/proto_io.h"
#include "graph/dot_writer.h"
#include "graph/op_desc_utils.h"
#include "graph_state.h"
#include "output_files.h"
#include "summary.h"

namespace tesupy {
namespace {

// A tensor description as Python sees it: names rather than numbers.
struct TensorInfo {
  std::vector<int64_t> shape;
  std::string dtype;
  std::string format;
};

TensorInfo InfoOf(const tov::TensorDesc& desc) {
  const char* dtype = tov::DataTypeName(desc.GetDataType());
  const char* format = tov::FormatName(desc.GetFormat());
  return {desc.GetShape().GetDims(),
          *dtype != '\0' ? dtype : std::to_string(static_cast<int>(desc.GetDataType())),
          *format != '\0' ? format : std::to_string(static_cast<int>(desc.GetFormat()))};
}

template <typename DescAt>
std::vector<TensorInfo> Infos(size_t count, DescAt descAt) {
  std::vector<TensorInfo> infos;
  infos.reserve(count);
  for (size_t i = 0; i < count; ++i) infos.push_back(InfoOf(descAt(static_cast<uint32_t>(i))));
  return infos;
}

// Attribute strings are usually text but may hold any bytes; undecodable bytes are kept as
// surrogate escapes rather than failing the whole mapping.
py::str Text(const std::string& text) {
  PyObject* decoded =
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
  if (decoded == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(decoded);
}

template <typename List>
py::tuple Tuple(const List& values) {
  py::tuple tuple(values.size());
  for (size_t i = 0; i < values.size(); ++i) tuple[i] = py::cast(values[i]);
  return tuple;
}

py::object AttrToPython(const GraphStatePtr& graph, const tov::AttrValue& value) {
  using Kind = tov::AttrValue::Kind;
  switch (value.GetKind()) {
    case Kind::kString:
      return Text(*value.Get<std::string>());
    case Kind::kInt:
      return py::int_(*value.Get<int64_t>());
    case Kind::kFloat:
      return py::float_(*value.Get<float>());
    case Kind::kBool:
      return py::bool_(*value.Get<bool>());
    case Kind::kTensor: {
      const tov::TensorPtr& tensor = *value.Get<tov::TensorPtr>();
      return tensor == nullptr ? py::object(py::none()) : TensorArray(graph, tensor);
    }
    case Kind::kListString: {
      const auto& strings = *value.Get<std::vector<std::string>>();
      py::tuple tuple(strings.size());
      for (size_t i = 0; i < strings.size(); ++i) tuple[i] = Text(strings[i]);
      return std::move(tuple);
    }
    case Kind::kListInt:
      return Tuple(*value.Get<tov::AttrValue::IntList>());
    case Kind::kListFloat:
      return Tuple(*value.Get<std::vector<float>>());
    case Kind::kListBool: {
      const auto& flags = *value.Get<std::vector<bool>>();
      py::tuple tuple(flags.size());
      for (size_t i = 0; i < flags.size(); ++i) tuple[i] = py::bool_(flags[i]);
      return std::move(tuple);
    }
    case Kind::kNone:
      break;
  }
  return py::none();
}

// A node of a graph; keeps the whole graph alive.
class PyNode {
 public:
  PyNode(GraphStatePtr graph, tov::NodePtr node)
      : graph_(std::move(graph)), node_(std::move(node)) {}

  const std::string& Name() const { return node_->GetName(); }
  const std::string& Type() const { return node_->GetType(); }

  py::object Attrs() const {
    py::dict attrs;
    for (const auto& [name, value] : node_->GetOpDesc()->GetAllAttrs()) {
      attrs[Text(name)] = AttrToPython(graph_, value);
    }
    return py::module_::import("types").attr("MappingProxyType")(attrs);
  }

  // (producer, output index) per data input; None for an unconnected input.
  py::list Inputs() const {
    py::list inputs;
    for (const auto& anchor : node_->InAnchors()) {
      const tov::OutDataAnchor* peer = anchor->GetPeerOutAnchorRaw();
      if (peer == nullptr) {
        inputs.append(py::none());
      } else {
        inputs.append(py::make_tuple(peer->GetOwnerNodeRaw()->GetName(), peer->GetIdx()));
      }
    }
    return inputs;
  }

  // Per output, the (consumer, input index) pairs it feeds, in edge order.
  py::list Outputs() const {
    py::list outputs;
    for (const auto& anchor : node_->OutAnchors()) {
      py::list consumers;
      for (const tov::InDataAnchor* peer : anchor->GetPeersRaw()) {
        consumers.append(py::make_tuple(peer->GetOwnerNodeRaw()->GetName(), peer->GetIdx()));
      }
      outputs.append(std::move(consumers));
    }
    return outputs;
  }

  std::vector<TensorInfo> InputDescs() const {
    const tov::OpDesc& desc = *node_->GetOpDesc();
    return Infos(desc.GetInputsSize(),
                 [&desc](uint32_t i) -> const tov::TensorDesc& { return desc.GetInputDesc(i); });
  }

  std::vector<TensorInfo> OutputDescs() const {
    const tov::OpDesc& desc = *node_->GetOpDesc();
    return Infos(desc.GetOutputsSize(),
                 [&desc](uint32_t i) -> const tov::TensorDesc& { return desc.GetOutputDesc(i); });
  }

  py::list Weights() const {
    py::list weights;
    for (const tov::TensorPtr& tensor : tov::OpDescUtils::MutableWeights(*node_)) {
      weights.append(TensorArray(graph_, tensor));
    }
    return weights;
  }

  std::string Repr() const { return "<tesu.Node " + Name() + " (" + Type() + ")>"; }

  // Two Node objects are equal when they stand for the same node of the same graph.
  bool operator==(const PyNode& other) const { return node_ == other.node_; }
  size_t Hash() const { return std::hash<const tov::Node*>()(node_.get()); }
  bool BelongsTo(const GraphState& graph) const { return graph_.get() == &graph; }

 private:
  GraphStatePtr graph_;
  tov::NodePtr node_;
};

PyNode NodeOf(const GraphStatePtr& graph, const std::string& name) {
  tov::NodePtr node = graph->compute->FindNode(name);
  if (node == nullptr) throw py::key_error(name);
  return PyNode(graph, std::move(node));
}

std::vector<PyNode> Nodes(const GraphStatePtr& graph) {
  std::vector<PyNode> nodes;
  nodes.reserve(graph->compute->GetNodesSize());
  for (tov::NodePtr& node : graph->compute->GetDirectNode()) nodes.emplace_back(graph, node);
  return nodes;
}

std::vector<PyNode> DataNodes(const GraphStatePtr& graph) {
  std::vector<PyNode> nodes;
  for (tov::NodePtr& node : graph->compute->GetDirectNode()) {
    if (node->GetType() == "Data") nodes.emplace_back(graph, node);
  }
  return nodes;
}

// The graph outputs, numbered as the output formats count them: the requested (node, index)
// pairs in node order, or else every node that has inputs and no consumers, as its output 0.
std::vector<std::pair<std::string, int32_t>> GraphOutputs(const GraphState& graph) {
  std::vector<std::pair<std::string, int32_t>> outputs;
  graph.compute->ForEachNode([&](tov::Node& node) {
    const tov::NodeSpec& spec = node.ROLE(NodeSpec);
    if (graph.outNodes.empty()) {
      if (spec.InDataEdgeSize() > 0 && spec.OutDataEdgeSize() == 0) {
        outputs.emplace_back(node.GetName(), 0);
      }
      return;
    }
    const auto wanted = graph.outNodes.find(node.GetName());
    if (wanted == graph.outNodes.end()) return;
    for (size_t i = 0; i < node.GetAllOutDataAnchorsSize(); ++i) {
      const auto index = static_cast<int32_t>(i);
      for (int32_t requested : wanted->second) {
        if (requested == index) {
          outputs.emplace_back(node.GetName(), index);
          break;
        }
      }
    }
  });
  return outputs;
}

std::string PathOf(const py::object& where) {
  return py::module_::import("os").attr("fspath")(where).cast<std::string>();
}

void Save(const GraphStatePtr& graph, const py::object& where, const py::object& weights) {
  const std::string path = PathOf(where);
  const std::string weightsPath = weights.is_none() ? std::string() : PathOf(weights);
  tesu::Status status = tesu::SUCCESS;
  {
    py::gil_scoped_release release;
    status = tesu::cli::WriteModelFile(graph->model, path, weightsPath);
  }
  if (status != tesu::SUCCESS) {
    PyErr_SetString(PyExc_OSError,
                    ("cannot write model " + path + ": status " + std::to_string(status)).c_str());
    throw py::error_already_set();
  }
}

py::object ToJson(const GraphStatePtr& graph) {
  std::string text;
  tesu::Status status = tesu::SUCCESS;
  {
    py::gil_scoped_release release;
    google::protobuf::io::StringOutputStream stream(&text);
    status = tesu::cli::WriteModelJson(graph->model, stream);
  }
  if (status != tesu::SUCCESS) {
    throw std::runtime_error("cannot write the graph as JSON: status " + std::to_string(status));
  }
  return py::module_::import("json").attr("loads")(py::str(text));
}

// The methods a user calls by name. Their docstrings open with the signature in the form that
// Python reads into __text_signature__, so that inspect.signature() and editors see parameter
// names.
void BindGraphMethods(py::class_<GraphState, std::shared_ptr<GraphState>>& graphClass) {
  py::options options;
  options.disable_function_signatures();
  graphClass
      .def("save", &Save, py::arg("path"), py::arg("weights") = py::none(),
           "save($self, /, path, weights=None)\n--\n\n"
           "Writes the graph as a binary model file, as the CLI's --output does: through a "
           "temporary file and a rename, so `path` ends up whole or untouched. With `weights`, "
           "a path in the folder of `path` or below it, every tensor of 1 KiB or more goes to "
           "that weights file instead, as with the CLI's --weights. Raises OSError when it "
           "cannot be written.")
      .def("to_json", &ToJson,
           "to_json($self, /)\n--\n\n"
           "The graph as a dict, in the form of the CLI's --json output (tensor bytes left "
           "out; a tensor read from a weights file shows its location, offset and length).")
      .def(
          "to_dot", [](const GraphState& graph) { return tov::ToDot(*graph.compute); },
          "to_dot($self, /)\n--\n\n"
          "The graph as Graphviz DOT text, as the CLI's --dot writes it.")
      .def(
          "op_histogram",
          [](const GraphState& graph) {
            const tesu::cli::OpCounts counts = tesu::cli::CountOps(*graph.compute);
            return std::map<std::string, size_t>(counts.begin(), counts.end());
          },
          "op_histogram($self, /)\n--\n\n"
          "Node count per operator type, a dict sorted by type.");
}

}  // namespace

void BindGraph(py::module_& module) {
  py::class_<TensorInfo>(module, "TensorDesc", "Description of a node's input or output tensor.")
      .def_readonly("shape", &TensorInfo::shape, "Dimensions, a list of ints; -1 is unknown.")
      .def_readonly("dtype", &TensorInfo::dtype, "Element type name: 'FLOAT', 'INT32', ...")
      .def_readonly("format", &TensorInfo::format, "Layout name: 'NCHW', 'NHWC', 'ND', ...")
      .def("__eq__",
           [](const TensorInfo& a, const TensorInfo& b) {
             return a.shape == b.shape && a.dtype == b.dtype && a.format == b.format;
           })
      .def("__repr__", [](const TensorInfo& info) {
        std::string dims;
        for (int64_t dim : info.shape) dims += (dims.empty() ? "" : ", ") + std::to_string(dim);
        return "TensorDesc(shape=[" + dims + "], dtype='" + info.dtype + "', format='" +
               info.format + "')";
      });

  py::class_<PyNode>(module, "Node", "A node of a Graph: an operator with its edges and weights.")
      .def_property_readonly("name", &PyNode::Name, "The node's unique name.")
      .def_property_readonly("type", &PyNode::Type, "The operator type.")
      .def_property_readonly("attrs", &PyNode::Attrs,
                             "The attributes as a read-only mapping of Python values: str, int, "
                             "float, bool, tuples of those, and numpy arrays for tensors.")
      .def_property_readonly("inputs", &PyNode::Inputs,
                             "Per data input, the (producer name, output index) that feeds it, "
                             "or None when the input is unconnected.")
      .def_property_readonly("outputs", &PyNode::Outputs,
                             "Per output, the list of (consumer name, input index) it feeds.")
      .def_property_readonly("input_descs", &PyNode::InputDescs, "A TensorDesc per input.")
      .def_property_readonly("output_descs", &PyNode::OutputDescs, "A TensorDesc per output.")
      .def_property_readonly(
          "weights", &PyNode::Weights,
          "The tensors of the Const nodes that feed this node, in input order, as read-only "
          "numpy arrays that share memory with the graph (no copy). Their dtype follows the "
          "tensor's data type (BF16 shows its raw bits as uint16) and their shape its "
          "description; data that does not match the description is shown flat.")
      .def(
          "__eq__", [](const PyNode& a, const PyNode& b) { return a == b; }, py::is_operator())
      .def("__hash__", &PyNode::Hash)
      .def("__repr__", &PyNode::Repr);

  py::class_<GraphState, std::shared_ptr<GraphState>> graphClass(
      module, "Graph",
      "A converted (or loaded) graph. Iterate it or its `nodes` for the nodes in order, index it "
      "by node name, and save or render it. The graph is read-only.");
  graphClass
      .def_property_readonly(
          "name", [](const GraphState& graph) { return graph.model.GetName(); },
          "The model's name.")
      .def_property_readonly(
          "nodes", [](const GraphStatePtr& graph) { return Nodes(graph); },
          "The nodes in graph order, a list of Node.")
      .def("__len__", [](const GraphState& graph) { return graph.compute->GetNodesSize(); })
      .def("__iter__", [](const GraphStatePtr& graph) { return py::iter(py::cast(Nodes(graph))); })
      .def(
          "__getitem__",
          [](const GraphStatePtr& graph, const std::string& name) { return NodeOf(graph, name); },
          py::arg("name"), "The node of that name; KeyError when there is none.")
      .def(
          "__contains__",
          [](const GraphState& graph, const std::string& name) {
            return graph.compute->FindNode(name) != nullptr;
          },
          py::arg("name"))
      .def(
          "__contains__",
          [](const GraphState& graph, const PyNode& node) { return node.BelongsTo(graph); },
          py::arg("node"))
      .def_property_readonly(
          "inputs", [](const GraphStatePtr& graph) { return DataNodes(graph); },
          "The graph inputs: its Data nodes, in order.")
      .def_property_readonly(
          "outputs", [](const GraphState& graph) { return GraphOutputs(graph); },
          "The graph outputs as (node name, output index) pairs, in the order that "
          "`output_format` numbers them: the requested `out_nodes`, or else every node that has "
          "inputs and feeds nothing.")
      .def_property_readonly(
          "timings",
          [](const GraphState& graph) {
            std::vector<std::pair<std::string, double>> steps;
            for (const auto& step : graph.timings) steps.emplace_back(step.name, step.milliseconds);
            return steps;
          },
          "How long each step of the conversion took: (step, milliseconds) pairs, in order.")
      .def("__repr__", [](const GraphState& graph) {
        return "<tesu.Graph " + graph.model.GetName() + " with " +
               std::to_string(graph.compute->GetNodesSize()) + " nodes>";
      });
  BindGraphMethods(graphClass);
}

}  // namespace tesupy
