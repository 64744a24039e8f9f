#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "tests/gateway/link/broker.h"
#include "tests/gateway/own_tmp.h"
#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/tree_client.h"

// The programs together: a model server, `modelgate export`, a broker, `modelgate view`, and shells
// and scripts at both ends.

namespace {

using test_support::eventually;
using test_support::Finished;
using test_support::Process;
using test_support::TreeClient;
using testing::HasSubstr;
using testing::Not;

const std::string_view sessionTree = R"({"children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42, "unit": "rpm", "minimum": 0,
     "maximum": 9000, "text": "of the shaft"},
    {"id": 2, "name": "label", "type": "text", "value": "two words"},
    {"id": 3, "name": "gains", "type": "double", "elements": [
      {"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 4, "name": "raw", "type": "uint8", "elements": [{"value": 1}, {"value": 2}, {"value": 3}]},
    {"id": 5, "name": "serial", "type": "text", "value": "A-17", "access": "read-only"},
    {"id": 6, "name": "offset", "type": "float", "value": 0, "access": "protected"},
    {"id": 7, "name": "secret", "type": "bool", "value": false, "subscribable": false},
    {"id": 12, "name": "", "type": "uint16", "value": 7},
    {"id": 13, "name": "speed", "type": "int32", "value": 99}]},
  {"id": 2, "name": "empty", "children": []},
  {"id": 9, "name": "settings", "children": [
    {"name": "mode", "type": "text", "value": "off", "choices": ["off", "slow", "fast"]},
    {"name": "big", "type": "uint64", "value": 18446744073709551615},
    {"name": "ratio", "type": "double", "value": 0.1}]},
  {"id": 4, "name": "a/b*c?[d]\\e", "type": "text", "value": "tab\there\nback\\slash \u0001"},
  {"id": 6, "name": "line\nfeed", "type": "int32", "value": 6},
  {"id": 7, "name": "notes", "type": "text", "elements": [{"value": "one\ntwo"}, {"value": "x"}]}]})";

std::string program(const std::string& name) {
  return test_support::buildDirectory() + "/bin/" + name;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

/// Whether a server of this name takes clients: its mailbox is there a moment before.
bool isThere(const std::string& port) {
  const int mailbox = ::open(("/tmp/" + port + ".fifo").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  return mailbox >= 0 && ::close(mailbox) == 0;
}

class MirrorSession : protected gateway_test::OwnTmp, public testing::Test {
 protected:
  MirrorSession() {
    exporter = startExporter();
    viewer = startViewer();
    EXPECT_TRUE(eventually([this] { return isThere(mirror); }));
  }

  std::unique_ptr<Process> start(std::vector<std::string> arguments, const std::string& name = {}) {
    arguments.insert(arguments.begin(), program("modelgate"));
    arguments.insert(arguments.end(), {"--broker", broker.url(), "--fleet", "field"});
    if (arguments[1] == "export") {
      arguments.insert(arguments.end(), {"--device", name.empty() ? device : name});
    }
    auto process = std::make_unique<Process>(arguments);
    EXPECT_TRUE(process->waitForLine("ready")) << process->errors();
    return process;
  }
  std::unique_ptr<Process> startExporter() {
    return start({"export", "--server", server.name(), "--allow-set", "/", "--interval", "0"});
  }
  std::unique_ptr<Process> startViewer() { return start({"view"}); }

  /// What a shell prints for `commands`, with the name of the mirror as that of the server.
  Finished shell(const std::string& port, const std::string& commands) {
    Finished result =
        test_support::run({program("treescope"), "-c", "cd " + port + ";" + commands});
    result.output = replaced(result.output, mirror, server.name());
    result.errors = replaced(result.errors, mirror, server.name());
    return result;
  }
  Finished treectl(const std::string& port, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), program("treectl"));
    arguments.insert(arguments.begin() + 2, {"-s", port});
    Finished result = test_support::run(arguments);
    // The time of a dump.
    static const std::regex time("\"time\":\"[^\"]*\"");
    result.output = std::regex_replace(replaced(result.output, mirror, server.name()), time, "");
    result.errors = replaced(result.errors, mirror, server.name());
    return result;
  }
  void expectSame(const Finished& local, const Finished& far, const std::string& what) {
    EXPECT_EQ(local.output, far.output) << what;
    EXPECT_EQ(local.errors, far.errors) << what;
    EXPECT_EQ(local.status, far.status) << what;
  }
  std::string get(const std::string& port, const std::string& path) {
    TreeClient client(port);
    return client.get(path);
  }

  gateway_test::Broker broker;
  test_support::ScratchDirectory directory;
  std::string tree = directory.write("tree.json", std::string(sessionTree));
  test_support::ModelServer server{{"--tree", tree}};
  const std::string device = "dev" + std::to_string(getpid());
  const std::string mirror = "Model_" + device + "." + server.name().substr(6);
  std::unique_ptr<Process> exporter;
  std::unique_ptr<Process> viewer;
};

TEST_F(MirrorSession, ShellsPrintTheSameAsOnTheDevice) {
  for (const std::string commands : {"ls drive",
                                     "ls -l drive",
                                     "ls -lr drive settings notes",
                                     "ls -lr drive/gains",
                                     "get drive/speed",
                                     "get drive/gains",
                                     "get drive/gains[1]",
                                     "get drive/gains[p]",
                                     "get drive/gains[9]",
                                     "get nowhere",
                                     "get drive",
                                     "get settings/big",
                                     "get notes",
                                     "get notes[0]",
                                     "get a*",
                                     "cd drive;ls;get label;cd ..;get drive/serial",
                                     "str drive",
                                     "get drive/#12",
                                     "get \"line\nfeed\"",
                                     "ls empty",
                                     "set 43 drive/speed;get drive/speed",
                                     "set 99999 drive/speed",
                                     "set x drive/speed",
                                     "set y drive/serial",
                                     "set 1 drive/offset",
                                     "set 1 nowhere",
                                     "set -1 drive/gains[1];get drive/gains",
                                     "set broken settings/mode",
                                     "set fast settings/mode;get settings/mode",
                                     "set 1 empty",
                                     "set 5 drive/raw[7]",
                                     "set new drive/label;ls -l drive",
                                     "help"}) {
    expectSame(shell(server.name(), commands), shell(mirror, commands), commands);
  }
}

TEST_F(MirrorSession, ScriptsPrintTheSameAsOnTheDevice) {
  const std::vector<std::vector<std::string>> all{
      {"list", "/drive/**"},
      {"list", "/settings/*", "--json"},
      {"get", "/drive/**"},
      {"get", "/drive/speed"},
      {"get", "--json", "/drive/gains"},
      {"get", "/drive/gains[1]"},
      {"get", "/notes"},
      {"get", "/nowhere"},
      {"describe", "/drive/*"},
      {"describe", "--json", "/settings/*"},
      {"describe", "/notes"},
      {"dump", "/drive"},
      {"dump", "/settings"},
      {"set", "/drive/speed", "44"},
      {"get", "/drive/speed"},
      {"set", "/drive/speed", "99999"},
      {"set", "/drive/speed", "fast"},
      {"set", "/drive/serial", "B"},
      {"set", "/drive/offset", "1"},
      {"set", "/settings/mode", "wrong"},
      {"set", "/drive/gains[0]", "2.5"},
      {"get", "/drive/gains"},
      {"watch", "--count", "2", "/drive/gains", "/drive/speed"},
  };
  for (const auto& arguments : all) {
    std::string what;
    for (const std::string& argument : arguments) {
      what += argument + ' ';
    }
    expectSame(treectl(server.name(), arguments), treectl(mirror, arguments), what);
  }
}

TEST_F(MirrorSession, StoresReachTheDeviceAndComeBack) {
  EXPECT_EQ(shell(mirror, "set 4711 drive/speed").status, test_support::ExitStatus());
  EXPECT_EQ(get(server.name(), "/drive/speed"), "4711");
  EXPECT_EQ(get(mirror, "/drive/speed"), "4711");
}

TEST_F(MirrorSession, ValuesMoveAsOnTheDevice) {
  TreeClient far(mirror);
  ASSERT_EQ(far.subscribe("/drive/speed"), ModelSrv::ModelRes_Success);
  TreeClient local(server.name());
  for (int i = 100; i < 200; ++i) {
    ASSERT_EQ(local.store("/drive/speed", std::to_string(i)), ModelSrv::ModelRes_Success);
  }
  EXPECT_TRUE(far.pumpUntil([&] { return far.get("/drive/speed") == "199"; }));
}

TEST_F(MirrorSession, FollowsAServerThatIsStartedAgain) {
  ASSERT_EQ(get(mirror, "/drive/speed"), "42");
  server.kill();
  EXPECT_TRUE(eventually([this] { return isThere(mirror + "~offline"); }));
  EXPECT_EQ(get(mirror + "~offline", "/drive/speed"), "42");
  server.restart();
  ASSERT_TRUE(eventually([this] { return isThere(mirror); }));
  EXPECT_TRUE(eventually([this] { return get(mirror, "/drive/speed") == "42"; }));
}

TEST_F(MirrorSession, FollowsATreeThatIsLoadedAnew) {
  TreeClient far(mirror);
  ASSERT_EQ(far.get("/drive/speed"), "42");
  tree = directory.write("tree.json", R"({"children": [{"id": 1, "name": "drive", "children": [
      {"id": 1, "name": "speed", "type": "int32", "value": 43},
      {"id": 2, "name": "extra", "type": "text", "value": "new"}]}]})");
  server.process().signal(SIGHUP);
  EXPECT_TRUE(eventually([&] { return far.get("/drive/extra") == "new"; }));
  EXPECT_TRUE(eventually([&] { return far.get("/drive/speed") == "43"; }));
  EXPECT_FALSE(far.has("/settings"));
  expectSame(treectl(server.name(), {"describe", "/drive/*"}),
             treectl(mirror, {"describe", "/drive/*"}), "describe");
}

TEST_F(MirrorSession, SurvivesABrokerThatIsKilledAndRestartedEmpty) {
  TreeClient far(mirror);
  ASSERT_EQ(far.get("/drive/speed"), "42");
  broker.kill();
  EXPECT_TRUE(eventually([&] { return far.get("/_link/state") == "unreachable"; }));
  EXPECT_EQ(far.store("/drive/speed", "1"), ModelSrv::ModelRes_Unreachable);
  EXPECT_EQ(far.get("/drive/speed"), "42");
  TreeClient local(server.name());
  ASSERT_EQ(local.store("/drive/speed", "50"), ModelSrv::ModelRes_Success);
  broker.start();
  EXPECT_TRUE(eventually([&] { return far.get("/drive/speed") == "50"; }));
  EXPECT_EQ(far.store("/drive/speed", "51"), ModelSrv::ModelRes_Success);
  EXPECT_EQ(local.get("/drive/speed"), "51");
}

TEST_F(MirrorSession, SeesADeviceThatIsKilledAndBackAgain) {
  ASSERT_EQ(get(mirror, "/drive/speed"), "42");
  exporter->signal(SIGKILL);
  EXPECT_TRUE(eventually([this] { return isThere(mirror + "~offline") && !isThere(mirror); }));
  EXPECT_EQ(get(mirror + "~offline", "/drive/speed"), "42");
  TreeClient local(server.name());
  ASSERT_EQ(local.store("/drive/speed", "60"), ModelSrv::ModelRes_Success);
  exporter = startExporter();
  ASSERT_TRUE(eventually([this] { return isThere(mirror); }));
  EXPECT_TRUE(eventually([this] { return get(mirror, "/drive/speed") == "60"; }));
  EXPECT_FALSE(isThere(mirror + "~offline"));
}

TEST_F(MirrorSession, AViewerThatIsKilledTakesItsPortsAlong) {
  viewer->signal(SIGKILL);
  ASSERT_TRUE(viewer->waitForExit());
  TreeClient client(mirror);
  EXPECT_EQ(client.connected(), ModelSrv::ModelRes_NotConnected);
  viewer = startViewer();
  EXPECT_TRUE(eventually([this] { return get(mirror, "/drive/speed") == "42"; }));
}

TEST_F(MirrorSession, EndsCleanlyOnASignal) {
  TreeClient client(mirror);
  ASSERT_EQ(client.get("/drive/speed"), "42");
  viewer->signal(SIGTERM);
  const auto status = viewer->waitForExit();
  ASSERT_TRUE(status);
  EXPECT_EQ(*status, test_support::ExitStatus());
  EXPECT_FALSE(isThere(mirror));
}

TEST_F(MirrorSession, ADeviceThatAllowsNoStoresDeniesThem) {
  exporter->signal(SIGTERM);
  ASSERT_TRUE(exporter->waitForExit());
  ASSERT_TRUE(eventually([this] { return isThere(mirror + "~offline"); }));
  exporter = start({"export", "--server", server.name(), "--allow-set", "/settings"});
  ASSERT_TRUE(eventually([this] { return isThere(mirror) && !isThere(mirror + "~offline"); }));
  TreeClient client(mirror);
  EXPECT_EQ(client.store("/drive/speed", "1"), ModelSrv::ModelRes_Denied);
  const Finished denied = treectl(mirror, {"set", "/drive/speed", "1"});
  EXPECT_EQ(denied.status, (test_support::ExitStatus{7, 0}));
  EXPECT_THAT(denied.errors, HasSubstr("the device does not allow stores here"));
  EXPECT_EQ(client.store("/settings/mode", "slow"), ModelSrv::ModelRes_Success);
  EXPECT_EQ(client.get("/drive/speed"), "42");
}

TEST_F(MirrorSession, SaysWhatBecameOfAStore) {
  ASSERT_EQ(get(mirror, "/drive/speed"), "42");
  const std::string address = "treectl: /drive/speed: ";
  const std::string unknown = "; it may or may not have stored the value\n";
  const auto expectStore = [&](int status, const std::string& text) {
    const Finished finished = treectl(mirror, {"set", "/drive/speed", "7"});
    EXPECT_EQ(finished.status, (test_support::ExitStatus{status, 0}));
    // On a busy machine the client may give up first, after 2 s.
    EXPECT_THAT(finished.errors,
                testing::AnyOf(address + text, address + "the server does not answer\n"));
  };
  server.hang();
  expectStore(8, "the device " + device + " did not reply in time" + unknown);
  server.resume();
  EXPECT_TRUE(eventually([this] { return get(mirror, "/drive/speed") == "7"; }));
  exporter->signal(SIGSTOP);
  expectStore(8, "the device " + device + " did not reply in time" + unknown);
  exporter->signal(SIGCONT);
  broker.kill();
  EXPECT_TRUE(eventually([this] { return get(mirror, "/_link/state") == "unreachable"; }));
  expectStore(4, "the device " + device + " cannot be reached\n");
}

TEST_F(MirrorSession, AViewerThatWasStoppedHasTheLastValues) {
  TreeClient far(mirror);
  ASSERT_EQ(far.get("/drive/speed"), "42");
  viewer->signal(SIGSTOP);
  TreeClient local(server.name());
  for (int i = 0; i < 3'000; ++i) {
    ASSERT_EQ(local.store(i % 2 == 0 ? "/drive/speed" : "/drive/label", std::to_string(i)),
              ModelSrv::ModelRes_Success);
  }
  viewer->signal(SIGCONT);
  EXPECT_TRUE(eventually([&] { return far.get("/drive/speed") == "2998"; }));
  EXPECT_TRUE(eventually([&] { return far.get("/drive/label") == "2999"; }));
}

TEST_F(MirrorSession, ASecondViewerTakesTheNamesWhenTheyAreFree) {
  const auto second = startViewer();
  EXPECT_TRUE(eventually([&] {
    static_cast<void>(second->readLine(std::chrono::milliseconds(1)));
    return second->errors().find(mirror) != std::string::npos;
  }));
  viewer->signal(SIGTERM);
  ASSERT_TRUE(viewer->waitForExit());
  EXPECT_TRUE(eventually([this] { return get(mirror, "/drive/speed") == "42"; }));
}

TEST_F(MirrorSession, AMirrorIsNotExported) {
  std::vector<std::string> arguments{"export", "--allow-set", "/"};
  if (!isOwn) {
    // Every server of the machine would include those of other tests.
    arguments.insert(arguments.end(), {"--server", mirror, "--server", server.name()});
  }
  const auto all = start(arguments, device + "b");
  const std::string second = "Model_" + device + "b.";
  EXPECT_TRUE(eventually([&] { return isThere(second + server.name().substr(6)); }));
  EXPECT_FALSE(isThere(second + mirror.substr(6)));
}

}  // namespace
