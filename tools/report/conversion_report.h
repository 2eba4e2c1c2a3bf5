// The report of one conversion, built alongside it so that it costs the run little: the source
// graph is read while the parser works on the same bytes, the converted graph is read, compared
// with it and drawn while the command line writes its other outputs from the same graph, and the
// page is written last, with the timings of every step.
#ifndef TESU_TOOLS_REPORT_CONVERSION_REPORT_H
#define TESU_TOOLS_REPORT_CONVERSION_REPORT_H

#include <future>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "convert/conversion.h"
#include "framework/model_parser.h"
#include "graph/compute_graph.h"
#include "graph_view.h"
#include "report_data.h"
#include "report_page.h"

namespace tesu {
namespace cli {
namespace report {

// The facts of a run as its conversion's result gives them: the model, the framework, the
// status and outcome, the operator counts and the timed steps.
RunFacts FactsOf(const convert::Result& result);
// "status 3: a converter refused a node's weights or inputs": a failed run's outcome.
std::string OutcomeOf(Status status);

// Attached to a conversion as its request's report, it reads the source graph while the parser
// works; once the conversion is done, it is given the result to compare and the run's facts.
class ConversionReport : public convert::Observer {
 public:
  // A report written to `path`; with an empty path every call does nothing.
  explicit ConversionReport(std::string path) : path_(std::move(path)) {}
  ConversionReport(const ConversionReport&) = delete;
  ConversionReport& operator=(const ConversionReport&) = delete;

  bool Wanted() const { return !path_.empty(); }
  const std::string& Path() const { return path_; }

  // Starts reading the source graph from serialised model bytes on a worker thread, which also
  // prepares what the page takes from it alone. The bytes must
  // stay as they are until SourceRead returns. `expectedNodes` is how many nodes the graph has,
  // as far as is known.
  void ReadSource(std::string_view bytes, size_t expectedNodes);
  // Waits until the source graph has been read and prepared.
  void SourceRead();
  // As an observer of the conversion: ReadSource and SourceRead.
  void ModelRead(std::string_view bytes, const convert::OpCounts& before) override;
  void Parsed() override { SourceRead(); }
  // Reads the converted graph (null when the conversion failed), compares it with the source
  // graph and draws both on a worker thread. The graph is only read, and must not change until
  // Wait returns. `checkReport` is the operator support report the run wrote, or null.
  void Compare(const tov::ComputeGraph* converted, nlohmann::json checkReport);
  // The same with the conversion's graph and check report.
  void Compare(const convert::Result& result) { Compare(result.graph.get(), result.checkReport); }
  // Waits for the comparison, so that the steps it timed are recorded. The worker then writes
  // the page but for the summary. A failure of the workers (std::bad_alloc) is thrown here.
  void Wait();
  // Completes the page with the run's summary, whole or not at all. A failure of the worker
  // while it writes is thrown here, with no page and no temporary file left.
  Status Write(const RunFacts& run);

 private:
  std::string path_;
  bool converted_ = false;
  std::future<SourceData> source_;
  SourceData sourceData_;
  std::future<void> built_;
  bool waited_ = false;
  std::future<Status> written_;
  // Declared after the worker's future, so that a summary never given is abandoned (and the
  // page given up) before that future waits for the worker.
  std::promise<nlohmann::json> summary_;
};

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
