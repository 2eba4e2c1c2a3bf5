// What the Python objects of one graph share: the model they all read.
#ifndef TESU_PYTHON_GRAPH_STATE_H
#define TESU_PYTHON_GRAPH_STATE_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/profiler.h"
#include "graph/compute_graph.h"
#include "graph/model.h"
#include "graph/tensor.h"

namespace tesupy {

namespace py = pybind11;

struct GraphState {
  GraphState(tov::Model graphModel, std::map<std::string, std::vector<int32_t>> requestedOutputs,
             std::vector<tesu::Profiler::Step> stepTimes)
      : model(std::move(graphModel)),
        compute(tov::GraphUtils::GetComputeGraph(model.GetGraph())),
        outNodes(std::move(requestedOutputs)),
        timings(std::move(stepTimes)) {}

  tov::Model model;
  std::shared_ptr<tov::ComputeGraph> compute;  // never null
  // The outputs the conversion was asked for; empty: the nodes nothing consumes.
  std::map<std::string, std::vector<int32_t>> outNodes;
  std::vector<tesu::Profiler::Step> timings;
  std::string checkReport;  // the check report's JSON text when the conversion wrote one
};

using GraphStatePtr = std::shared_ptr<const GraphState>;

// The tensor's bytes as a read-only numpy array that shares them with the graph; the array keeps
// the tensor and the graph alive.
py::array TensorArray(const GraphStatePtr& graph, const tov::TensorPtr& tensor);

void BindGraph(py::module_& module);
void BindConvert(py::module_& module);

}  // namespace tesupy

#endif
