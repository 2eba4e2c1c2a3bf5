#include "graph_pictures.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace tesu {
namespace cli {
namespace report {
namespace {

// The rows to draw, ascending: the most interesting rows first, then one hop around them.
std::vector<size_t> Neighbourhood(const std::vector<NodeComparison>& rows,
                                  const std::vector<Mark>& marks, const PictureLimits& limits) {
  std::vector<std::pair<int, size_t>> ranked;  // weight, row
  for (size_t i = 0; i < rows.size(); ++i) {
    if (marks[i] != Mark::kPlain) {
      ranked.emplace_back(marks[i] == Mark::kUnsupported ? 0 : rows[i].weight, i);
    }
  }
  const size_t centres = std::min(ranked.size(), limits.centres);
  std::partial_sort(ranked.begin(), ranked.begin() + static_cast<std::ptrdiff_t>(centres),
                    ranked.end());
  ranked.resize(centres);

  std::vector<bool> chosen(rows.size(), false);
  std::vector<size_t> drawn;
  auto choose = [&](size_t row) {
    if (chosen[row] || drawn.size() >= limits.drawn) return;
    chosen[row] = true;
    drawn.push_back(row);
  };
  // The centres' producers by name, and the names of the centres, to find their consumers.
  TextIndex producers;
  TextIndex centreNames;
  for (const auto& [weight, row] : ranked) {
    choose(row);
    centreNames.Insert(rows[row].Name(), 0);
    for (const ViewNode* side : {rows[row].before, rows[row].after}) {
      if (side == nullptr) continue;
      ForEachEntry(side->inputs, [&](std::string_view input) {
        if (!input.empty()) producers.Insert(ProducerOf(input), 0);
      });
    }
  }
  // One pass over the graph finds both, rather than an index of every node.
  for (size_t i = 0; i < rows.size() && drawn.size() < limits.drawn; ++i) {
    bool near = producers.Find(rows[i].Name()) != TextIndex::kNone;
    for (const ViewNode* side : {rows[i].before, rows[i].after}) {
      if (near || side == nullptr) continue;
      ForEachEntry(side->inputs, [&](std::string_view input) {
        near = near || (!input.empty() && centreNames.Find(ProducerOf(input)) != TextIndex::kNone);
      });
    }
    if (near) choose(i);
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
    if (!unsupported.empty() && unsupported.count(std::string(row.Name())) != 0) {
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
