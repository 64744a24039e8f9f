#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

#include "tests/support/process.h"

// The installation of "cmake --install" is complete, and a shell can be built against
// it.

namespace {

namespace fs = std::filesystem;
using test_support::ExitStatus;
using test_support::Finished;
using test_support::run;
using testing::HasSubstr;
using testing::Not;

constexpr std::chrono::milliseconds buildLimit{600000};

class Install : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string pattern = (fs::temp_directory_path() / "treescope-install-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    directory() = pattern;
    const Finished result =
        run({"cmake", "--install", test_support::buildDirectory(), "--prefix", prefix()});
    ASSERT_EQ(result.status, (ExitStatus{0, 0})) << result.output << result.errors;
  }
  static void TearDownTestSuite() { fs::remove_all(directory()); }

  static fs::path& directory() {
    static fs::path path;
    return path;
  }
  static std::string prefix() { return directory() / "prefix"; }

  static std::string dynamicSection(const std::string& file) {
    const Finished result = run({"readelf", "-d", "-W", prefix() + file});
    EXPECT_EQ(result.status, (ExitStatus{0, 0})) << result.errors;
    return result.output;
  }
};

TEST_F(Install, ProgramsFindTheLibrariesBesideThem) {
  // The environment of the test must not refer to the build tree.
  test_support::ProcessOptions plain;
  plain.environment.emplace();
  plain.directory = "/";
  const Finished shell = run({prefix() + "/bin/treescope", "-h"}, {}, plain);
  EXPECT_EQ(shell.status, (ExitStatus{0, 0}));
  EXPECT_EQ(shell.output + shell.errors, "");
  const Finished server = run({prefix() + "/bin/modelsrvd", "--version"}, {}, plain);
  EXPECT_EQ(server.status, (ExitStatus{0, 0})) << server.errors;
  for (const char* const program : {"/bin/treescope", "/bin/modelsrvd"}) {
    EXPECT_THAT(dynamicSection(program), HasSubstr("runpath: [$ORIGIN/../lib"));
    EXPECT_THAT(dynamicSection(program), HasSubstr("[libkrvsyssrv.so.4]"));
  }
}

TEST_F(Install, LibrariesHaveTheirSonames) {
  EXPECT_THAT(dynamicSection("/lib/libkrvkstd.so.0"), HasSubstr("soname: [libkrvkstd.so.0]"));
  EXPECT_THAT(dynamicSection("/lib/libkrvsyssrv.so.4"), HasSubstr("soname: [libkrvsyssrv.so.4]"));
  EXPECT_THAT(dynamicSection("/lib/libtreescope.so.0"), HasSubstr("soname: [libtreescope.so.0]"));
  for (const char* const library : {"/lib/libkrvsyssrv.so.4", "/lib/libtreescope.so.0"}) {
    EXPECT_THAT(dynamicSection(library), HasSubstr("runpath: [$ORIGIN]"));
  }
}

TEST_F(Install, TheCLibraryExportsWhatItsHeaderDeclaresAndVersionsIt) {
  std::set<std::string> declared;
  std::ifstream header(prefix() + "/include/treescope.h");
  const std::string text{std::istreambuf_iterator<char>(header), {}};
  // At the beginning of a line, after the type of the result.
  const std::regex function("\n(TREESCOPE_CHECKED |)[a-z][\\w *]*?\\b(treescope_\\w+)\\(");
  for (std::sregex_iterator at(text.begin(), text.end(), function), end; at != end; ++at) {
    declared.insert((*at)[2]);
  }
  std::set<std::string> exported;
  const Finished result = run({"nm", "-D", "--defined-only", prefix() + "/lib/libtreescope.so.0"});
  std::istringstream symbols(result.output);
  for (std::string line; std::getline(symbols, line);) {
    std::smatch match;
    if (std::regex_search(line, match, std::regex(" T (.*)@@TREESCOPE_0\\.1$"))) {
      exported.insert(match[1]);
    } else {
      EXPECT_THAT(line, HasSubstr(" A TREESCOPE_0.1"));
    }
  }
  EXPECT_GT(exported.size(), 40U);
  EXPECT_EQ(exported, declared);
}

TEST_F(Install, LibrariesExportTheirInterfaceOnly) {
  const std::regex exported(
      "(KSTD|UtilSrv|EvtSrv|ModelSrv)::|operator (new|delete)|std::[gs]et_new_handler|"
      "__cxa_get_globals");
  for (const char* const library : {"/lib/libkrvkstd.so.0", "/lib/libkrvsyssrv.so.4"}) {
    const Finished result = run({"nm", "-D", "-C", "--defined-only", prefix() + library});
    ASSERT_EQ(result.status, (ExitStatus{0, 0})) << result.errors;
    std::istringstream symbols(result.output);
    for (std::string symbol; std::getline(symbols, symbol);) {
      EXPECT_TRUE(std::regex_search(symbol, exported)) << library << ": " << symbol;
    }
  }
}

TEST_F(Install, NoFileSearchesTheWorkingDirectoryForLibraries) {
  for (const char* const file : {"/bin/treescope", "/bin/modelsrvd", "/lib/libkrvkstd.so.0",
                                 "/lib/libkrvsyssrv.so.4", "/lib/libtreescope.so.0"}) {
    EXPECT_FALSE(
        std::regex_search(dynamicSection(file), std::regex("runpath: \\[(:|[^\\]]*:(:|\\]))")))
        << file;
  }
}

#if STATIC_RUNTIME
TEST_F(Install, NothingLoadsTheCppLibrary) {
  for (const char* const file : {"/bin/treescope", "/bin/modelsrvd", "/lib/libkrvkstd.so.0",
                                 "/lib/libkrvsyssrv.so.4", "/lib/libtreescope.so.0"}) {
    EXPECT_THAT(dynamicSection(file), Not(HasSubstr("[libstdc++"))) << file;
  }
}

#if defined(__x86_64__)
TEST_F(Install, TheShellLoadsNoMathematicalLibrary) {
  for (const char* const file :
       {"/bin/treescope", "/lib/libkrvkstd.so.0", "/lib/libkrvsyssrv.so.4"}) {
    EXPECT_THAT(dynamicSection(file), Not(HasSubstr("[libm."))) << file;
  }
}
#endif
#endif

TEST_F(Install, TheLoaderLooksUpFewNamesForTheTablesOfTheLibraries) {
  // Each costs about 600 instructions of every start of the shell.
  constexpr int allowed = 200;
  const Finished result = run({"readelf", "-r", "-W", prefix() + "/lib/libkrvsyssrv.so.4"});
  ASSERT_EQ(result.status, (ExitStatus{0, 0})) << result.errors;
  // Relocations with a symbol: not those of functions that are looked up when they are called.
  const std::regex symbolic(" R_[A-Z0-9_]+ +[0-9a-f]+ +[_A-Za-z]");
  int count = 0;
  std::istringstream lines(result.output);
  for (std::string line; std::getline(lines, line);) {
    if (std::regex_search(line, symbolic) && line.find("JUMP_SL") == std::string::npos) {
      ++count;
    }
  }
  EXPECT_GT(count, 0);
  EXPECT_LT(count, allowed);
}

#if STATIC_RUNTIME && defined(__x86_64__)
TEST_F(Install, StrippedFilesAreSmall) {
  const std::string stripped = directory() / "stripped";
  const Finished result =
      run({"cmake", "--install", test_support::buildDirectory(), "--prefix", stripped, "--strip"});
  ASSERT_EQ(result.status, (ExitStatus{0, 0})) << result.output << result.errors;
  struct Limit {
    const char* file;
    std::uintmax_t bytes;
  };
  for (const Limit& limit :
       {Limit{"bin/treescope", 900'000}, Limit{"bin/modelsrvd", 1'600'000},
        Limit{"bin/treectl", 650'000}, Limit{"lib/libkrvkstd.so.0", 100'000},
        Limit{"lib/libkrvsyssrv.so.4", 1'150'000}, Limit{"lib/libtreescope.so.0", 1'000'000}}) {
    EXPECT_LE(fs::file_size(fs::path(stripped) / limit.file), limit.bytes) << limit.file;
  }
}
#endif

TEST_F(Install, ContainsEveryPublicHeaderAndNoInternalOne) {
  for (const char* const part : {"kstd", "utilsrv", "evtsrv", "modelsrv"}) {
    const fs::path headers =
        fs::path(test_support::sourceDirectory()) / "platform" / part / "include" / part;
    for (const auto& entry : fs::directory_iterator(headers)) {
      EXPECT_TRUE(
          fs::exists(fs::path(prefix()) / "include/treescope" / part / entry.path().filename()))
          << entry.path();
    }
    EXPECT_FALSE(fs::exists(fs::path(prefix()) / "include/treescope" / part / "source"));
  }
  EXPECT_TRUE(fs::exists(prefix() + "/include/treescope/PROTOCOL.md"));
}

TEST_F(Install, AShellCanBeBuiltAgainstIt) {
  const std::string build = directory() / "build";
  const Finished configured =
      run({"cmake", "-G", "Ninja", "-S", test_support::sourceDirectory(), "-B", build,
           "-DTREESCOPE_PLATFORM=" + prefix(), "-DTREESCOPE_BUILD_TESTS=OFF",
           // That the files compile one by one, the build of the test shows.
           "-DCMAKE_UNITY_BUILD=ON", "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0"},
          {}, {}, buildLimit);
  ASSERT_EQ(configured.status, (ExitStatus{0, 0})) << configured.output << configured.errors;
  const Finished built =
      run({"cmake", "--build", build, "--target", "treescope"}, {}, {}, buildLimit);
  ASSERT_EQ(built.status, (ExitStatus{0, 0})) << built.output << built.errors;
  EXPECT_FALSE(fs::exists(build + "/lib/libkrvsyssrv.so.4"));
  const Finished shell = run({build + "/bin/treescope", "-c", "pwd"});
  EXPECT_EQ(shell.status, (ExitStatus{0, 0}));
  EXPECT_EQ(shell.errors, "");
}

}  // namespace
