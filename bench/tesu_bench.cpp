// What a conversion costs against what protobuf alone costs on the same bytes. For each model:
//   floor_parse      protobuf parsing the bytes into a ModelDef on an arena, arena released
//   floor_serialize  protobuf serialising that message
//   load             Model::Load of bytes in memory (tensor bytes copied)
//   load_mapped      Model::Load of the same bytes mapped from a file (tensors refer to them)
//   parse            the whole ParseFromMemory, with the time of each of its steps
//   save             Model::Save of the loaded model
// Every step is repeated and its best run kept. Each reports its time per node, the heap
// allocations per node and the peak of live heap bytes per node; a summary table relates load
// and parse to the parse floor and save to the serialise floor.
//   tesu_bench            block models of 10k, 100k and 1M nodes, small-node models of 100k and
//                         1M, and a 100 MB weight-heavy model
//   tesu_bench --smoke    the smallest models, each step once; checks results, reports no times
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <google/protobuf/arena.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_models.h"
#include "framework/model_parser.h"
#include "framework/profiler.h"
#include "graph/mapped_file.h"
#include "graph/model.h"
#include "graph/proto/model.pb.h"
#include "heap_counter.h"
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
  } else if (kind == "small") {
    sample.bytes = bench::SmallNodeModel(size);
  } else {
    sample.bytes = bench::GraphHeavyModel(size);
  }
  tesu::proto::ModelDef def;
  def.ParseFromString(sample.bytes);
  sample.nodes = static_cast<size_t>(def.graph(0).op_size());
  return cache.emplace(key, std::move(sample)).first->second;
}

const uint8_t* Bytes(const Sample& sample) {
  return reinterpret_cast<const uint8_t*>(sample.bytes.data());
}

// Counts the heap use of the timed loop; call before the loop and Finish after it.
class HeapScope {
 public:
  HeapScope() { bench::ResetHeapCounts(); }
  void Finish(benchmark::State& state, const Sample& sample) const {
    const bench::HeapCounts counts = bench::ReadHeapCounts();
    const double nodes = static_cast<double>(sample.nodes);
    state.counters["nodes"] = nodes;
    state.counters["ns_per_node"] = benchmark::Counter(
        nodes * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["allocs_per_node"] =
        static_cast<double>(counts.allocations) / static_cast<double>(state.iterations()) / nodes;
    state.counters["peak_bytes_per_node"] = static_cast<double>(counts.peakBytes) / nodes;
    state.counters["file_bytes"] = static_cast<double>(sample.bytes.size());
    state.counters["peak_bytes"] = static_cast<double>(counts.peakBytes);
  }
};

google::protobuf::ArenaOptions ArenaOptionsLikeLoad() {
  google::protobuf::ArenaOptions options;
  options.start_block_size = 64 * 1024;
  options.max_block_size = 4 * 1024 * 1024;
  return options;
}

void FloorParse(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  HeapScope heap;
  for (auto _ : state) {
    google::protobuf::Arena arena(ArenaOptionsLikeLoad());
    auto* def = google::protobuf::Arena::CreateMessage<tesu::proto::ModelDef>(&arena);
    if (!def->ParseFromArray(sample.bytes.data(), static_cast<int>(sample.bytes.size()))) {
      state.SkipWithError("parse failed");
    }
    benchmark::DoNotOptimize(def);
  }
  heap.Finish(state, sample);
}

void FloorSerialize(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  tesu::proto::ModelDef def;
  def.ParseFromString(sample.bytes);
  HeapScope heap;
  for (auto _ : state) {
    std::string bytes;
    if (!def.SerializeToString(&bytes)) state.SkipWithError("serialise failed");
    benchmark::DoNotOptimize(bytes);
  }
  heap.Finish(state, sample);
}

void Load(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  HeapScope heap;
  for (auto _ : state) {
    tov::Model model;
    if (model.Load(Bytes(sample), sample.bytes.size()) != 0) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(model);
  }
  heap.Finish(state, sample);
}

// The sample written to a file and mapped; the file is removed at once, the mapping stays.
std::shared_ptr<const tov::MappedFile> MappedSample(const Sample& sample) {
  const char* tmp = std::getenv("TMPDIR");
  const std::string path = std::string(tmp != nullptr ? tmp : "/tmp") + "/tesu_bench_" +
                           std::to_string(getpid()) + ".pb";
  std::ofstream(path, std::ios::binary)
      .write(sample.bytes.data(), static_cast<std::streamsize>(sample.bytes.size()));
  std::string error;
  std::shared_ptr<const tov::MappedFile> file = tov::MappedFile::Open(path, error);
  std::remove(path.c_str());
  return file;
}

void LoadMapped(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  const std::shared_ptr<const tov::MappedFile> file = MappedSample(sample);
  if (file == nullptr) state.SkipWithError("cannot map the sample");
  HeapScope heap;
  for (auto _ : state) {
    tov::Model model;
    if (file == nullptr || model.Load(file->data(), file->size()) != 0) {
      state.SkipWithError("load failed");
    }
    benchmark::DoNotOptimize(model);
  }
  heap.Finish(state, sample);
}

// The whole parse; each step's time (as --profile records it) becomes a counter in ms.
void Parse(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  tesu::OrvaneModelParser parser;
  std::map<std::string, double> stepMs;
  tesu::Profiler::Enable(true);
  tesu::Profiler::Take();
  HeapScope heap;
  for (auto _ : state) {
    tesu::ParserOptions options;
    std::vector<tov::BaseBuffer> buffers{tov::BaseBuffer(Bytes(sample), sample.bytes.size())};
    tov::Graph graph;
    if (parser.ParseFromMemory(options, buffers, graph) != 0 || !graph.IsValid()) {
      state.SkipWithError("ParseFromMemory failed");
    }
    benchmark::DoNotOptimize(graph);
  }
  heap.Finish(state, sample);
  tesu::Profiler::Enable(false);
  for (const auto& step : tesu::Profiler::Take()) stepMs[step.name] += step.milliseconds;
  for (const auto& [name, ms] : stepMs) {
    state.counters["ms " + name] = ms / static_cast<double>(state.iterations());
  }
}

void Save(benchmark::State& state, std::string kind) {
  const Sample& sample = SampleFor(kind, static_cast<size_t>(state.range(0)));
  tov::Model model;
  if (model.Load(Bytes(sample), sample.bytes.size()) != 0) state.SkipWithError("load failed");
  HeapScope heap;
  for (auto _ : state) {
    std::string bytes;
    if (model.Save(bytes) != 0) state.SkipWithError("save failed");
    benchmark::DoNotOptimize(bytes);
  }
  heap.Finish(state, sample);
}

// Keeps the best repetition of every run so that the summary can relate each step to its floor.
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
      if (run.run_type != Run::RT_Iteration) continue;
      // "parse_graph" + "/100000"
      const std::string name = run.run_name.function_name + "/" + run.run_name.args;
      Entry entry{run.GetAdjustedRealTime(), run.counters};
      auto found = best_.find(name);
      if (found == best_.end() || entry.ms < found->second.ms) best_[name] = entry;
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    if (printSummary_) PrintSummary();
  }

 private:
  struct Entry {
    double ms;
    benchmark::UserCounters counters;
  };

  double Counter(const Entry& entry, const std::string& name) const {
    auto found = entry.counters.find(name);
    return found == entry.counters.end() ? 0.0 : found->second.value;
  }

  const Entry* Find(const std::string& step, const std::string& model) const {
    auto found = best_.find(step + "_" + model);
    return found == best_.end() ? nullptr : &found->second;
  }

  void PrintSummary() const {
    std::vector<std::string> models;
    for (const auto& [name, entry] : best_) {
      if (name.rfind("floor_parse_", 0) == 0) models.push_back(name.substr(12));
    }
    std::printf(
        "\n| model | nodes | parse floor ms | serialise floor ms | Model::Load | "
        "Model::Load mapped | ParseFromMemory | Save | allocs/node (load, parse) | "
        "peak heap/node (parse) |\n"
        "|---|---|---|---|---|---|---|---|---|---|\n");
    for (const std::string& model : models) {
      const Entry* floor = Find("floor_parse", model);
      const Entry* floorOut = Find("floor_serialize", model);
      const Entry* load = Find("load", model);
      const Entry* mapped = Find("load_mapped", model);
      const Entry* parse = Find("parse", model);
      const Entry* save = Find("save", model);
      if (!floor || !floorOut || !load || !mapped || !parse || !save) continue;
      const double nodes = Counter(*parse, "nodes");
      std::printf(
          "| %s | %.0f | %.1f | %.1f | %.1f (%.2fx) | %.1f (%.3fx) | %.1f (%.2fx) | %.1f (%.2fx) | "
          "%.1f, %.1f | %.0f B (%.2fx file) |\n",
          model.c_str(), nodes, floor->ms, floorOut->ms, load->ms, load->ms / floor->ms, mapped->ms,
          mapped->ms / floor->ms, parse->ms, parse->ms / floor->ms, save->ms,
          save->ms / floorOut->ms, Counter(*load, "allocs_per_node"),
          Counter(*parse, "allocs_per_node"), Counter(*parse, "peak_bytes_per_node"),
          Counter(*parse, "peak_bytes") / Counter(*parse, "file_bytes"));
    }
    std::printf("\nSteps of ParseFromMemory (ms):\n");
    for (const std::string& model : models) {
      const Entry* parse = Find("parse", model);
      if (parse == nullptr) continue;
      std::printf("  %-16s", model.c_str());
      for (const auto& [name, counter] : parse->counters) {
        if (name.rfind("ms ", 0) == 0) std::printf("  %s %.1f", name.c_str() + 3, counter.value);
      }
      std::printf("\n");
    }
  }

  std::map<std::string, Entry> best_;
  bool printSummary_;
  size_t errors_ = 0;
};

void Register(const std::string& kind, const std::vector<int64_t>& sizes, bool smoke) {
  const std::pair<const char*, void (*)(benchmark::State&, std::string)> steps[] = {
      {"floor_parse_", FloorParse},
      {"floor_serialize_", FloorSerialize},
      {"load_", Load},
      {"load_mapped_", LoadMapped},
      {"parse_", Parse},
      {"save_", Save}};
  for (const auto& [prefix, fn] : steps) {
    auto* b = benchmark::RegisterBenchmark((prefix + kind).c_str(), fn, kind);
    for (int64_t size : sizes) b->Arg(size);
    b->Unit(benchmark::kMillisecond);
    if (smoke) {
      b->Iterations(1);
    } else {
      b->Repetitions(3);
    }
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
    Register("small", {10000}, true);
    Register("weights", {8}, true);
  } else {
    Register("graph", {10000, 100000, 1000000}, false);
    Register("small", {100000, 1000000}, false);
    Register("weights", {100}, false);
  }
  benchmark::Initialize(&count, args.data());
  SummaryReporter reporter(!smoke);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return reporter.Errors() == 0 ? 0 : 1;
}
