// What the fuzz targets share: a silent log and a private scratch directory.
#ifndef TESU_FUZZ_FUZZ_SUPPORT_H
#define TESU_FUZZ_FUZZ_SUPPORT_H

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <google/protobuf/stubs/logging.h>

#include "log/log.h"

namespace fuzzsupport {

// Every rejected input logs a line; formatting it still runs, printing it would drown the
// fuzzer's own output. Protocol buffers complain about invalid UTF-8 on their own.
inline void SilenceLog() {
  tesu::log::SetSink([](int, const std::string&, const std::string&) {});
  google::protobuf::SetLogHandler(nullptr);
}

// A directory of this process for the files a target writes, in memory when /dev/shm exists
// (the writers fsync every file). It is emptied and removed at exit.
inline const std::string& ScratchDir() {
  static const std::string dir = [] {
    std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    pattern += "/tesu-fuzz-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
      std::perror("mkdtemp");
      std::abort();
    }
    return pattern;
  }();
  static const bool cleanupRegistered = [] {
    std::atexit([] {
      if (DIR* listing = opendir(dir.c_str())) {
        while (const dirent* entry = readdir(listing)) {
          if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            std::remove((dir + "/" + entry->d_name).c_str());
          }
        }
        closedir(listing);
      }
      rmdir(dir.c_str());
    });
    return true;
  }();
  (void)cleanupRegistered;
  return dir;
}

// Reports a broken invariant the way a crash is reported, so the fuzzer keeps the input.
[[noreturn]] inline void Fail(const char* what) {
  std::fprintf(stderr, "invariant broken: %s\n", what);
  std::abort();
}

}  // namespace fuzzsupport

#endif
