#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/exporter/exporter.h"
#include "gateway/wire/device_state.h"
#include "gateway/wire/request.h"
#include "gateway/wire/shape.h"
#include "gateway/wire/topics.h"
#include "gateway/wire/values.h"
#include "tests/gateway/link/broker.h"
#include "tests/gateway/link/client.h"
#include "tests/support/model_server.h"
#include "tests/support/tree_client.h"

namespace gateway_test {

/// An exporter of the device "d" of the fleet "f", in the test's own loop, and a viewer "me" at the
/// same broker that keeps what it receives.
struct ExporterTest : testing::Test {
  /// Starts the broker if it does not run, and the exporter of `servers`.
  void start(std::vector<std::string> servers);
  /// Waits until it is ready, and connects the viewer.
  void ready();
  void startReady(std::vector<std::string> servers) {
    start(std::move(servers));
    ready();
  }
  /// Ends the exporter in good order.
  void finish();

  bool until(const std::function<bool()>& condition) { return runUntil(loop, condition); }
  /// Runs a program to its end, and the loop meanwhile.
  test_support::Finished run(const std::vector<std::string>& command);

  /// S of a port.
  static std::string nameOf(const std::string& port) {
    return std::string(modelgate::serverInTopics(port));
  }

  /// The last payload of a topic of the device, such as "state", if it came.
  [[nodiscard]] std::optional<std::string> last(const std::string& topic) const;
  [[nodiscard]] std::optional<modelgate::DeviceState> state() const;
  /// The shape that the state lists, once all of its pages are there.
  [[nodiscard]] std::optional<modelgate::Shape> shape(const std::string& server) const;

  /// Sends a request in CBOR and returns the number of it.
  std::string send(modelgate::Verb verb, const modelgate::Request& request,
                   const std::string& correlation = {});
  /// The first reply to it, when it comes.
  modelgate::Reply reply(const std::string& correlation);
  modelgate::Reply request(modelgate::Verb verb, const modelgate::Request& request) {
    return reply(send(verb, request));
  }
  /// All values of the replies to a sync, by position.
  std::map<std::uint32_t, std::string> sync(const std::string& server, std::uint64_t since = 0);

  /// All batches of a server that came with values.
  [[nodiscard]] std::vector<modelgate::Batch> batches(const std::string& server) const;
  /// The last value of a part in batches.
  [[nodiscard]] std::string lastInBatches(const std::string& server, std::uint32_t position) const;

  static modelgate::Request of(const std::string& server, const std::string& path) {
    modelgate::Request request;
    request.server = nameOf(server);
    request.path = path;
    return request;
  }
  static modelgate::Request storeOf(const std::string& server, const std::string& path,
                                    const std::string& value) {
    modelgate::Request request = of(server, path);
    request.value = value;
    return request;
  }

  std::optional<Broker> broker;
  modelgate::EventLoop loop;
  modelgate::ExporterOptions options;
  std::vector<std::string> log;  ///< of the exporter, without details
  std::optional<modelgate::Exporter> exporter;
  bool isReady = false;
  std::optional<Client> viewer;
  unsigned requests = 0;
  std::optional<std::chrono::seconds> expiry = std::chrono::seconds(2);  ///< of requests
};

}  // namespace gateway_test
