// Where a program finds its plug-ins (beside it in a build tree, under its prefix once installed,
// always relative to the real program rather than a link to it), and loading them.
#include <sys/stat.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "files.h"
#include "framework/plugin_loader.h"

namespace {

namespace fs = std::filesystem;

TEST(PluginDirectoryTest, FirstExistingCandidateBesideTheRealProgram) {
  struct Case {
    const char* name;
    std::vector<const char*> dirs;  // made under the case's root
    const char* link;  // when set, the program is run through this link to usr/bin/tool
    const char* expected;
  };
  const std::vector<Case> cases = {
      {"build tree", {"usr/bin/plugins"}, nullptr, "usr/bin/plugins"},
      {"installed", {"usr/lib/tesu/plugins"}, nullptr, "usr/lib/tesu/plugins"},
      {"beside wins", {"usr/bin/plugins", "usr/lib/tesu/plugins"}, nullptr, "usr/bin/plugins"},
      {"through a link",
       {"usr/lib/tesu/plugins", "opt/plugins"},
       "opt/tool",
       "usr/lib/tesu/plugins"},
      {"none: the first", {}, nullptr, "usr/bin/plugins"},
  };
  const std::vector<std::string> candidates = {"plugins", "../lib/tesu/plugins"};
  testkit::TempDir temp;
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    const fs::path root = temp.Path(std::to_string(i));
    fs::create_directories(root / "usr/bin");
    testkit::WriteFile((root / "usr/bin/tool").string(), "");
    for (const char* dir : c.dirs) fs::create_directories(root / dir);
    fs::path program = root / "usr/bin/tool";
    if (c.link != nullptr) {
      fs::create_directories((root / c.link).parent_path());
      fs::create_symlink(program, root / c.link);
      program = root / c.link;
    }
    EXPECT_EQ(tesu::PluginDirectoryBeside(program.string(), candidates),
              fs::canonical(root).append(c.expected).string())
        << c.name;
  }
}

TEST(PluginDirectoryTest, FlagThenEnvironmentThenNoCandidate) {
  EXPECT_EQ(tesu::ResolvePluginDirectory("given"), "given");
  ::setenv("TESU_PLUGIN_DIR", "from_env", 1);
  EXPECT_EQ(tesu::ResolvePluginDirectory(""), "from_env");
  ::setenv("TESU_PLUGIN_DIR", "", 1);  // set but empty: as if unset
  EXPECT_EQ(
      tesu::ResolvePluginDirectory(""),
      tesu::PluginDirectoryBeside("/proc/self/exe", tesu::DefaultPluginDirectoryCandidates()));
  ::unsetenv("TESU_PLUGIN_DIR");
  EXPECT_EQ(tesu::PluginDirectoryBeside("/proc/self/exe", {}), "");
  EXPECT_EQ(tesu::PluginDirectoryBeside("/no/such/tool", {"plugins"}), "/no/such/plugins");
}

// Only lib*.so files are opened; one that is not a library is reported and the rest still load.
// A FIFO named like a library is reported and skipped, not opened (which would block).
TEST(PluginLoadTest, BrokenLibrariesAreReportedAndAnUnlistableDirectoryRefused) {
  testkit::TempDir dir;
  for (const char* name : {"libbroken.so", "lib.so", "notlib.so", "libtext.txt"}) {
    dir.Write(name, "not a library");
  }
  ASSERT_EQ(mkfifo(dir.Path("libfifo.so").c_str(), 0600), 0);
  tesu::PluginLoadResult result;
  std::string error;
  ASSERT_TRUE(tesu::LoadPlugins(dir.Path(), result, error));
  EXPECT_TRUE(result.loaded.empty());
  ASSERT_EQ(result.errors.size(), 2u);
  EXPECT_EQ(result.errors[0], dir.Path("libfifo.so") + ": not a regular file");
  EXPECT_NE(result.errors[1].find("libbroken.so"), std::string::npos) << result.errors[1];
  EXPECT_FALSE(tesu::LoadPlugins(dir.Path("missing"), result, error));
  EXPECT_NE(error.find("cannot list plug-in directory"), std::string::npos) << error;
}

// An exception thrown by a plug-in's static constructor cannot be caught around the load: the
// process ends, but first says which plug-in threw what. Other loads keep the terminate handler.
TEST(PluginLoadTest, ALibraryThatThrowsWhileLoadingIsNamedBeforeTheProcessEnds) {
  const std::terminate_handler before = std::get_terminate();
  tesu::PluginLoadResult result;
  std::string error;
  ASSERT_TRUE(tesu::LoadPlugins(testkit::TempDir().Path(), result, error));
  EXPECT_EQ(std::get_terminate(), before);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(tesu::LoadPlugins(THROWING_PLUGIN_DIR, result, error),
               "plug-in " THROWING_PLUGIN_DIR
               "/libthrowing_plugin.so threw while it was loading: registration table is corrupt");
}

}  // namespace
