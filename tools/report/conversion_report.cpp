#include "conversion_report.h"

#include <utility>

#include "framework/profiler.h"
#include "graph_svg.h"
#include "report_page.h"

namespace tesu {
namespace cli {
namespace report {

void ConversionReport::ReadSource(const std::string& bytes, size_t expectedNodes) {
  if (!Wanted()) return;
  source_ = std::async(std::launch::async, [&bytes, expectedNodes] {
    SourceData source;
    {
      ProfileScope step("report: source graph");
      source = PrepareSource(SourceViewOf(bytes, expectedNodes));
    }
    ProfileScope step("report: start Graphviz");
    WarmUpGraphviz();
    return source;
  });
}

void ConversionReport::SourceRead() {
  if (source_.valid()) sourceData_ = source_.get();
}

void ConversionReport::Compare(const tov::ComputeGraph* converted, nlohmann::json checkReport) {
  if (!Wanted()) return;
  SourceRead();
  pending_ = std::async(std::launch::async, [source = std::move(sourceData_), converted,
                                             checkReport = std::move(checkReport)]() mutable {
    std::optional<GraphView> convertedView;
    if (converted != nullptr) {
      ProfileScope step("report: converted graph");
      convertedView = ViewOf(*converted);
    }
    return BuildReportBody(std::move(source), std::move(convertedView), checkReport);
  });
}

void ConversionReport::Wait() {
  if (!Wanted() || body_.has_value()) return;
  if (!pending_.valid()) Compare(nullptr, nullptr);
  body_ = pending_.get();
}

Status ConversionReport::Write(const RunFacts& run) {
  if (!Wanted()) return SUCCESS;
  Wait();
  AddSummary(*body_, run);
  return WriteReportPage(path_, *body_);
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
