// Where outputs land: through links, into streams and devices in place, keeping permissions, and
// never two outputs (or an output and the model) on one file.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <thread>

#include <gtest/gtest.h>

#include "files.h"
#include "framework/output_clash.h"
#include "framework/output_file.h"

namespace {

namespace fs = std::filesystem;
using testkit::ReadFile;
using testkit::TempDir;

mode_t ModeOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
  return info.st_mode;
}

// Reads everything written to `fd` on a thread of its own, so that a writer never blocks.
class Drain {
 public:
  explicit Drain(std::function<int()> open)
      : thread_([this, open] {
          const int fd = open();
          char buffer[4096];
          for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;)
            text_.append(buffer, size_t(n));
          close(fd);
        }) {}
  std::string Text() {
    thread_.join();
    return text_;
  }

 private:
  std::string text_;
  std::thread thread_;
};

TEST(OutputFileTest, LinksAreFollowedStreamsWrittenInPlaceAndPermissionsKept) {
  const TempDir dir;
  umask(022);
  const struct Case {
    const char* name;
    std::function<std::string()> prepare;  // returns the path to write
    std::function<void()> check;           // after "new" was written
  } cases[] = {
      {"link to a file",
       [&] {
         dir.Write("target", "old");
         fs::create_symlink("target", dir.Path("link"));
         return dir.Path("link");
       },
       [&] {
         EXPECT_TRUE(S_ISLNK(ModeOf(dir.Path("link"))));
         EXPECT_EQ(ReadFile(dir.Path("target")), "new");
       }},
      {"chain of links, the last dangling",
       [&] {
         fs::create_directory(dir.Path("sub"));
         fs::create_symlink("../sub/missing", dir.Path("sub/hop"));
         fs::create_symlink(dir.Path("sub/hop"), dir.Path("first"));
         return dir.Path("first");
       },
       [&] {
         EXPECT_TRUE(S_ISLNK(ModeOf(dir.Path("first"))) && S_ISLNK(ModeOf(dir.Path("sub/hop"))));
         EXPECT_EQ(ReadFile(dir.Path("sub/missing")), "new");
       }},
      {"file of mode 0600",
       [&] {
         const std::string path = dir.Write("private", "old");
         chmod(path.c_str(), 0600);
         return path;
       },
       [&] { EXPECT_EQ(ModeOf(dir.Path("private")), S_IFREG | 0600); }},
      {"file of mode 0751 behind a link",
       [&] {
         const std::string path = dir.Write("script", "old");
         chmod(path.c_str(), 0751);
         fs::create_symlink("script", dir.Path("script.link"));
         return dir.Path("script.link");
       },
       [&] { EXPECT_EQ(ModeOf(dir.Path("script")), S_IFREG | 0751); }},
      {"new file", [&] { return dir.Path("fresh"); },
       [&] { EXPECT_EQ(ModeOf(dir.Path("fresh")), S_IFREG | 0644); }},
      {"character device", [] { return std::string("/dev/null"); },
       [] { EXPECT_TRUE(S_ISCHR(ModeOf("/dev/null"))); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(tesu::WriteFileAtomically(c.prepare(), "new"), tesu::SUCCESS);
    c.check();
  }
  for (const std::string& name : dir.Entries()) EXPECT_EQ(name.find(".tmp."), std::string::npos);
}

TEST(OutputFileTest, FifosSocketsAndDescriptorsReceiveTheBytesInPlace) {
  const TempDir dir;
  ASSERT_EQ(mkfifo(dir.Path("fifo").c_str(), 0600), 0);
  fs::create_symlink("fifo", dir.Path("fifo.link"));
  Drain fifo([&] { return open(dir.Path("fifo").c_str(), O_RDONLY); });
  EXPECT_EQ(tesu::WriteFileAtomically(dir.Path("fifo.link"), "through a fifo"), tesu::SUCCESS);
  EXPECT_EQ(fifo.Text(), "through a fifo");
  EXPECT_TRUE(S_ISFIFO(ModeOf(dir.Path("fifo"))));

  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, dir.Path("socket").c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  Drain socketReader([&] { return accept(listener, nullptr, nullptr); });
  EXPECT_EQ(tesu::WriteFileAtomically(dir.Path("socket"), "through a socket"), tesu::SUCCESS);
  EXPECT_EQ(socketReader.Text(), "through a socket");
  close(listener);

  // A descriptor named through /proc is written, not the file the link shows.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Drain pipeReader([&] { return ends[0]; });
  const std::string fdPath = "/proc/self/fd/" + std::to_string(ends[1]);
  EXPECT_EQ(tesu::WriteFileAtomically(fdPath, "through a pipe"), tesu::SUCCESS);
  close(ends[1]);
  EXPECT_EQ(pipeReader.Text(), "through a pipe");
  EXPECT_EQ(dir.Entries(), (std::vector<std::string>{"fifo", "fifo.link", "socket"}));
}

TEST(OutputFileTest, FailuresLeaveTheTargetAndNoTemporaryFile) {
  const TempDir dir;
  dir.Write("kept", "old");
  fs::create_symlink("loop.b", dir.Path("loop.a"));
  fs::create_symlink("loop.a", dir.Path("loop.b"));
  EXPECT_EQ(tesu::WriteFileAtomically(dir.Path("loop.a"), "x"), tesu::FILE_WRITE_FAILED);
  EXPECT_THROW(
      tesu::WriteFileAtomically(dir.Path("kept"), [](int) -> bool { throw std::bad_alloc(); }),
      std::bad_alloc);
  EXPECT_EQ(ReadFile(dir.Path("kept")), "old");
  EXPECT_EQ(dir.Entries(), (std::vector<std::string>{"kept", "loop.a", "loop.b"}));
}

TEST(OutputClashTest, SameFileHoweverSpelledIsRefusedNamingBothFlags) {
  const TempDir dir;
  const std::string model = dir.Write("m.pb", "model");
  dir.Write("x", "x");
  fs::create_directory(dir.Path("sub"));
  fs::create_symlink("x", dir.Path("x.link"));
  fs::create_hard_link(dir.Path("x"), dir.Path("x.hard"));
  fs::create_symlink("m.pb", dir.Path("m.link"));
  const auto p = [&](const std::string& name) { return dir.Path(name); };
  const struct Case {
    std::vector<tesu::FlaggedPath> outputs;
    std::string clash;  // empty when none
  } cases[] = {
      {{{"--check_report", model}},
       "--check_report " + model + " would overwrite the model (--model " + model +
           "); the model is only read"},
      {{{"--output", p("m.link")}}, "would overwrite the model"},
      {{{"--output", p("d.out")}, {"--json", p("d.out")}},
       "--output " + p("d.out") + " and --json " + p("d.out") +
           " name the same file; each output needs a file of its own"},
      {{{"--dot", p("a")}, {"--dot-source", p("sub/../a")}}, "--dot " + p("a") + " and"},
      {{{"--output", p("new")}, {"--report", p("./sub/../new")}}, "name the same file"},
      {{{"--json", p("x.link")}, {"--output", p("x")}}, "--json " + p("x.link") + " and"},
      {{{"--json", p("x.hard")}, {"--dot", p("x")}}, "name the same file"},
      {{{"--output", p("o")}, {"--check_report", p("o/check_result.json")}}, ""},
      {{{"--output", "/dev/null"},
        {"--json", "/dev/null"},
        {"--dot", "/dev/stdout"},
        {"--dot-source", "/dev/stdout"}},
       ""},
      {{{"--output", p("o")}, {"--json", p("o.json")}, {"--check_report", p("x")}}, ""},
  };
  for (const Case& c : cases) {
    const std::string found = tesu::FindOutputClash({"--model", model}, c.outputs);
    SCOPED_TRACE(found);
    EXPECT_EQ(found.empty(), c.clash.empty());
    EXPECT_NE(found.find(c.clash), std::string::npos);
  }
  EXPECT_EQ(dir.Entries(),
            (std::vector<std::string>{"m.link", "m.pb", "sub", "x", "x.hard", "x.link"}));
}

}  // namespace
