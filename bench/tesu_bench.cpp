// Throughput of load, the whole parse and save against the floor: protobuf parsing the same
// bytes and nothing else. Prints Google Benchmark's table, then a summary of time per node and
// the ratio of each step to the floor.
//   tesu_bench            sizes 10k, 100k and 1M nodes, plus a 100 MB weight-heavy model
//   tesu_bench --smoke    the 10k model only, each step once; checks results, reports no times
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_models.h"
#include "framework/model_parser.h"
#include "graph/model.h"
#include "graph/proto/model.pb.h"
#include "log/log.h"
#include "orvane_parser.h"

namespace {

struct Sample {
  std::string bytes;
  size_t nodes = 0;
};

const Sample& SampleFor(const std::string& kind, size_t size) {
  static std::map<std::string, Sample> cache;
  const std::string key = kind + std::to_string(size);
  auto found = cache.find(key);
  if (found != cache.end()) return found->second;
  Sample sample;
  if (kind == "weights") {
    sample.bytes = bench::WeightHeavyModel(size);
  } else {
    sample.bytes = bench::GraphHeavyModel(size, kind == "graph");
  }
  tesu::proto::ModelDef def;
  def.ParseFromString(sample.bytes);
  sample.nodes = static_cast<size_t>(def.graph(0).op_size());
  return cache.emplace(key, std::move(sample)).first->second;
}

void SetCounters(benchmark::State& state, const Sample& sample) {
  state.counters["nodes"] = static_cast<double>(sample.nodes);
  state.counters["ns_per_node"] = benchmark::Counter(
      static_cast<double>(sample.nodes) * 1e-9,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * sample.bytes.size()));
}

tov::Model LoadOrSkip(benchmark::State& state, const Sample& sample) {
  tov::Model model;
  if (model.Load(reinterpret_cast<const uint8_t*>(sample.bytes.data()), sample.bytes.size()) != 0) {
    state.SkipWithError("Model::Load failed");
  }
  return model;
}

void Floor(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    tesu::proto::ModelDef def;
    if (!def.ParseFromString(sample.bytes)) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(def);
  }
  SetCounters(state, sample);
}

void Load(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    tov::Model model = LoadOrSkip(state, sample);
    benchmark::DoNotOptimize(model);
  }
  SetCounters(state, sample);
}

void Parse(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  tesu::OrvaneModelParser parser;
  for (auto _ : state) {
    tesu::ParserOptions options;
    std::vector<tov::BaseBuffer> buffers{tov::BaseBuffer(
        reinterpret_cast<const uint8_t*>(sample.bytes.data()), sample.bytes.size())};
    tov::Graph graph;
    if (parser.ParseFromMemory(options, buffers, graph) != 0 || !graph.IsValid()) {
      state.SkipWithError("ParseFromMemory failed");
    }
    benchmark::DoNotOptimize(graph);
  }
  SetCounters(state, sample);
}

void Save(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  tov::Model model = LoadOrSkip(state, sample);
  for (auto _ : state) {
    std::string bytes;
    if (model.Save(bytes) != 0) state.SkipWithError("Save failed");
    benchmark::DoNotOptimize(bytes);
  }
  SetCounters(state, sample);
}

// Modifiable walk that removes every node it visits except the input: O(N) overall, so the time
// per node must not grow with the graph.
void WalkRemovingNodes(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    tov::Model model = LoadOrSkip(state, sample);
    auto graph = tov::GraphUtils::GetComputeGraph(model.GetGraph());
    state.ResumeTiming();
    graph->ROLE(GraphListWalker)
        .WalkAllNodesModifiable([](tov::Node& node) { return node.GetType() != "Data"; },
                                [&graph](tov::Node& node) { return graph->RemoveNode(node); });
    state.PauseTiming();
    if (graph->GetNodesSize() != 1) state.SkipWithError("walk left nodes behind");
    model = tov::Model();
    graph.reset();
    state.ResumeTiming();
  }
  SetCounters(state, sample);
}

// Keeps every run so that the summary can relate each step to the floor.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  explicit SummaryReporter(bool printSummary) : printSummary_(printSummary) {}
  size_t Errors() const { return errors_; }

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred) {
        ++errors_;
        continue;
      }
      const auto nodes = run.counters.find("nodes");
      times_[run.benchmark_name()] = {run.GetAdjustedRealTime(),
                                      nodes == run.counters.end() ? 0.0 : nodes->second.value};
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    if (!printSummary_) return;
    std::printf("\n%-24s %10s %12s %10s\n", "step", "ms", "ns/node", "x floor");
    for (const auto& [name, entry] : times_) {
      // "parse_graph/100000" relates to "floor_graph/100000".
      const auto floor = times_.find("floor_" + name.substr(name.find('_') + 1));
      const double ratio = floor == times_.end() ? 0.0 : entry.ms / floor->second.ms;
      std::printf("%-24s %10.2f %12.1f %10.2f\n", name.c_str(), entry.ms,
                  entry.nodes > 0 ? entry.ms * 1e6 / entry.nodes : 0.0, ratio);
    }
  }

 private:
  struct Entry {
    double ms;
    double nodes;
  };
  std::map<std::string, Entry> times_;
  bool printSummary_;
  size_t errors_ = 0;
};

void Register(const std::string& kind, const std::vector<int64_t>& sizes, bool smoke) {
  const std::pair<const char*, void (*)(benchmark::State&, std::string)> steps[] = {
      {"floor_", Floor}, {"load_", Load}, {"parse_", Parse}, {"save_", Save}};
  for (const auto& [prefix, fn] : steps) {
    auto* b = benchmark::RegisterBenchmark((prefix + kind).c_str(), fn, kind);
    for (int64_t size : sizes) b->Arg(size);
    b->Unit(benchmark::kMillisecond);
    if (smoke) b->Iterations(1);
  }
  if (kind != "weights") {
    auto* b = benchmark::RegisterBenchmark(("walkremove_" + kind).c_str(), WalkRemovingNodes, kind);
    for (int64_t size : sizes) b->Arg(size);
    b->Unit(benchmark::kMillisecond);
    if (smoke) b->Iterations(1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool smoke = false;
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--smoke") == 0) {
      smoke = true;
    } else {
      args.push_back(argv[i]);
    }
  }
  int count = static_cast<int>(args.size());
  tesu::log::SetLevel(AI_LOG_ERROR);
  if (smoke) {
    Register("graph", {10000}, true);
    Register("weights", {8}, true);
  } else {
    Register("graph", {10000, 100000, 1000000}, false);
    Register("nochurn", {10000, 100000, 1000000}, false);
    Register("weights", {100}, false);
  }
  benchmark::Initialize(&count, args.data());
  // Each step checks its results; a failure marks its run as an error and fails the program.
  SummaryReporter reporter(!smoke);
  const size_t runs = benchmark::RunSpecifiedBenchmarks(&reporter);
  return runs > 0 && reporter.Errors() == 0 ? 0 : 1;
}
