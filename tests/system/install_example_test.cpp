#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/port_name.h"
#include "tests/support/process.h"

// The examples are built against the files that "cmake --install" installs, and
// the installed shell connects to it.

namespace {

namespace fs = std::filesystem;
using test_support::ExitStatus;
using test_support::Finished;
using test_support::Process;
using test_support::run;

constexpr std::chrono::milliseconds buildLimit{300000};

class InstallExample : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string pattern = (fs::temp_directory_path() / "treescope-example-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    directory() = pattern;
    const Finished installed =
        run({"cmake", "--install", test_support::buildDirectory(), "--prefix", prefix()});
    ASSERT_EQ(installed.status, (ExitStatus{0, 0})) << installed.output << installed.errors;
    // The installed files must not depend on their location.
    fs::rename(prefix(), moved());
  }
  static void TearDownTestSuite() { fs::remove_all(directory()); }

  static fs::path& directory() {
    static fs::path path;
    return path;
  }
  static std::string prefix() { return directory() / "first"; }
  static std::string moved() { return directory() / "prefix"; }
  static std::string source(const std::string& example = "thermostat") {
    return test_support::sourceDirectory() + "/examples/" + example;
  }

  static void build(const std::vector<std::string>& command,
                    const test_support::ProcessOptions& options = {}) {
    const Finished result = run(command, {}, options, buildLimit);
    ASSERT_EQ(result.status, (ExitStatus{0, 0})) << result.output << result.errors;
  }

  static std::string shell(const std::string& commands) {
    const Finished result = run({moved() + "/bin/treescope", "-c", commands});
    EXPECT_EQ(result.status, (ExitStatus{0, 0}));
    return result.output + result.errors;
  }

  /// Builds an example with the CMake package, in the directory `tree`.
  static void buildWithCMake(const std::string& example, const std::string& tree) {
    ASSERT_NO_FATAL_FAILURE(build({"cmake", "-G", "Ninja", "-S", source(example), "-B", tree,
                                   "-DCMAKE_PREFIX_PATH=" + moved(),
                                   "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Wpedantic -Werror",
                                   "-DCMAKE_C_FLAGS=-std=gnu11 -Wall -Wextra -Wpedantic -Werror"}));
    ASSERT_NO_FATAL_FAILURE(build({"cmake", "--build", tree}));
  }

  /// The environment in which Python finds the installed package.
  static test_support::ProcessOptions withPython() {
    test_support::ProcessOptions options;
    const Finished found = run({"sh", "-c", "echo '" + moved() + "'/lib*/python*/*-packages"});
    options.environment = {{"PATH=" + std::string(std::getenv("PATH")),
                            "PYTHONPATH=" + found.output.substr(0, found.output.find('\n')),
                            "PYTHONDONTWRITEBYTECODE=1"}};
    return options;
  }

  /// A thermostat whose first line cannot be written says so by its status, and leaves no mailbox.
  static void expectErrorOfFullOutput(std::vector<std::string> command,
                                      const test_support::ProcessOptions& options) {
    const std::string name = test_support::uniquePortName();
    command.back() = name;
    command.insert(command.begin(), {"sh", "-c", "exec \"$@\" >/dev/full", "sh"});
    const Finished full = run(command, {}, options);
    // Python has a status of its own for that.
    EXPECT_NE(full.status, (ExitStatus{0, 0}));
    EXPECT_EQ(full.errors.find("Traceback"), std::string::npos) << full.errors;
    EXPECT_FALSE(fs::exists(test_support::mailboxPath(name)));
  }

  /// A client of a server without /ticks ends with an error, though its standard input goes on.
  static void expectErrorOfOtherServer(std::vector<std::string> client) {
    const std::string name = test_support::uniquePortName();
    Process other({moved() + "/bin/modelsrvd", "--name", name, "--synthetic", "1x1"});
    ASSERT_TRUE(other.waitForLine("ready " + name)) << other.errors();
    client.push_back(name);
    Process process(client, withPython());
    ASSERT_TRUE(process.waitForExit()) << client[0];
    EXPECT_EQ(process.finish(), (ExitStatus{1, 0}));
    EXPECT_NE(process.errors().find("no such part"), std::string::npos) << process.errors();
  }

  /// Reads and stores the values of the server that `command` runs.
  static void expectThermostat(std::vector<std::string> command,
                               const test_support::ProcessOptions& options = {}) {
    const std::string name = test_support::uniquePortName();
    command.push_back(name);
    Process server(command, options);
    ASSERT_TRUE(server.waitForLine("ready " + name)) << server.errors();
    EXPECT_EQ(shell("cd " + name + ";get setpoint;get temperature[1];get mode"),
              "/setpoint   [20.5]\n/temperature[1] [4]\n/mode   [off]\n");
    EXPECT_EQ(shell("cd " + name + ";set 25 setpoint;set 31 setpoint;set warm mode;set heat mode"),
              "/setpoint   [25]\n/setpoint   [25]\n/mode   [off]\n/mode   [heat]\n");
    EXPECT_EQ(shell("cd " + name + ";set 99 temperature[1]"), "/temperature[1] [4]\n");
    const Finished second = run(command, {}, options);
    EXPECT_EQ(second.status, (ExitStatus{1, 0}));
    EXPECT_EQ(second.errors.find("thermostat: " + name + ": "), 0U) << second.errors;
    expectErrorOfFullOutput(command, options);
    server.signal(SIGTERM);
    EXPECT_EQ(server.finish(), (ExitStatus{0, 0}));
    EXPECT_FALSE(fs::exists(test_support::mailboxPath(name)));
  }
};

TEST_F(InstallExample, IsBuiltWithTheCMakePackage) {
  const std::string tree = directory() / "build";
  ASSERT_NO_FATAL_FAILURE(buildWithCMake("thermostat", tree));
  expectThermostat({tree + "/thermostat"});
  expectThermostat({tree + "/thermostat_c"});
}

TEST_F(InstallExample, IsBuiltWithPkgConfig) {
  const std::string program = directory() / "thermostat";
  test_support::ProcessOptions options;
  options.environment = {
      {"PATH=" + std::string(std::getenv("PATH")),
       "PKG_CONFIG_PATH=" + moved() + "/lib/pkgconfig:" + moved() + "/lib64/pkgconfig"}};
  ASSERT_NO_FATAL_FAILURE(build({"sh", "-c",
                                 "c++ -std=c++20 -o '" + program + "' '" + source() +
                                     "/thermostat.cpp' $(pkg-config --cflags --libs treescope) "
                                     "-Wl,-rpath,$(pkg-config --variable=libdir treescope)"},
                                options));
  expectThermostat({program});
  const std::string inC = directory() / "thermostat_c";
  ASSERT_NO_FATAL_FAILURE(build({"sh", "-c",
                                 "cc -std=gnu11 -o '" + inC + "' '" + source() +
                                     "/thermostat.c' $(pkg-config --cflags --libs libtreescope) "
                                     "-Wl,-rpath,$(pkg-config --variable=libdir libtreescope)"},
                                options));
  expectThermostat({inC});
}

TEST_F(InstallExample, RunsInPython) {
  expectThermostat({"python3", "-X", "dev", "-W", "error", source() + "/thermostat.py"},
                   withPython());
}

TEST_F(InstallExample, TheProgramsOfTheGuideRun) {
  const std::string programs = directory() / "guide";
  fs::create_directory(programs);
  const std::string top = test_support::sourceDirectory();
  ASSERT_NO_FATAL_FAILURE(build({"python3", top + "/tests/bindings/guide_test.py",
                                 top + "/doc/guide.md", moved(), programs}));
}

TEST_F(InstallExample, TheHeaderIsPlainC11AndPlainCpp) {
  for (const std::string compiler : {"cc -std=c11 -x c", "c++ -std=c++11 -x c++"}) {
    ASSERT_NO_FATAL_FAILURE(build({"sh", "-c",
                                   "echo '#include <treescope.h>' | " + compiler +
                                       " -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I '" +
                                       moved() + "/include' -"}));
  }
}

TEST_F(InstallExample, ThermostatsAreShort) {
  for (const auto& [file, lines] : std::vector<std::pair<std::string, int>>{
           {"thermostat.cpp", 60}, {"thermostat.c", 60}, {"thermostat.py", 25}}) {
    std::ifstream text(source() + "/" + file);
    int count = 0;
    for (std::string line; std::getline(text, line); ++count) {
      EXPECT_LE(line.size(), 100U) << file << ": " << line;
    }
    EXPECT_LE(count, lines) << file;
    EXPECT_GT(count, 0) << file;
  }
}

TEST_F(InstallExample, ServesAndWatchesInOtherEventLoops) {
  const std::string tree = directory() / "loops";
  ASSERT_NO_FATAL_FAILURE(buildWithCMake("event_loops", tree));
  const std::string name = test_support::uniquePortName();
  const auto program = [&](const std::string& file) { return tree + "/" + file; };
  const auto startServer = [&](const std::string& kind) {
    auto server = std::make_unique<Process>(std::vector{program(kind + "_server"), name});
    EXPECT_TRUE(server->waitForLine("ready " + name)) << server->errors();
    return server;
  };
  auto server = startServer("epoll");
  EXPECT_EQ(shell("cd " + name + ";set 0 limit;get limit"), "/limit  [1000]\n/limit  [1000]\n");
  std::vector<std::unique_ptr<Process>> clients;
  for (const std::string kind : {"epoll", "sd_event"}) {
    clients.push_back(std::make_unique<Process>(std::vector{program(kind + "_client"), name}));
    EXPECT_TRUE(clients.back()->waitForLine("watching " + name)) << clients.back()->errors();
    EXPECT_TRUE(clients.back()->waitForOutput("ticks "));
  }
  clients.push_back(std::make_unique<Process>(
      std::vector<std::string>{"python3", "-X", "dev", source("event_loops/asyncio_client.py"),
                               name},
      withPython()));
  EXPECT_TRUE(clients.back()->waitForLine("watching " + name)) << clients.back()->errors();
  EXPECT_TRUE(clients.back()->waitForOutput("ticks "));
  server->signal(SIGKILL);
  ASSERT_TRUE(server->waitForExit());
  for (const auto& client : clients) {
    EXPECT_TRUE(client->waitForLine("lost " + name)) << "at once, without a new server";
  }
  server = startServer("sd_event");
  for (const auto& client : clients) {
    EXPECT_TRUE(client->waitForLine("restored " + name));
    EXPECT_TRUE(client->waitForOutput("ticks "));
    ASSERT_TRUE(client->write("the program's own input\n"));
    EXPECT_TRUE(client->waitForLine("the program's own input"));
    EXPECT_EQ(client->finish(), (ExitStatus{0, 0})) << client->errors();
  }
  server->signal(SIGTERM);
  EXPECT_EQ(server->finish(), (ExitStatus{0, 0}));
  EXPECT_FALSE(fs::exists(test_support::mailboxPath(name)));
  for (const std::vector<std::string>& client :
       {std::vector{program("epoll_client")}, std::vector{program("sd_event_client")},
        std::vector<std::string>{"python3", source("event_loops/asyncio_client.py")}}) {
    expectErrorOfOtherServer(client);
  }
}

TEST_F(InstallExample, ReportsItsVersion) {
  test_support::ProcessOptions options;
  options.environment = {
      {"PATH=" + std::string(std::getenv("PATH")),
       "PKG_CONFIG_PATH=" + moved() + "/lib/pkgconfig:" + moved() + "/lib64/pkgconfig"}};
  const Finished version = run({"pkg-config", "--modversion", "treescope"}, {}, options);
  EXPECT_EQ(version.status, (ExitStatus{0, 0})) << version.errors;
  EXPECT_THAT(version.output, testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
