#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <unistd.h>

#include "gateway/wire/limits.h"
#include "tests/gateway/exporter/exporter_fixture.h"
#include "tests/gateway/exporter/tree_of_choices.h"
#include "tests/gateway/link/certificates.h"
#include "tests/gateway/link/flooding_broker.h"
#include "tests/support/port_name.h"

namespace {

using gateway_test::Broker;
using gateway_test::runFor;
using modelgate::Reply;
using modelgate::Request;
using modelgate::Verb;
using test_support::ModelServer;
using test_support::Process;
using test_support::TreeClient;

using ExporterFailure = gateway_test::ExporterTest;

std::string numberTree(const std::string& name, int value) {
  return R"({"name": "Model_x", "children": [{"id": 1, "name": ")" + name +
         R"(", "type": "int32", "value": )" + std::to_string(value) + "}]}";
}

std::string exportDeviceProgram() {
  return test_support::buildDirectory() + "/tests/export_device";
}

TEST_F(ExporterFailure, SaysOnceThatThereIsNoBroker) {
  broker.emplace();
  broker->kill();
  start({"no-such-server"});
  std::size_t attempts = 0;
  // The first one is made again, with the handler of all lines.
  options.log = [&, line = options.log](std::string_view text, bool detail) {
    attempts += text.starts_with("no connection to the broker: ") ? 1 : 0;
    line(text, detail);
  };
  exporter.emplace(loop, options);
  log.clear();
  exporter->start();
  ASSERT_TRUE(until([&] { return attempts == 3; }));
  ASSERT_EQ(log.size(), 1U) << testing::PrintToString(log);
  broker->start();
  ASSERT_TRUE(until([&] { return isReady; }));
  const std::size_t before = attempts;
  broker->kill();
  ASSERT_TRUE(until([&] { return attempts == before + 4; }));
  EXPECT_GE(log.size(), 2U) << "it was connected meanwhile";
  EXPECT_LE(log.size(), 3U) << "lost, and refused";
}

TEST_F(ExporterFailure, OtherServersGoOnWhileOneDoesNotRespond) {
  ModelServer stopped;
  const ModelServer other;
  options.allowSet = {"/"};
  startReady({stopped.name(), other.name()});
  stopped.hang();
  const std::string store = send(Verb::set, storeOf(stopped.name(), "/drive/speed", "1"));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(request(Verb::set, storeOf(other.name(), "/drive/speed", "2")).value, "2");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1900));
  EXPECT_EQ(reply(store).result, ModelSrv::ModelRes_OutcomeUnknown);
  // Sent only if the server has seemed to live meanwhile.
  const bool isUnsent = request(Verb::set, storeOf(stopped.name(), "/drive/speed", "3")).result ==
                        ModelSrv::ModelRes_Unreachable;
  stopped.resume();
  ASSERT_TRUE(until([&] {
    return request(Verb::get, of(stopped.name(), "/drive/speed")).result ==
           ModelSrv::ModelRes_Success;
  }));
  const Reply last = request(Verb::get, of(stopped.name(), "/drive/speed"));
  EXPECT_TRUE(!isUnsent || last.value != "3");
}

TEST_F(ExporterFailure, AStoreThatWaitedTooLongIsNotCarriedOut) {
  ModelServer server;
  options.allowSet = {"/"};
  startReady({server.name()});
  const Reply now = request(Verb::get, of(server.name(), "/drive/speed"));
  server.hang();
  const std::string first = send(Verb::set, storeOf(server.name(), "/drive/label", "x"));
  Request late = storeOf(server.name(), "/drive/speed", "1");
  late.epoch = now.epoch;
  late.until = now.monotonic + 1000;
  const std::string store = send(Verb::set, late);
  // The first request keeps the thread for 2 s.
  EXPECT_EQ(reply(first).result, ModelSrv::ModelRes_OutcomeUnknown);
  EXPECT_EQ(reply(store).result, ModelSrv::ModelRes_Timeout);
  server.resume();
  ASSERT_TRUE(until([&] {
    return request(Verb::get, of(server.name(), "/drive/speed")).result ==
           ModelSrv::ModelRes_Success;
  }));
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).value, "42");
}

TEST_F(ExporterFailure, AServerThatEndsIsDownUntilItIsBack) {
  ModelServer server;
  options.allowSet = {"/"};
  startReady({server.name()});
  const std::string name = nameOf(server.name());
  ASSERT_EQ(request(Verb::watch, of(server.name(), "/")).result, ModelSrv::ModelRes_Success);
  ASSERT_EQ(request(Verb::set, storeOf(server.name(), "/drive/speed", "7")).value, "7");
  const modelgate::ServerState before = state()->servers.at(name);
  server.kill();
  ASSERT_TRUE(until([&] { return !state()->servers.at(name).up; }));
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).result,
            ModelSrv::ModelRes_Unreachable);
  EXPECT_EQ(request(Verb::set, storeOf(server.name(), "/drive/speed", "8")).result,
            ModelSrv::ModelRes_Unreachable);
  EXPECT_EQ(sync(server.name()).at(1), "7");
  server.restart();
  ASSERT_TRUE(until([&] { return state()->servers.at(name).up; }));
  EXPECT_EQ(state()->servers.at(name), before);
  ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 1) == "42"; }));
}

TEST_F(ExporterFailure, AChangedTreeHasANewShape) {
  test_support::TemporaryFile file(numberTree("one", 1));
  ModelServer server({"--tree", file.path()}, true);
  options.json = {"/"};
  startReady({server.name()});
  const std::string name = nameOf(server.name());
  const std::uint64_t before = state()->servers.at(name).shape;
  file.write(R"({"name": "Model_x", "children": [
    {"id": 1, "name": "two", "type": "int32", "value": 5},
    {"id": 2, "name": "node", "children": [{"name": "x", "type": "bool", "value": true}]}]})");
  server.process().signal(SIGHUP);
  ASSERT_TRUE(until([&] { return state()->servers.at(name).shape > before; }));
  ASSERT_TRUE(until([&] { return shape(server.name()).has_value(); }));
  EXPECT_EQ(shape(server.name())->at(0).name, "two");
  EXPECT_EQ(sync(server.name()).at(0), "5");
  ASSERT_TRUE(until([&] { return last("j/" + name + "/node") == R"({"x":true})"; }));
  // What is gone is removed from the broker, too.
  file.write(numberTree("two", 6));
  server.process().signal(SIGHUP);
  ASSERT_TRUE(until([&] { return last("j/" + name + "/node") == ""; }));
  ASSERT_TRUE(until([&] { return last("j/" + name) == R"({"two":6})"; }));
}

TEST_F(ExporterFailure, AServerThatComesLaterIsExported) {
  const std::string port = test_support::uniquePortName();
  startReady({port});
  EXPECT_TRUE(state()->servers.empty());
  test_support::TemporaryFile file(numberTree("one", 1));
  Process server({test_support::modelsrvdProgram(), "--tree", file.path(), "--name", port});
  ASSERT_TRUE(until([&] { return state()->servers.count(nameOf(port)) == 1; }));
  EXPECT_EQ(request(Verb::get, of(port, "/one")).value, "1");
}

TEST_F(ExporterFailure, MirrorsAndTheListOfDevicesAreNotExported) {
  const ModelServer mirror = ModelServer::ofTree(
      R"({"name": "Model_x", "children": [{"name": "_link", "children": []}]})");
  const ModelServer other;
  startReady({mirror.name(), other.name()});
  EXPECT_EQ(state()->servers.count(nameOf(mirror.name())), 0U);
  EXPECT_EQ(state()->servers.count(nameOf(other.name())), 1U);
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log.front(), mirror.name() + " is not exported: it is a mirror");
  EXPECT_EQ(request(Verb::get, of(mirror.name(), "/_link")).result, ModelSrv::ModelRes_NoSuchPart);
}

TEST_F(ExporterFailure, AMirrorThatComesAnewAsAServerIsExported) {
  test_support::TemporaryFile file(
      R"({"name": "Model_x", "children": [{"name": "_link", "children": []}]})");
  ModelServer server({"--tree", file.path()}, true);
  startReady({server.name()});
  EXPECT_TRUE(state()->servers.empty());
  file.write(numberTree("one", 1));
  server.kill();
  server.restart();
  ASSERT_TRUE(until([&] { return state()->servers.count(nameOf(server.name())) == 1; }));
  EXPECT_EQ(request(Verb::get, of(server.name(), "/one")).value, "1");
}

TEST_F(ExporterFailure, ATreeThatWasTooLargeIsExportedWhenItIsNot) {
  test_support::TemporaryFile file(gateway_test::treeOfChoices(1001));
  ModelServer server({"--tree", file.path()}, true);
  startReady({server.name()});
  EXPECT_TRUE(state()->servers.empty());
  const std::vector<std::string> rejection{
      server.name() +
      " is not exported: its tree is too large or has a part that cannot be exported"};
  EXPECT_EQ(log, rejection);
  // Still too large, and said once.
  file.write(gateway_test::treeOfChoices(1002));
  server.process().signal(SIGHUP);
  runFor(loop, std::chrono::seconds(2));
  EXPECT_EQ(log, rejection);
  file.write(numberTree("one", 1));
  server.process().signal(SIGHUP);
  ASSERT_TRUE(until([&] { return state()->servers.count(nameOf(server.name())) == 1; }));
  EXPECT_EQ(request(Verb::get, of(server.name(), "/one")).value, "1");
  // And its changes are followed as those of any other.
  ASSERT_EQ(request(Verb::watch, of(server.name(), "/")).result, ModelSrv::ModelRes_Success);
  TreeClient client(server.name());
  ASSERT_EQ(client.store("/one", "2"), ModelSrv::ModelRes_Success);
  ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 0) == "2"; }));
}

TEST_F(ExporterFailure, RetainedStatesThatTheBrokerMakesUpTakeNoMemory) {
  // Each with other servers, as those of an earlier process.
  std::string flood;
  for (unsigned number = 0; number < 400; ++number) {
    modelgate::DeviceState state;
    for (unsigned i = 0; i < modelgate::maxServers; ++i) {
      state.servers[std::to_string(number) + "-" + std::to_string(i) + std::string(100, 'x')] = {};
    }
    const std::string body = std::string("\0\x0ets/1/f/d/state\0", 17) + encodeState(state);
    flood += '\x31';
    for (std::size_t size = body.size(); size > 0; size >>= 7U) {
      flood += static_cast<char>((size & 0x7FU) | (size > 0x7FU ? 0x80U : 0U));
    }
    flood += body;
  }
  const gateway_test::Certificates certificates;
  certificates.makeServer("broker");
  const gateway_test::FloodingBroker hostile(certificates, "broker", flood, 1);
  std::string error;
  options.link.broker = modelgate::parseBroker(hostile.url(), error).value();
  options.link.caFile = certificates.authority();
  options.fleet = "f";
  options.device = "d";
  options.servers = {"none"};
  options.log = [this](std::string_view line, bool) { log.emplace_back(line); };
  exporter.emplace(loop, options);
  ::malloc_trim(0);
  const long before = test_support::procNumber(::getpid(), "status", "VmRSS:");
  exporter->start();
  ASSERT_TRUE(until([&] { return hostile.hasSentAll(); })) << testing::PrintToString(log);
  runFor(loop, std::chrono::milliseconds(500));
  ::malloc_trim(0);  // What the broker and the decoding have used.
  if (!test_support::sanitized) {
    EXPECT_LT(test_support::procNumber(::getpid(), "status", "VmRSS:") - before, 8 * 1024);
  }
  exporter.reset();
}

TEST_F(ExporterFailure, AllThatIsRetainedIsPublishedAgainToAnEmptyBroker) {
  const ModelServer server;
  options.json = {"/"};
  options.retainValues = true;
  startReady({server.name()});
  const std::string name = nameOf(server.name());
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(until([&] { return last("val/" + name + "/0").has_value(); }));
    viewer->messages.clear();
    broker->kill();
    ASSERT_TRUE(until([&] { return !viewer->link.isConnected(); }));
    broker->start();
    ASSERT_TRUE(viewer->connects());
    ASSERT_TRUE(viewer->subscribes("ts/1/f/d/#"));
    ASSERT_TRUE(until([&] { return shape(server.name()).has_value(); }));
    ASSERT_TRUE(until([&] { return last("j/" + name + "/drive").has_value(); }));
    EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).value, "42");
  }
}

TEST_F(ExporterFailure, ItsStateIsCorrectedIfSomeoneElseRemovesIt) {
  const ModelServer server;
  startReady({server.name()});
  const std::uint64_t epoch = state()->epoch;
  modelgate::Publication removal;
  removal.topic = "ts/1/f/d/state";
  removal.qos = 1;
  removal.retain = true;
  viewer->link.publish(removal);
  ASSERT_TRUE(until([&] { return last("state") == ""; }));
  ASSERT_TRUE(until([&] { return state() && state()->online && state()->epoch == epoch; }));
}

TEST_F(ExporterFailure, TheWillSaysThatAKilledExporterIsOffline) {
  const ModelServer server;
  broker.emplace();
  Process exporterProcess({exportDeviceProgram(), broker->url(), "d", server.name()});
  ASSERT_TRUE(exporterProcess.waitForLine("ready"));
  viewer.emplace(loop, broker->url(), "view");
  ASSERT_TRUE(viewer->connects());
  ASSERT_TRUE(viewer->subscribes("ts/1/f/d/#"));
  ASSERT_TRUE(until([&] { return state() && state()->online; }));
  const auto begin = std::chrono::steady_clock::now();
  exporterProcess.signal(SIGKILL);
  ASSERT_TRUE(until([&] { return !state()->online; }));
  EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
  // Another process, and another epoch.
  const std::uint64_t epoch = state()->epoch;
  Process next({exportDeviceProgram(), broker->url(), "d", server.name()});
  ASSERT_TRUE(next.waitForLine("ready"));
  ASSERT_TRUE(until([&] { return state()->online && state()->epoch != epoch; }));
}

TEST_F(ExporterFailure, OfTwoWithOneNameTheFirstWaits) {
  const ModelServer server;
  startReady({server.name()});
  const std::uint64_t first = state()->epoch;
  auto second = std::make_unique<Process>(
      std::vector<std::string>{exportDeviceProgram(), broker->url(), "d", server.name()});
  ASSERT_TRUE(second->waitForLine("ready"));
  ASSERT_TRUE(until([&] { return state()->online && state()->epoch != first; }));
  const std::uint64_t working = state()->epoch;
  // After 5 s it sees that the other one is at work, and tells it.
  ASSERT_TRUE(until([&] { return state()->conflict; })) << testing::PrintToString(log);
  EXPECT_EQ(state()->epoch, working);
  EXPECT_EQ(log.back(), "another exporter of d is at work; this one waits until it ends");
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).epoch, working);
  second->signal(SIGKILL);
  second.reset();
  ASSERT_TRUE(until([&] { return state()->online && state()->epoch == first; }));
  EXPECT_EQ(request(Verb::get, of(server.name(), "/drive/speed")).epoch, first);
}

TEST_F(ExporterFailure, ASlowBrokerCostsIntermediateValuesOnly) {
  const ModelServer server;
  options.interval = std::chrono::milliseconds(0);
  startReady({server.name()});
  ASSERT_EQ(request(Verb::watch, of(server.name(), "/")).result, ModelSrv::ModelRes_Success);
  broker->pause();
  TreeClient client(server.name());
  const long before = test_support::procNumber(::getpid(), "status", "VmRSS:");
  std::string text;
  for (int i = 0; i < 3000; ++i) {
    text = std::to_string(i) + std::string(3000, 'x');
    ASSERT_EQ(client.store("/drive/label", text), ModelSrv::ModelRes_Success);
    loop.runOnce(std::chrono::steady_clock::now());
  }
  if (!test_support::sanitized) {
    EXPECT_LT(test_support::procNumber(::getpid(), "status", "VmRSS:") - before, 4096);
  }
  broker->resume();
  ASSERT_TRUE(until([&] { return lastInBatches(server.name(), 2) == text; }));
  EXPECT_LT(batches(server.name()).size(), 2000U);
}

}  // namespace
