#include "graph_pictures.h"

#include <algorithm>
#include <numeric>
#include <unordered_map>

namespace tesu {
namespace cli {
namespace report {
namespace {

// For every row, the rows its node feeds or is fed by, in either graph.
std::vector<std::vector<size_t>> Neighbours(const std::vector<NodeComparison>& rows) {
  std::unordered_map<std::string, size_t> rowOf;
  rowOf.reserve(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) rowOf.emplace(rows[i].Name(), i);
  std::vector<std::vector<size_t>> neighbours(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    for (const ViewNode* side : {rows[i].before, rows[i].after}) {
      if (side == nullptr) continue;
      for (const std::string& input : side->inputs) {
        const auto producer = input.empty() ? rowOf.end() : rowOf.find(ProducerOf(input));
        if (producer == rowOf.end()) continue;
        neighbours[i].push_back(producer->second);
        neighbours[producer->second].push_back(i);
      }
    }
  }
  return neighbours;
}

// The rows to draw, ascending: the most interesting rows first, then one hop around them.
std::vector<size_t> Neighbourhood(const std::vector<NodeComparison>& rows,
                                  const std::vector<Mark>& marks, const PictureLimits& limits) {
  std::vector<size_t> centres;
  for (size_t i = 0; i < rows.size(); ++i) {
    if (marks[i] != Mark::kPlain) centres.push_back(i);
  }
  auto weight = [&](size_t row) {
    return marks[row] == Mark::kUnsupported ? 0 : rows[row].Weight();
  };
  std::stable_sort(centres.begin(), centres.end(),
                   [&](size_t a, size_t b) { return weight(a) < weight(b); });
  if (centres.size() > limits.centres) centres.resize(limits.centres);

  std::vector<bool> chosen(rows.size(), false);
  std::vector<size_t> drawn;
  auto choose = [&](size_t row) {
    if (chosen[row] || drawn.size() >= limits.drawn) return;
    chosen[row] = true;
    drawn.push_back(row);
  };
  for (size_t row : centres) choose(row);
  const std::vector<std::vector<size_t>> neighbours = Neighbours(rows);
  for (size_t row : centres) {
    for (size_t next : neighbours[row]) choose(next);
  }
  std::sort(drawn.begin(), drawn.end());
  return drawn;
}

}  // namespace

std::string SourceId(size_t row) {
  return "s" + std::to_string(row);
}

std::string ConvertedId(size_t row) {
  return "c" + std::to_string(row);
}

std::vector<Mark> MarkRows(const std::vector<NodeComparison>& rows,
                           const std::unordered_set<std::string>& unsupported) {
  std::vector<Mark> marks;
  marks.reserve(rows.size());
  for (const NodeComparison& row : rows) {
    if (unsupported.count(row.Name()) != 0) {
      marks.push_back(Mark::kUnsupported);
    } else {
      marks.push_back(row.Changed() ? Mark::kChanged : Mark::kPlain);
    }
  }
  return marks;
}

Pictures DrawPictures(const std::vector<NodeComparison>& rows, const std::vector<Mark>& marks,
                      const PictureLimits& limits) {
  Pictures pictures;
  std::vector<size_t> drawn(rows.size());
  std::iota(drawn.begin(), drawn.end(), size_t{0});
  if (rows.size() > limits.wholeGraph) {
    pictures.whole = false;
    drawn = Neighbourhood(rows, marks, limits);
  }
  pictures.drawnNodes = drawn.size();

  std::vector<DrawnNode> source;
  std::vector<DrawnNode> converted;
  for (size_t row : drawn) {
    if (rows[row].before != nullptr)
      source.push_back({rows[row].before, SourceId(row), marks[row]});
    if (rows[row].after != nullptr) {
      converted.push_back({rows[row].after, ConvertedId(row), marks[row]});
    }
  }
  if (!source.empty() && !RenderSvg(source, pictures.source, pictures.error)) return pictures;
  if (!converted.empty()) RenderSvg(converted, pictures.converted, pictures.error);
  return pictures;
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
