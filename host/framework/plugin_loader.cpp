#include "framework/plugin_loader.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <system_error>

#include "framework/model_parser.h"
#include "log/log.h"

namespace tesu {
namespace {

namespace fs = std::filesystem;

bool IsPluginFileName(const std::string& name) {
  constexpr const char* kPrefix = "lib";
  constexpr const char* kSuffix = ".so";
  return name.size() > 6 && name.compare(0, 3, kPrefix) == 0 &&
         name.compare(name.size() - 3, 3, kSuffix) == 0;
}

// The directory that holds the real file behind `file`. A path that cannot be resolved (the
// file is gone) is used as written.
fs::path RealParentDirectory(const std::string& file) {
  std::error_code ec;
  const fs::path real = fs::canonical(file, ec);
  if (!ec) return real.parent_path();
  return fs::absolute(file, ec).parent_path();
}

std::vector<FrameworkType> NewTypes(const std::vector<FrameworkType>& before,
                                    const std::vector<FrameworkType>& after) {
  std::vector<FrameworkType> added;
  std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                      std::back_inserter(added));
  return added;
}

// The library being loaded, for the terminate handler: an exception thrown by a library's static
// constructor cannot cross the dynamic loader, so the process ends while dlopen runs.
const char* loadingLibrary = nullptr;
std::terminate_handler previousTerminate = nullptr;

std::string CurrentExceptionMessage() {
  const std::exception_ptr thrown = std::current_exception();
  if (thrown == nullptr) return "no exception";
  try {
    std::rethrow_exception(thrown);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "an exception that is not a std::exception";
  }
}

[[noreturn]] void ReportLoadFailureAndTerminate() {
  if (loadingLibrary != nullptr) {
    AI_Log_Print(AI_LOG_ERROR, "TESU_FMK", "plug-in %s threw while it was loading: %s",
                 loadingLibrary, CurrentExceptionMessage().c_str());
  }
  if (previousTerminate != nullptr) previousTerminate();
  std::abort();
}

// Names the library in the terminate handler while it loads; the previous handler is restored
// afterwards and still runs after the report.
class LoadingLibrary {
 public:
  explicit LoadingLibrary(const fs::path& library) {
    loadingLibrary = library.c_str();
    previousTerminate = std::set_terminate(ReportLoadFailureAndTerminate);
  }
  ~LoadingLibrary() {
    std::set_terminate(previousTerminate);
    loadingLibrary = nullptr;
  }
  LoadingLibrary(const LoadingLibrary&) = delete;
  LoadingLibrary& operator=(const LoadingLibrary&) = delete;
};

void* OpenLibrary(const fs::path& library) {
  const LoadingLibrary loading(library);
  return dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
}

}  // namespace

std::vector<std::string> DefaultPluginDirectoryCandidates() {
  // The build tree's layout, then the install layout: TESU_INSTALLED_PLUGIN_DIR is the installed
  // plug-in directory relative to the installed bin/, set by the build from its install paths.
  return {"plugins", TESU_INSTALLED_PLUGIN_DIR};
}

std::string PluginDirectoryBeside(const std::string& file,
                                  const std::vector<std::string>& candidates) {
  if (candidates.empty()) return std::string();
  const fs::path base = RealParentDirectory(file);
  for (const std::string& candidate : candidates) {
    const fs::path dir = (base / candidate).lexically_normal();
    std::error_code ec;
    if (fs::is_directory(dir, ec)) return dir.string();
  }
  return (base / candidates.front()).lexically_normal().string();
}

std::string ResolvePluginDirectory(const std::string& flagValue) {
  if (!flagValue.empty()) return flagValue;
  const char* env = std::getenv("TESU_PLUGIN_DIR");
  if (env != nullptr && *env != '\0') return env;
  return PluginDirectoryBeside("/proc/self/exe", DefaultPluginDirectoryCandidates());
}

bool LoadPlugins(const std::string& dir, PluginLoadResult& result, std::string& error) {
  std::error_code ec;
  std::vector<fs::path> libraries;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    if (!IsPluginFileName(it->path().filename().string())) continue;
    // Only regular files are loaded: opening a FIFO named like a library would block.
    std::error_code kind;
    if (it->is_regular_file(kind)) {
      libraries.push_back(it->path());
    } else {
      result.errors.push_back(it->path().string() + ": not a regular file");
    }
  }
  if (ec) {
    error = "cannot list plug-in directory " + dir + ": " + ec.message();
    return false;
  }
  std::sort(libraries.begin(), libraries.end());
  const ModelParserFactory& factory = *ModelParserFactory::Instance();
  // The types a library registered are read as the difference of the factory's table around its
  // dlopen; two threads loading at once would see each other's registrations, so loads are taken
  // one at a time.
  static std::mutex loadMutex;
  std::lock_guard<std::mutex> lock(loadMutex);
  for (const fs::path& library : libraries) {
    const std::vector<FrameworkType> before = factory.RegisteredTypes();
    if (OpenLibrary(library) != nullptr) {
      result.loaded.push_back(library.string());
      result.frameworks.push_back(NewTypes(before, factory.RegisteredTypes()));
    } else {
      // A failed dlopen always leaves its reason, kept for the calling thread.
      result.errors.push_back(dlerror());
    }
  }
  return true;
}

}  // namespace tesu
