// Every kind of path given to tesu-convert as input or output: each refused with a message that
// names it and a non-zero exit status, none aborting, none hanging, none leaving a file behind.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "cli_run.h"
#include "graph/model_limits.h"
#include "model_builder.h"
#include "status.h"

namespace {

namespace fs = std::filesystem;

// Keeps opening the FIFO for writing until destroyed, so that a tool stuck opening it for
// reading is let go and fails its test instead of hanging it.
class FifoRelease {
 public:
  explicit FifoRelease(const std::string& path)
      : thread_([this, path] {
          while (!stop_) {
            const int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK);
            if (fd >= 0) close(fd);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
          }
        }) {}
  ~FifoRelease() {
    stop_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

class InputPathTest : public testkit::CliTest {
 protected:
  void SetUp() override {
    testkit::ModelBuilder model;
    model.Data("in");
    model.Unary("abs", "Abs", "in");
    testkit::WriteFile(Path("model.pb"), model.Bytes());
    testkit::WriteFile(Path("file"), "x");
    testkit::WriteFile(Path("empty"), "");
    // Ten bytes with the top bit set are no field tag.
    testkit::WriteFile(Path("garbage"), std::string(65536, '\xff'));
    fs::create_directory(Path("dir"));
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    fs::create_symlink(Path("missing"), Path("dangling"));
    const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(sock);
    fs::create_symlink(Path("loop_a"), Path("loop_b"));
    fs::create_symlink(Path("loop_b"), Path("loop_a"));
    // Sparse: one byte more than protobuf reads as one message, without writing 2 GiB. Its size
    // is no reason to refuse it; its bytes are.
    testkit::WriteFile(Path("huge"), "");
    fs::resize_file(Path("huge"), (uint64_t{1} << 31) + 1);
    inputs_ = Files();
  }

  std::vector<std::string> inputs_;
};

struct PathCase {
  const char* path;  // in the test directory, or absolute
  int exitCode;
  const char* reason;
};

TEST_F(InputPathTest, EveryKindOfModelPathIsRefusedNamingIt) {
  const FifoRelease release(Path("fifo"));
  const PathCase cases[] = {
      {"dir", 1, "it is a directory, not a regular file"},
      {"empty", 1, "the file is empty"},
      {"fifo", 1, "it is a FIFO (named pipe), not a regular file"},
      {"/dev/zero", 1, "it is a character device, not a regular file"},
      {"socket", 1, "it is a socket, not a regular file"},
      {"dangling", 1, "a symbolic link to a file that does not exist"},
      // Unreadable whoever runs the test, root included.
      {"loop_a", 1, "Too many levels of symbolic links"},
      {"file/model.pb", 1, "Not a directory"},
      {"huge", 13,
       "not a model, neither its JSON form nor a serialised ModelDef: no valid field tag"},
      {"garbage", 13, "not a model, neither its JSON form nor a serialised ModelDef"},
  };
  for (const PathCase& c : cases) {
    const std::string path = c.path[0] == '/' ? c.path : Path(c.path);
    for (const bool toJson : {false, true}) {
      SCOPED_TRACE(path + (toJson ? " --to-json" : ""));
      const auto r = toJson ? Run({"--to-json", "--model", path, "--json", Path("o.json")})
                            : Run({"--model", path, "--output", Path("o.pb")});
      // The JSON dump hands a readable file to the plug-in as it is: the plug-in judges it.
      if (toJson && c.exitCode == tesu::kNotAModel) {
        EXPECT_EQ(r.exitCode, 1) << r.err;
        EXPECT_NE(r.err.find("ToJson(463)"), std::string::npos) << r.err;
        continue;
      }
      EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
      EXPECT_NE(r.err.find("cannot read " + path + ": " + c.reason), std::string::npos) << r.err;
    }
  }
  EXPECT_EQ(Files(), inputs_);
}

TEST_F(InputPathTest, JsonModelsBeyondTheLimitsAreRefusedBeforeProtobufParsesThem) {
  std::string ops;
  for (size_t i = 0; i <= tov::kMaxGraphNodes; ++i) ops += i == 0 ? "{}" : ",{}";
  const std::string tooDeep = std::string(40, '[') + std::string(40, ']');
  const PathCase cases[] = {
      {"many.json", 1, "the model has more than 4000000 nodes"},
      {"deep.json", 1, "the JSON nests deeper than 32 levels"},
  };
  testkit::WriteFile(Path("many.json"), R"({"graph": [{"op": [)" + ops + "]}]}");
  testkit::WriteFile(Path("deep.json"), R"({"attr": {"a": )" + tooDeep + "}}");
  for (const PathCase& c : cases) {
    const auto r = Run({"--model", Path(c.path), "--output", Path("o.pb")});
    EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
    EXPECT_NE(r.err.find(c.reason), std::string::npos) << r.err;
  }
}

TEST_F(InputPathTest, UnusableOutputPathsAreRefusedBeforeConverting) {
  const std::string model = Path("model.pb");
  struct OutputCase {
    std::vector<std::string> args;
    std::string message;
  };
  const OutputCase cases[] = {
      {{"--output", Path("nowhere/o.pb")},
       "cannot write model " + Path("nowhere/o.pb") + ": it is in directory " + Path("nowhere") +
           ", which does not exist"},
      {{"--output", Path("dir/")}, "cannot write model " + Path("dir/") + ": it names a directory"},
      {{"--output", Path("o.pb"), "--json", Path("file/o.json")},
       "cannot write json " + Path("file/o.json") + ": it is in " + Path("file") +
           ", which is not a directory"},
      {{"--output", Path("o.pb"), "--report", Path("dir")}, "cannot write report " + Path("dir")},
      {{"--to-json", "--json", Path("dir")}, "cannot write json " + Path("dir")},
  };
  for (const OutputCase& c : cases) {
    SCOPED_TRACE(c.message);
    std::vector<std::string> args{"--model", model};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const auto r = Run(args);
    EXPECT_EQ(r.exitCode, 1) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("converted"), std::string::npos) << r.err;
  }
  EXPECT_EQ(Files(), inputs_);
}

}  // namespace
