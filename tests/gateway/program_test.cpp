// The program modelgate: its two ends with a broker and a model server.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "tests/gateway/link/broker.h"
#include "tests/gateway/link/certificates.h"
#include "tests/support/model_server.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/tree_client.h"

namespace {

using gateway_test::Broker;
using test_support::ExitStatus;
using test_support::Finished;
using test_support::Process;
using Words = std::vector<std::string>;

std::string modelgate() {
  return test_support::buildDirectory() + "/bin/modelgate";
}

Words command(Words arguments) {
  arguments.insert(arguments.begin(), modelgate());
  return arguments;
}

TEST(GatewayProgram, EndsWithStatusTwoIfItsCommandLineIsWrong) {
  const gateway_test::Certificates certificates;
  certificates.makeClient("anna");
  const struct {
    Words arguments;
    std::string error;
  } cases[] = {
      {{}, "expected \"export\" or \"view\"; see modelgate --help"},
      {{"export", "--fleet", "a/b"},
       "--fleet: expected 1 to 64 characters of A-Z, a-z, 0-9, \".\", \"_\", \"-\", got \"a/b\""},
      {{"view", "--group", "no-such-group"}, "--group: no-such-group: no such group"},
      {{"export", "--device", "d", "--user", "u", "--password-file", "/no/such/file"},
       "--password-file: /no/such/file: No such file or directory"},
      {{"export", "--device", "d", "--broker", "mqtts://b", "--cafile", "/no/such/file"},
       "/no/such/file: No such file or directory"},
      {{"view", "--broker", "mqtts://b", "--cert", certificates.certificate("anna"), "--key",
        "/no/such/key"},
       "/no/such/key: No such file or directory"},
  };
  for (const auto& [arguments, error] : cases) {
    const Finished finished = test_support::run(command(arguments));
    EXPECT_EQ(finished.status, (ExitStatus{2, 0})) << finished.errors;
    EXPECT_EQ(finished.errors, "modelgate: " + error + "\n");
    EXPECT_EQ(finished.output, "");
  }
}

TEST(GatewayProgram, ExplainsItself) {
  for (const Words& arguments :
       {Words{"--help"}, Words{"--version"}, Words{"export", "--help"}, Words{"view", "--help"}}) {
    const Finished finished = test_support::run(command(arguments));
    EXPECT_EQ(finished.status, (ExitStatus{0, 0}));
    EXPECT_NE(finished.output, "");
    EXPECT_EQ(finished.errors, "");
  }
}

TEST(GatewayProgram, WaitsForABrokerAndEndsAtASignalWithoutOne) {
  // The tests may run under nohup.
  const auto hangUp = std::signal(SIGHUP, SIG_DFL);
  for (const char* const role : {"export", "view"}) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      Process process(command({role, "--fleet", test_support::uniquePortName(), "--broker",
                               "unix:/tmp/no-such-directory/broker"}),
                      {.mergeErrors = true});
      ASSERT_TRUE(process.waitForOutput("No such file or directory")) << process.output();
      process.signal(number);
      EXPECT_EQ(process.waitForExit(), (ExitStatus{0, 0})) << process.output();
      EXPECT_EQ(process.output().find("ready"), std::string::npos);
    }
  }
  static_cast<void>(std::signal(SIGHUP, hangUp));
}

TEST(GatewayProgram, OutlivesItsTerminalUnderNohup) {
  Process process({"sh", "-c",
                   "trap '' HUP; exec " + modelgate() +
                       " export -v --fleet f --broker unix:/tmp/no-such-directory/b"},
                  {.mergeErrors = true});
  ASSERT_TRUE(process.waitForOutput("No such file or directory")) << process.output();
  process.signal(SIGHUP);
  const std::size_t before = process.output().size();
  // The next attempt.
  EXPECT_TRUE(test_support::eventually([&] {
    return !process.waitForExit(std::chrono::milliseconds(20)) && process.output().size() > before;
  }));
  process.signal(SIGTERM);
  EXPECT_EQ(process.waitForExit(), (ExitStatus{0, 0})) << process.output();
}

TEST(GatewayProgram, TakesTooFewDescriptorsForNoMistakeOfItsUser) {
  if (test_support::sanitized) {
    GTEST_SKIP() << "a sanitizer needs descriptors of its own";
  }
  for (const int descriptors : {4, 5, 6, 7, 8}) {
    // Those that the test has inherited would take the place of its own.
    Process process(
        {"sh", "-c",
         "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ulimit -n " + std::to_string(descriptors) +
             "; exec " + modelgate() + " view --fleet f --broker unix:/tmp/no-such-directory/b"},
        {.mergeErrors = true});
    bool hasEnded = false;
    EXPECT_TRUE(test_support::eventually([&] {
      hasEnded = process.waitForExit(std::chrono::milliseconds(20)).has_value();
      return hasEnded || process.output().find("no connection") != std::string::npos;
    })) << process.output();
    if (!hasEnded) {
      process.signal(SIGTERM);
    }
    EXPECT_EQ(process.waitForExit(), (ExitStatus{hasEnded ? 1 : 0, 0})) << process.output();
  }
}

TEST(GatewayProgram, MakesAServerOfADeviceOneOfThisMachine) {
  const Broker broker({.tcp = true});
  const test_support::ModelServer server;
  const std::string fleet = "fleet-" + std::to_string(::getpid());
  const test_support::TemporaryFile config("broker = " + broker.url() + "\nfleet = " + fleet +
                                           "\ndevice = pump-1\nserver = " + server.name() +
                                           "\nallow-set = /drive\ninterval = 0\n");
  Process exporter(command({"export", "--config", config.path()}));
  ASSERT_TRUE(exporter.waitForLine("ready")) << exporter.errors();
  Process viewer(command({"view", "--broker", broker.tcpUrl(), "--fleet", fleet}));
  ASSERT_TRUE(viewer.waitForLine("ready")) << viewer.errors();
  const std::string mirror =
      "Model_pump-1." + server.name().substr(std::string_view("Model_").size());
  {
    test_support::TreeClient client(mirror);
    ASSERT_EQ(client.connected(), ModelSrv::ModelRes_Success);
    EXPECT_EQ(client.get("/drive/speed"), "42");
    EXPECT_EQ(client.store("/drive/speed", "43"), ModelSrv::ModelRes_Success);
    EXPECT_EQ(client.get("/drive/speed"), "43");
    test_support::TreeClient local(server.name());
    EXPECT_EQ(local.get("/drive/speed"), "43");
  }
  // One that ends in good order is seen at once as lost, and the other one goes on.
  exporter.signal(SIGTERM);
  EXPECT_EQ(exporter.waitForExit(), (ExitStatus{0, 0})) << exporter.errors();
  EXPECT_TRUE(test_support::eventually([&] {
    test_support::TreeClient client(mirror + "~offline");
    return client.connected() == ModelSrv::ModelRes_Success && client.get("/drive/speed") == "43";
  }));
  viewer.signal(SIGINT);
  EXPECT_EQ(viewer.waitForExit(), (ExitStatus{0, 0})) << viewer.errors();
}

TEST(GatewayProgram, SharesItsMirrorsWithAGroupOfItsUserOnly) {
  const Broker broker;
  const std::string fleet = "fleet-" + std::to_string(::getpid());
  // By number, which no group need have.
  const Words view = command({"view", "--broker", broker.url(), "--fleet", fleet, "--group"});
  const auto viewWith = [&view](const std::string& group) {
    Words words = view;
    words.push_back(group);
    return words;
  };
  Process viewer(viewWith(std::to_string(::getegid())));
  EXPECT_TRUE(viewer.waitForLine("ready")) << viewer.errors();
  viewer.signal(SIGTERM);
  EXPECT_EQ(viewer.waitForExit(), (ExitStatus{0, 0})) << viewer.errors();
  Words stranger = viewWith("7000");
  if (::geteuid() == 0) {  // Root may give a pipe to any group.
    stranger.insert(stranger.begin(),
                    {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  }
  const Finished finished = test_support::run(stranger);
  EXPECT_EQ(finished.status, (ExitStatus{2, 0}));
  EXPECT_EQ(finished.errors, "modelgate: --group: this user is not a member of \"7000\"\n");
}

TEST(GatewayProgram, KeepsLittleMemoryForManyValues) {
  const gateway_test::Certificates certificates;
  certificates.makeServer("broker");
  certificates.makeClient("pump-1");
  const Broker broker({.tcp = true, .listener = certificates.listener("broker")});
  test_support::ModelServer server({"--synthetic", "10x1000"});
  Process exporter(command(
      {"export", "--broker", broker.tlsUrl(), "--cafile", certificates.authority(), "--cert",
       certificates.certificate("pump-1"), "--key", certificates.key("pump-1"), "--fleet",
       "fleet-" + std::to_string(::getpid()), "--device", "pump-1", "--server", server.name()}));
  ASSERT_TRUE(exporter.waitForLine("ready")) << exporter.errors();
  if (!test_support::sanitized) {
    EXPECT_TRUE(test_support::eventually([&] {
      return test_support::procNumber(exporter.pid(), "status", "VmRSS:") < 9 * 1024;
    })) << test_support::procNumber(exporter.pid(), "status", "VmRSS:");
  }
  exporter.signal(SIGTERM);
  EXPECT_EQ(exporter.waitForExit(), (ExitStatus{0, 0})) << exporter.errors();
}

}  // namespace
