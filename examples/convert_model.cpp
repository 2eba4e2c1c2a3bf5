// Converts a model with the installed parser plug-ins in one call of the conversion library, and
// writes the converted model:
//
//   convert_model net.pb net.host.pb [INPUT_NAME D1,D2,...]
//
// Built against an installed tesu, it needs only find_package(tesu) and tesu::convert.
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>

#include <tesu/convert/conversion.h>
#include <tesu/framework/proto_io.h>

int main(int argc, char** argv) {
  if (argc != 3 && argc != 5) {
    std::cerr << "usage: convert_model MODEL OUTPUT [INPUT_NAME D1,D2,...]\n";
    return tesu::kUsageError;
  }
  tesu::convert::Request request;
  request.modelPath = argv[1];
  if (argc == 5) {
    std::istringstream dims(argv[4]);
    for (std::string dim; std::getline(dims, dim, ',');) {
      request.options.inputShapes[argv[3]].push_back(std::stoll(dim));
    }
  }
  const tesu::convert::Result result = tesu::convert::Convert(request);
  for (const std::string& warning : result.warnings) std::cerr << "warning: " << warning << "\n";
  if (!result.Converted()) {
    std::cerr << result.error << "\n";
    return result.exitCode;
  }
  std::string bytes;
  if (result.model.Save(bytes) != tesu::SUCCESS ||
      tesu::WriteFileAtomically(argv[2], bytes) != tesu::SUCCESS) {
    std::cerr << "cannot write " << argv[2] << "\n";
    return tesu::kFailure;
  }
  std::cout << "converted " << result.modelLabel << ": " << result.graph->GetNodesSize()
            << " nodes\n";
  return 0;
}
