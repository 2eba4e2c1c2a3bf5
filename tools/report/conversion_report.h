// The report of one conversion, built alongside it so that it costs the run little: the source
// graph is read while the parser works on the same bytes, the graphs are compared and drawn
// while the command line writes its other outputs, and the page is written last, with the
// timings of every step.
#ifndef TESU_TOOLS_REPORT_CONVERSION_REPORT_H
#define TESU_TOOLS_REPORT_CONVERSION_REPORT_H

#include <future>
#include <string>

#include <nlohmann/json.hpp>

#include "framework/model_parser.h"
#include "graph/compute_graph.h"
#include "graph_view.h"
#include "report_data.h"

namespace tesu {
namespace cli {
namespace report {

class ConversionReport {
 public:
  // A report written to `path`; with an empty path every call does nothing.
  explicit ConversionReport(std::string path) : path_(std::move(path)) {}
  ConversionReport(const ConversionReport&) = delete;
  ConversionReport& operator=(const ConversionReport&) = delete;

  bool Wanted() const { return !path_.empty(); }
  const std::string& Path() const { return path_; }

  // Starts reading the source graph from serialised model bytes on a worker thread. The bytes
  // must stay as they are until SourceRead returns.
  void ReadSource(const std::string& bytes);
  // Waits until the source graph has been read.
  void SourceRead();
  // Takes a view of the converted graph (null when the conversion failed), then compares and
  // draws the graphs on a worker thread. The graph is not touched after this returns.
  // `checkReport` is the operator support report the run wrote, or null.
  void Compare(const tov::ComputeGraph* converted, nlohmann::json checkReport);
  // Waits for the comparison, so that the steps it timed are recorded.
  void Wait();
  // Adds the run's summary and writes the page, whole or not at all.
  Status Write(const RunFacts& run);

 private:
  std::string path_;
  std::future<GraphView> source_;
  GraphView sourceView_;
  std::future<nlohmann::json> pending_;
  nlohmann::json body_;
};

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
