#include "framework/output_file.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "framework/pending_outputs.h"
#include "log/log.h"

namespace tesu {
namespace {

constexpr const char* kModule = "TESU_FMK";
constexpr int kMaxLinks = 40;  // as the kernel allows when it resolves a path

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return path.substr(0, std::max<size_t>(slash, 1));  // "/name" lies in "/"
}

std::string BaseNameOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// N when `path` is /proc/self/fd/N or /dev/fd/N, else -1.
int DescriptorNamedBy(const std::string& path) {
  for (const char* prefix : {"/proc/self/fd/", "/dev/fd/"}) {
    const size_t length = std::strlen(prefix);
    if (path.compare(0, length, prefix) != 0 || path.size() == length) continue;
    const std::string digits = path.substr(length);
    if (digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos) {
      return -1;
    }
    return std::stoi(digits);
  }
  return -1;
}

// Reads the link at `path`; empty when it is not one.
std::string LinkTarget(const std::string& path) {
  std::string target(PATH_MAX, '\0');
  const ssize_t n = readlink(path.c_str(), &target[0], target.size());
  if (n <= 0) return std::string();
  target.resize(static_cast<size_t>(n));
  return target;
}

// Creates a fresh temporary file next to `path`, so that the final rename stays within one file
// system, and lists it for removal before it exists. The mode lets the umask decide the
// permissions, as for any newly created file.
int CreateTempFile(const std::string& path, std::optional<PendingOutput>& temp) {
  static std::atomic<unsigned> counter{0};
  const std::string prefix =
      DirectoryOf(path) + "/." + BaseNameOf(path) + ".tmp." + std::to_string(getpid()) + ".";
  for (int attempt = 0; attempt < 100; ++attempt) {
    temp.emplace(prefix + std::to_string(counter.fetch_add(1)));
    const int fd = open(temp->Path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) return fd;
    temp->Keep();  // not created: nothing of ours to remove
    if (errno != EEXIST) return -1;
  }
  return -1;
}

bool WriteAll(int fd, const std::string& bytes) {
  size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    written += static_cast<size_t>(n);
  }
  return true;
}

Status WriteFailed(const std::string& path, int error) {
  AI_Log_Print(AI_LOG_ERROR, kModule, "cannot write %s: %s", path.c_str(), std::strerror(error));
  return FILE_WRITE_FAILED;
}

// Runs the writer on `fd` and closes it; errno holds the first failure when it returns false.
bool RunWriter(int fd, const std::function<bool(int fd)>& writer, bool sync) {
  errno = 0;
  bool ok = false;
  try {
    ok = writer(fd) && (!sync || fsync(fd) == 0);
  } catch (...) {
    close(fd);
    throw;
  }
  if (!ok && errno == 0) errno = EIO;
  const int savedErrno = errno;
  if (close(fd) != 0 && ok) return false;
  errno = savedErrno;
  return ok;
}

int ConnectSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
  const int savedErrno = errno;
  close(fd);
  errno = savedErrno;
  return -1;
}

// Opens a stream, device or descriptor of ours for writing in place.
int OpenDirect(const OutputTarget& target, const struct stat& info) {
  if (target.descriptor >= 0) return fcntl(target.descriptor, F_DUPFD_CLOEXEC, 0);
  if (S_ISSOCK(info.st_mode)) return ConnectSocket(target.path);
  return open(target.path.c_str(), O_WRONLY | O_CLOEXEC);
}

Status WriteDirectly(const std::string& path, const OutputTarget& target, const struct stat& info,
                     const std::function<bool(int fd)>& writer) {
  const int fd = OpenDirect(target, info);
  if (fd < 0 || !RunWriter(fd, writer, /*sync=*/false)) return WriteFailed(path, errno);
  return SUCCESS;
}

Status WriteThroughTempFile(const std::string& path, const std::string& finalPath,
                            const struct stat* existing,
                            const std::function<bool(int fd)>& writer) {
  std::optional<PendingOutput> temp;
  const int fd = CreateTempFile(finalPath, temp);
  if (fd < 0) return WriteFailed(path, errno);
  // A file that is replaced keeps its permission bits.
  if (existing != nullptr && fchmod(fd, existing->st_mode & 07777) != 0) {
    const int savedErrno = errno;
    close(fd);
    return WriteFailed(path, savedErrno);
  }
  if (!RunWriter(fd, writer, /*sync=*/true) ||
      std::rename(temp->Path().c_str(), finalPath.c_str()) != 0) {
    return WriteFailed(path, errno);  // `temp` removes the file
  }
  temp->Keep();
  return SUCCESS;
}

bool IsWrittenDirectly(mode_t mode) {
  return S_ISFIFO(mode) || S_ISCHR(mode) || S_ISSOCK(mode);
}

}  // namespace

bool ResolveOutputTarget(const std::string& path, OutputTarget& target, std::string& error) {
  target.path = path;
  for (int links = 0;; ++links) {
    target.descriptor = DescriptorNamedBy(target.path);
    if (target.descriptor >= 0) return true;
    struct stat info {};
    if (lstat(target.path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return true;
    if (links == kMaxLinks) {
      error = std::strerror(ELOOP);
      return false;
    }
    const std::string next = LinkTarget(target.path);
    if (next.empty()) {
      error = "cannot read the link " + target.path + ": " + std::strerror(errno);
      return false;
    }
    target.path = next.front() == '/' ? next : DirectoryOf(target.path) + "/" + next;
  }
}

Status WriteFileAtomically(const std::string& path, const std::string& bytes) {
  return WriteFileAtomically(path, [&bytes](int fd) { return WriteAll(fd, bytes); });
}

Status WriteFileAtomically(const std::string& path, const std::function<bool(int fd)>& writer) {
  OutputTarget target;
  std::string error;
  if (path.empty() || path.back() == '/') {
    AI_Log_Print(AI_LOG_ERROR, kModule, "cannot write \"%s\": not a file path", path.c_str());
    return FILE_WRITE_FAILED;
  }
  if (!ResolveOutputTarget(path, target, error)) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "cannot write %s: %s", path.c_str(), error.c_str());
    return FILE_WRITE_FAILED;
  }
  struct stat info {};
  const bool exists = target.descriptor < 0 && stat(target.path.c_str(), &info) == 0;
  if (target.descriptor >= 0 || (exists && IsWrittenDirectly(info.st_mode))) {
    return WriteDirectly(path, target, info, writer);
  }
  if (exists && !S_ISREG(info.st_mode)) {
    // Replacing a directory or a disk with a file is never what an output means.
    AI_Log_Print(AI_LOG_ERROR, kModule, "cannot write %s: it is a %s", path.c_str(),
                 S_ISDIR(info.st_mode) ? "directory" : "block device");
    return FILE_WRITE_FAILED;
  }
  return WriteThroughTempFile(path, target.path, exists ? &info : nullptr, writer);
}

namespace {

void RemoveOutputsAndReraise(int signal) {
  const int savedErrno = errno;
  RemovePendingOutputs();
  errno = savedErrno;
  // The action was reset to the default on entry; the signal stays blocked until the handler
  // returns, and then ends the process with the status the shell expects of it.
  raise(signal);
}

}  // namespace

void RemoveTemporaryOutputsOnSignals() {
  for (const int signal : {SIGINT, SIGTERM}) {
    struct sigaction current {};
    if (sigaction(signal, nullptr, &current) != 0 || current.sa_handler != SIG_DFL) continue;
    struct sigaction action {};
    action.sa_handler = RemoveOutputsAndReraise;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND;
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace tesu
