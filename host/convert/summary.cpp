#include "summary.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <iomanip>
#include <set>

namespace tesu {
namespace cli {
namespace {

// The largest message protobuf reads, and so the largest model file that protobuf-based tools
// read: 2 GiB less one byte.
constexpr uintmax_t kProtobufMessageLimit = INT_MAX;

// A written model file past that limit gets a line saying so and how to avoid it.
void NoteLargeModel(const WrittenFile& file, std::ostream& out) {
  if (file.what != "model") return;
  std::error_code ec;
  const uintmax_t size = std::filesystem::file_size(file.path, ec);
  if (ec || size <= kProtobufMessageLimit) return;
  out << "note: " << file.path << " is " << std::fixed << std::setprecision(2)
      << static_cast<double>(size) / (1 << 30)
      << " GiB; protobuf-based tools cannot read a model file above 2 GiB. --weights FILE "
         "writes its tensors to a side file and keeps the model file small.\n";
}

size_t CountOf(const OpCounts& counts, const std::string& type) {
  const auto found = counts.find(type);
  return found == counts.end() ? 0 : found->second;
}

}  // namespace

void OpTally::Add(std::string_view type) {
  if (last_ < counts_.size() && counts_[last_].first == type) {
    ++counts_[last_].second;
    return;
  }
  for (size_t i = 0; i < counts_.size(); ++i) {
    if (counts_[i].first == type) {
      ++counts_[i].second;
      last_ = i;
      return;
    }
  }
  last_ = counts_.size();
  counts_.emplace_back(std::string(type), 1);
}

OpCounts OpTally::Counts() const {
  OpCounts counts;
  for (const auto& entry : counts_) counts.emplace(entry.first, entry.second);
  return counts;
}

size_t TotalOps(const OpCounts& counts) {
  size_t total = 0;
  for (const auto& entry : counts) total += entry.second;
  return total;
}

OpCounts CountOps(const tov::ComputeGraph& graph) {
  OpTally tally;
  graph.ForEachNode([&tally](tov::Node& node) { tally.Add(node.GetType()); });
  return tally.Counts();
}

void PrintSummary(const Summary& summary, std::ostream& out) {
  std::set<std::string> types;
  size_t width = 8;
  for (const OpCounts* counts : {&summary.before, &summary.after}) {
    for (const auto& entry : *counts) {
      types.insert(entry.first);
      width = std::max(width, entry.first.size());
    }
  }
  const int column = static_cast<int>(width);
  out << "converted " << summary.modelFile << "\n";
  out << "nodes: " << TotalOps(summary.before) << " -> " << TotalOps(summary.after) << "\n";
  out << "  " << std::left << std::setw(column) << "operator" << std::right << std::setw(8)
      << "before" << std::setw(8) << "after"
      << "\n";
  for (const std::string& type : types) {
    out << "  " << std::left << std::setw(column) << type << std::right << std::setw(8)
        << CountOf(summary.before, type) << std::setw(8) << CountOf(summary.after, type) << "\n";
  }
  for (const WrittenFile& file : summary.written) {
    out << "wrote " << file.what << ": " << file.path << "\n";
  }
  for (const WrittenFile& file : summary.written) NoteLargeModel(file, out);
}

}  // namespace cli
}  // namespace tesu

namespace tesu {
namespace cli {

void PrintProfile(const std::vector<Profiler::Step>& steps, std::ostream& out) {
  double total = 0;
  out << "profile (ms):\n";
  for (const Profiler::Step& step : steps) {
    out << "  " << std::left << std::setw(28) << step.name << std::right << std::fixed
        << std::setprecision(1) << std::setw(10) << step.milliseconds << "\n";
    total += step.milliseconds;
  }
  out << "  " << std::left << std::setw(28) << "total" << std::right << std::setw(10) << total
      << "\n";
}

}  // namespace cli
}  // namespace tesu
