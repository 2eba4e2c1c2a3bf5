// Allocations that fail on the report's worker threads reach the run as std::bad_alloc: no thread
// is left waiting, and no page or temporary file is left behind. A separate executable, because
// it replaces the process-wide operator new.
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "conversion_report.h"
#include "files.h"
#include "model_builder.h"

// Graphviz and fontconfig keep caches for the life of the process, and a render that a failed
// allocation cut short leaves Graphviz's own buffer behind; neither is this code's to free. The
// leak checker of the sanitizer build reads this list; other builds never call it.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libgvc.so\nleak:libfontconfig.so\nleak:libcgraph.so\n";
}

namespace {

// Large allocations of the threads that are not exempt before one fails; negative: none fails.
// One large block fails, as when memory runs out: the small allocations made while memory is
// freed afterwards succeed (destroying a JSON value allocates, in a destructor that cannot throw).
constexpr std::size_t kLarge = 1024;
std::atomic<long> allocationsLeft{-1};
thread_local bool exempt = false;

bool FailThisAllocation(std::size_t size) {
  if (exempt || size < kLarge || allocationsLeft.load() < 0) return false;
  return allocationsLeft.fetch_sub(1) == 0;
}

}  // namespace

void* operator new(std::size_t size) {
  if (FailThisAllocation(size)) throw std::bad_alloc();
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace {

using tesu::cli::report::ConversionReport;

// Runs the report with the workers' large allocation number `allowed` failing; true when the page
// was written, false when the failure reached the run.
bool RunWithWorkerAllocationFailing(long allowed, const testkit::TempDir& dir) {
  testkit::ModelBuilder model;
  model.Data("in");
  model.Unary("act", "Relu", "in");
  const std::string bytes = model.Bytes();
  const auto graph = model.LoadGraph();
  ConversionReport page(dir.Path("r.html"));
  allocationsLeft = allowed;
  try {
    page.ReadSource(bytes, 2);
    page.Compare(graph.get(), nullptr);
    page.Wait();
    const bool written = page.Write(tesu::cli::report::RunFacts()) == tesu::SUCCESS;
    allocationsLeft = -1;
    return written;
  } catch (const std::bad_alloc&) {
    allocationsLeft = -1;
    return false;
  }
}

TEST(ReportAllocationTest, AFailedAllocationInAWorkerEndsTheReportAndNoThreadWaits) {
  exempt = true;
  alarm(120);  // a thread left waiting fails the test instead of hanging it
  const testkit::TempDir dir;
  bool written = false;
  long failures = 0;
  for (long allowed = 0; !written && allowed < 100000; ++allowed) {
    SCOPED_TRACE(allowed);
    written = RunWithWorkerAllocationFailing(allowed, dir);
    const auto entries = dir.Entries();
    EXPECT_EQ(entries, written ? std::vector<std::string>{"r.html"} : std::vector<std::string>{});
    std::filesystem::remove(dir.Path("r.html"));
    failures += written ? 0 : 1;
  }
  EXPECT_TRUE(written);
  EXPECT_GT(failures, 3);
  alarm(0);
}

}  // namespace
