// The Orvane model parser: registered with the host's parser factory under framework type 6.
#ifndef ORVANE_PARSER_H
#define ORVANE_PARSER_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/model_parser.h"

namespace tesu {

class OrvaneModelParser : public ModelParser {
 public:
  OrvaneModelParser() = default;
  ~OrvaneModelParser() override = default;

  // Loads the one model buffer, checks that every operator is supported, fuses
  // ReduceMeanD+Reshape, converts every node to the host operator set and marks the outputs.
  Status ParseFromMemory(ParserOptions& options, std::vector<tov::BaseBuffer>& modelBuffer,
                         tov::Graph& graph) override;
  // Writes a host model file as JSON, tensor data left out.
  Status ToJson(const char* modelFile, const char* jsonFile) override;

  using ModelParser::ParseFromMemory;
};

std::shared_ptr<ModelParser> Creator_ORVANE_Model_Parser();

// The source operator types the plug-in accepts and the host type each becomes, in key order.
// Documentation and the command line's --help read the table through this.
const std::map<std::string, std::string>& SupportedOperatorTable();

}  // namespace tesu

#endif
