// The converter registry and the per-operator converters of the Orvane parser plug-in.
#ifndef ORVANE_UTIL_H
#define ORVANE_UTIL_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "graph/compute_graph.h"
#include "graph/node.h"

namespace tesu {

// Rewrites one node into the host operator set; 0 on success.
using OrvaneOpParserFunc = std::function<uint32_t(tov::Node&, tov::ComputeGraph&)>;

// Source operator type to converter; filled while the library loads, read-only afterwards.
std::map<std::string, OrvaneOpParserFunc>& GetParserFuncMap();
// Inserts the converter unless the type already has one; true when inserted.
bool RegisterOpParser(const std::string& opType, OrvaneOpParserFunc func);

uint32_t OrvaneAbsParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneReluParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneMaxPoolParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t ConvParserFunc(tov::Node& node);
uint32_t OrvaneConv2DParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneDepthwiseConv2DParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneReduceMeanDParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t BatchToSpaceParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneBatchToSpaceDParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneBatchToSpaceNDDParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t ConcatParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneConcatParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneConcatV2ParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t BatchNormParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneBatchNormParserFunc(tov::Node& node, tov::ComputeGraph& graph);
uint32_t OrvaneBatchNormExt2ParserFunc(tov::Node& node, tov::ComputeGraph& graph);

}  // namespace tesu

#endif
