#include "tests/gateway/exporter/exporter_fixture.h"

#include <algorithm>
#include <stdexcept>

namespace gateway_test {

using modelgate::Batch;
using modelgate::Format;

namespace {

const std::string devicePrefix = "ts/1/f/d/";
const std::string responseTopic = devicePrefix + "rsp/me/view";

}  // namespace

void ExporterTest::start(std::vector<std::string> servers) {
  if (!broker) {
    broker.emplace();
  }
  std::string error;
  options.link.broker = modelgate::parseBroker(broker->url(), error).value();
  options.fleet = "f";
  options.device = "d";
  options.servers = std::move(servers);
  options.ready = [this] { isReady = true; };
  options.log = [this](std::string_view line, bool detail) {
    if (!detail) {
      log.emplace_back(line);
    }
  };
  isReady = false;
  exporter.emplace(loop, options);
  exporter->start();
}

void ExporterTest::ready() {
  ASSERT_TRUE(until([this] { return isReady; })) << testing::PrintToString(log);
  viewer.emplace(loop, broker->url(), "view");
  ASSERT_TRUE(viewer->connects());
  ASSERT_TRUE(viewer->subscribes(devicePrefix + "#"));
  ASSERT_TRUE(until([this] { return state().has_value(); }));
}

void ExporterTest::finish() {
  bool isDone = false;
  exporter->finish([&] { isDone = true; });
  ASSERT_TRUE(until([&] { return isDone; }));
  exporter.reset();
}

test_support::Finished ExporterTest::run(const std::vector<std::string>& command) {
  test_support::Process process(command);
  process.closeInput();
  const auto deadline = std::chrono::steady_clock::now() + test_support::timeout;
  std::optional<test_support::ExitStatus> status;
  while (!status) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw std::runtime_error("the program does not end: " + process.output());
    }
    loop.runOnce(std::chrono::steady_clock::now() + std::chrono::milliseconds(2));
    status = process.waitForExit(std::chrono::milliseconds(0));
  }
  const auto ended = process.finish();
  return {ended.value_or(*status), process.output(), process.errors()};
}

std::optional<std::string> ExporterTest::last(const std::string& topic) const {
  const auto& messages = viewer->messages;
  const auto found = std::find_if(messages.rbegin(), messages.rend(), [&](const auto& message) {
    return message.topic == devicePrefix + topic;
  });
  return found == messages.rend() ? std::nullopt : std::optional(found->payload);
}

std::optional<modelgate::DeviceState> ExporterTest::state() const {
  const auto payload = last("state");
  return payload ? modelgate::decodeState(*payload) : std::nullopt;
}

std::optional<modelgate::Shape> ExporterTest::shape(const std::string& server) const {
  const auto device = state();
  const auto found =
      device ? device->servers.find(nameOf(server)) : decltype(device->servers.end()){};
  if (!device || found == device->servers.end()) {
    return std::nullopt;
  }
  std::vector<std::string> pages;
  for (std::size_t i = 0; i < found->second.pages.size(); ++i) {
    const auto page = last("shape/" + nameOf(server) + '/' + std::to_string(i));
    if (!page || modelgate::pageHash(*page) != found->second.pages[i]) {
      return std::nullopt;
    }
    pages.push_back(*page);
  }
  std::string error;
  return modelgate::decodeShape(pages, error);
}

std::string ExporterTest::send(modelgate::Verb verb, const modelgate::Request& request,
                               const std::string& correlation) {
  modelgate::Publication publication;
  publication.topic = devicePrefix + "req/" + std::string(verbName(verb)) + "/me";
  publication.payload = modelgate::encodeRequest(request, Format::cbor);
  publication.qos = 1;
  publication.expiry = expiry;
  publication.contentType = contentType(Format::cbor);
  publication.responseTopic = responseTopic;
  publication.correlation = correlation.empty() ? "c" + std::to_string(++requests) : correlation;
  viewer->link.publish(publication);
  return publication.correlation;
}

modelgate::Reply ExporterTest::reply(const std::string& correlation) {
  std::optional<modelgate::Reply> found;
  std::string error;
  until([&] {
    for (const auto& message : viewer->messages) {
      if (!found && message.topic == responseTopic && message.correlation == correlation) {
        found = modelgate::decodeReply(message.payload, message.contentType, error);
      }
    }
    return found.has_value();
  });
  if (!found) {
    throw std::runtime_error("no reply: " + error);
  }
  return *found;
}

std::map<std::uint32_t, std::string> ExporterTest::sync(const std::string& server,
                                                        std::uint64_t since) {
  modelgate::Request request;
  request.server = nameOf(server);
  request.since = since;
  request.epoch = state()->epoch;
  const std::string correlation = send(modelgate::Verb::sync, request);
  std::map<std::uint32_t, std::string> values;
  const bool isComplete = until([&] {
    bool isLast = false;
    values.clear();
    for (const auto& message : viewer->messages) {
      std::string error;
      const auto part = message.correlation == correlation && message.topic == responseTopic
                            ? modelgate::decodeReply(message.payload, message.contentType, error)
                            : std::nullopt;
      const auto batch = part && part->batch ? modelgate::decodeBatch(*part->batch) : std::nullopt;
      for (const auto& value : batch ? batch->values : std::vector<modelgate::PositionedValue>()) {
        values[value.position] = value.value.result == ModelSrv::ModelRes_Success
                                     ? value.value.text
                                     : '<' + std::to_string(value.value.result) + '>';
      }
      isLast |= part && !part->more;
    }
    return isLast;
  });
  if (!isComplete) {
    throw std::runtime_error("no reply to a sync");
  }
  return values;
}

std::vector<Batch> ExporterTest::batches(const std::string& server) const {
  std::vector<Batch> batches;
  for (const auto& message : viewer->messages) {
    if (message.topic == devicePrefix + "upd/" + nameOf(server)) {
      if (auto batch = modelgate::decodeBatch(message.payload); batch && !batch->values.empty()) {
        batches.push_back(std::move(*batch));
      }
    }
  }
  return batches;
}

std::string ExporterTest::lastInBatches(const std::string& server, std::uint32_t position) const {
  std::string last;
  for (const Batch& batch : batches(server)) {
    for (const auto& value : batch.values) {
      if (value.position == position) {
        last = value.value.text;
      }
    }
  }
  return last;
}

}  // namespace gateway_test
