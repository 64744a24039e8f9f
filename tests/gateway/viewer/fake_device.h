#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "gateway/wire/device_state.h"
#include "gateway/wire/request.h"
#include "gateway/wire/shape.h"
#include "gateway/wire/topics.h"
#include "gateway/wire/values.h"
#include "tests/gateway/link/client.h"

namespace gateway_test {

/// A device with one server, "plant", as an exporter would show it, made by hand. For the thread of
/// its loop.
class FakeDevice {
 public:
  using Reply = modelgate::Reply;
  using Request = modelgate::Request;

  FakeDevice(modelgate::EventLoop& loop, const std::string& url, const std::string& name)
      : loop_(loop), topics("fleet", name), client(loop, options(url, name)) {
    client.onMessage = [this](const modelgate::Message& message) { take(message); };
    state.online = true;
    state.epoch = 77;
    state.heartbeat = 10'000;
    state.monotonic = monotonic();
    shape = {part(1, 1, "speed", "int32"), part(1, 2, "label", "text")};
    values = {"42", "hello"};
  }

  static modelgate::ShapePart part(unsigned depth, ModelSrv::ModelPartId id, std::string name,
                                   std::string type) {
    modelgate::ShapePart result;
    result.depth = depth;
    result.id = id;
    result.name = std::move(name);
    result.type = std::move(type);
    result.access = result.type == "node" ? ModelSrv::ModelPartStatus_Void
                                          : ModelSrv::ModelPartStatus_ReadWrite;
    return result;
  }

  /// Runs the loop until the broker has everything.
  void begin() {
    EXPECT_TRUE(client.connects());
    EXPECT_TRUE(client.subscribes(topics.requests()));
    publishShape();
    publishState();
    EXPECT_TRUE(runUntil(loop_, [this] { return client.link.hasCapacity(); }));
  }

  void publishShape() {
    const auto pages = modelgate::encodeShape(shape);
    auto& server = state.servers["plant"];
    ++server.shape;
    server.parts = shape.size();
    server.pages.clear();
    for (std::size_t i = 0; i < pages.size(); ++i) {
      server.pages.push_back(modelgate::pageHash(pages[i]));
      publish(topics.shape("plant", i), pages[i], 1, true);
    }
  }
  void publishState() { publish(topics.state(), modelgate::encodeState(state), 1, true); }
  void publish(const std::string& topic, const std::string& payload, int qos, bool retain) {
    modelgate::Publication publication;
    publication.topic = topic;
    publication.payload = payload;
    publication.qos = qos;
    publication.retain = retain;
    EXPECT_TRUE(client.link.publish(publication));
  }

  /// Sends a batch with these changes; `lose` counts it, but does not send it.
  void change(const std::map<std::uint32_t, std::string>& changes, bool lose = false) {
    modelgate::Batch batch = emptyBatch();
    batch.previous = sequence;
    batch.sequence = ++sequence;
    for (const auto& [position, text] : changes) {
      values[position] = text;
      batch.values.push_back({position, ModelSrv::ModelPartIndex_All, {success, text}});
    }
    if (!lose) {
      publish(topics.updates("plant"), modelgate::encodeBatch(batch), 0, false);
    }
  }

  [[nodiscard]] modelgate::Batch emptyBatch() const {
    modelgate::Batch batch;
    batch.epoch = state.epoch;
    batch.shape = state.servers.at("plant").shape;
    batch.sequence = sequence;
    batch.previous = sequence;
    batch.monotonic = monotonic();
    return batch;
  }

  [[nodiscard]] static std::uint64_t monotonic() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          modelgate::EventLoop::Clock::now().time_since_epoch())
                                          .count());
  }

  modelgate::DeviceState state;
  modelgate::Shape shape;
  std::vector<std::string> values;
  std::uint64_t sequence = 1;
  std::vector<std::string> elements;  ///< what a get of an element replies with
  bool isMute = false;                ///< replies to nothing
  /// What a set or load does; by default it stores.
  std::function<Reply(const Request&)> onStore;
  std::vector<std::pair<modelgate::Verb, Request>> requests;

 private:
  static constexpr auto success = ModelSrv::ModelRes_Success;

  static modelgate::LinkOptions options(const std::string& url, const std::string& name) {
    modelgate::LinkOptions result = Client::options(url, "ts-fleet-" + name);
    modelgate::Publication will;
    will.topic = modelgate::Topics("fleet", name).state();
    will.payload = R"({"online": false, "epoch": 77})";
    will.qos = 1;
    will.retain = true;
    result.will = will;
    result.willDelay = std::chrono::seconds(0);
    return result;
  }

  void take(const modelgate::Message& message) {
    const auto topic = modelgate::parseTopic(message.topic);
    if (!topic || topic->sort != "req") {
      return;
    }
    const auto verb = modelgate::findVerb(topic->rest.substr(0, topic->rest.find('/')));
    std::string error;
    const auto request = modelgate::decodeRequest(message.payload, message.contentType, error);
    if (!verb || !request) {
      ADD_FAILURE() << message.topic << ": " << error;
      return;
    }
    requests.emplace_back(*verb, *request);
    if (isMute) {
      return;
    }
    modelgate::Publication publication;
    publication.topic = message.responseTopic;
    publication.qos = 1;
    publication.contentType = modelgate::contentType(modelgate::Format::cbor);
    publication.correlation = message.correlation;
    publication.payload = modelgate::encodeReply(replyTo(*verb, *request), modelgate::Format::cbor);
    EXPECT_TRUE(client.link.publish(publication));
  }

  Reply replyTo(modelgate::Verb verb, const Request& request) {
    Reply reply;
    if (verb == modelgate::Verb::watch) {
      reply.lease = 60'000;
    } else if (verb == modelgate::Verb::sync) {
      modelgate::Batch batch = emptyBatch();
      for (std::uint32_t i = 0; i < values.size(); ++i) {
        batch.values.push_back({i, ModelSrv::ModelPartIndex_All, {success, values[i]}});
      }
      reply.batch = modelgate::encodeBatch(batch);
    } else if (verb == modelgate::Verb::get) {
      reply.result = ModelSrv::ModelRes_NoValue;
      if (request.chain && request.index < elements.size()) {
        reply.result = success;
        reply.value = elements[request.index];
      }
    } else if (onStore) {
      reply = onStore(request);
    } else {
      const auto position = static_cast<std::size_t>(request.chain->back() - 1);
      values[position] = *request.value;
      reply.value = values[position];
    }
    reply.epoch = state.epoch;
    reply.sequence = sequence;
    reply.monotonic = monotonic();
    reply.time = std::chrono::duration_cast<std::chrono::milliseconds>(
                     std::chrono::system_clock::now().time_since_epoch())
                     .count();
    return reply;
  }

  modelgate::EventLoop& loop_;

 public:
  const modelgate::Topics topics;
  Client client;
};

}  // namespace gateway_test
