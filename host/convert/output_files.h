// The files a conversion's result is written to, by any front end.
#ifndef TESU_TOOLS_OUTPUT_FILES_H
#define TESU_TOOLS_OUTPUT_FILES_H

#include <string>

#include <google/protobuf/io/zero_copy_stream.h>

#include "framework/model_parser.h"
#include "graph/model.h"

namespace google {
namespace protobuf {
namespace io {
class ZeroCopyOutputStream;
}
}  // namespace protobuf
}  // namespace google

namespace tesu {
namespace cli {

// What an output is made from: the converted model, and the source graph's picture when one
// was asked for.
struct ConversionResult {
  const tov::Model& converted;
  const std::string& sourceDot;
};

// A model as a binary ModelDef of any size, tensor bytes written from where they lie. With a
// weights path, every tensor of at least tov::kMinExternalTensorBytes goes to that file, which
// must lie in the model's folder or below it (the model names it relative to its own folder).
// Each file ends up whole or as it was. The weights file is renamed into place first, so a model
// file never names weights that were not written; should the model's own rename then fail, the
// new weights file stays beside the old model.
Status WriteModelFile(const tov::Model& model, const std::string& path,
                      const std::string& weightsPath = std::string());
// A model as indented JSON, written op by op: the text of the parser's JSON dump of the saved
// model (tensor data left out, a tensor read from a weights file showing its location there),
// without the whole document ever being held.
Status WriteModelJson(const tov::Model& model, google::protobuf::io::ZeroCopyOutputStream& stream);
// The converted model as JSON (WriteModelJson).
Status WriteModelJson(const ConversionResult& result, const std::string& path);
// The converted graph, or the source graph, as Graphviz DOT.
Status WriteGraphDot(const ConversionResult& result, const std::string& path);
Status WriteSourceDot(const ConversionResult& result, const std::string& path);

}  // namespace cli
}  // namespace tesu

#endif
