#include "conversion_report.h"

#include <optional>
#include <utility>

#include "framework/profiler.h"
#include "graph_svg.h"
#include "report_page.h"

namespace tesu {
namespace cli {
namespace report {

void ConversionReport::ReadSource(std::string_view bytes, size_t expectedNodes) {
  if (!Wanted()) return;
  source_ = std::async(std::launch::async, [bytes, expectedNodes] {
    ProfileScope step("report: source graph");
    return PrepareSource(SourceViewOf(bytes, expectedNodes));
  });
}

std::string OutcomeOf(Status status) {
  const std::string meaning = StatusMeaning(status);
  return "status " + std::to_string(status) + (meaning.empty() ? "" : ": " + meaning);
}

RunFacts FactsOf(const convert::Result& result) {
  RunFacts facts;
  facts.modelFile = result.modelLabel;
  facts.modelSize = result.modelSize;
  facts.framework = result.framework;
  facts.frameworkName = result.frameworkName;
  facts.status = result.status;
  facts.exitCode = result.exitCode;
  if (result.Converted()) {
    facts.outcome = StatusMeaning(SUCCESS);
  } else {
    facts.outcome =
        result.failure == convert::Failure::kParse ? OutcomeOf(result.status) : result.error;
  }
  facts.opsBefore = result.before;
  facts.opsAfter = result.after;
  facts.steps = result.steps;
  return facts;
}

void ConversionReport::ModelRead(std::string_view bytes, const convert::OpCounts& before) {
  size_t nodes = 0;
  for (const auto& entry : before) nodes += entry.second;
  ReadSource(bytes, nodes);
}

void ConversionReport::SourceRead() {
  if (source_.valid()) sourceData_ = source_.get();
}

void ConversionReport::Compare(const tov::ComputeGraph* converted, nlohmann::json checkReport) {
  if (!Wanted()) return;
  SourceRead();
  converted_ = converted != nullptr;
  std::promise<void> built;
  built_ = built.get_future();
  written_ = std::async(
      std::launch::async, [path = path_, source = std::move(sourceData_), converted,
                           checkReport = std::move(checkReport), built = std::move(built),
                           summary = summary_.get_future()]() mutable {
        // Graphviz loads its plug-ins and fonts while the graph is read: by then the model's bytes
        // are freed, so what it loads does not add to the run's peak of memory.
        std::future<void> warmUp = std::async(std::launch::async, [] {
          ProfileScope step("report: start Graphviz");
          WarmUpGraphviz();
        });
        std::optional<PageData> body;
        try {
          std::optional<GraphView> convertedView;
          if (converted != nullptr) {
            ProfileScope step("report: converted graph");
            convertedView = ViewOf(*converted);
          }
          body = BuildReportBody(std::move(source), std::move(convertedView), checkReport);
        } catch (...) {
          // Wait passes the failure (a failed allocation) on to the run, instead of waiting for
          // ever.
          built.set_exception(std::current_exception());
          throw;
        }
        built.set_value();
        return WriteReportPage(path, *body, std::move(summary));
      });
}

void ConversionReport::Wait() {
  if (!Wanted() || waited_) return;
  if (!written_.valid()) Compare(nullptr, nullptr);
  built_.get();
  waited_ = true;
}

Status ConversionReport::Write(const RunFacts& run) {
  if (!Wanted()) return SUCCESS;
  Wait();
  ProfileScope step("report: finish page");
  summary_.set_value(ReportSummary(run, converted_));
  return written_.get();
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
