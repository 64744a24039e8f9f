#include "bench/fleet/simulated_device.h"

#include <chrono>

namespace bench {

namespace {

using namespace ModelSrv;
using namespace modelgate;
using namespace std::chrono_literals;

constexpr std::string_view server = "host";
constexpr std::size_t changingPart = 1;

/// The same for all devices.
const Shape& shape() {
  static const Shape parts = [] {
    constexpr ModelPartId nodes = 4;
    constexpr ModelPartId values = 5;
    Shape all;
    for (ModelPartId node = 0; node < nodes; ++node) {
      all.push_back({1,
                     node,
                     "group_" + std::to_string(node),
                     "node",
                     ModelPartStatus_Void,
                     true,
                     0,
                     {},
                     {}});
      for (ModelPartId value = 0; value < values; ++value) {
        all.push_back({2,
                       value,
                       "item_" + std::to_string(value),
                       "int32",
                       ModelPartStatus_ReadWrite,
                       true,
                       0,
                       {},
                       {}});
      }
    }
    return all;
  }();
  return parts;
}

const std::string& page() {
  static const std::string first = encodeShape(shape()).front();
  return first;
}

std::map<std::string, std::size_t>& countedLosses() {
  static std::map<std::string, std::size_t> counts;
  return counts;
}

std::uint64_t monotonicNow() {
  const auto now = EventLoop::Clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::int64_t realNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

Publication retained(std::string topic, std::string payload) {
  Publication publication;
  publication.topic = std::move(topic);
  publication.payload = std::move(payload);
  publication.qos = 1;
  publication.retain = true;
  return publication;
}

std::string pathOf(std::size_t position) {
  const Shape& parts = shape();
  std::size_t node = position;
  while (parts[node].depth > 1) {
    --node;
  }
  const std::string path = "/" + parts[node].name;
  return node == position ? path : path + "/" + parts[position].name;
}

std::vector<ModelPartId> chainOf(std::size_t position) {
  const Shape& parts = shape();
  std::size_t node = position;
  while (parts[node].depth > 1) {
    --node;
  }
  return node == position ? std::vector<ModelPartId>{parts[node].id}
                          : std::vector<ModelPartId>{parts[node].id, parts[position].id};
}

}  // namespace

SimulatedDevice::SimulatedDevice(EventLoop& loop, LinkOptions link, const std::string& fleet,
                                 const std::string& device, std::uint64_t epoch)
    : loop_(loop),
      topics_(fleet, device),
      epoch_(epoch),
      link_(loop, withWill(std::move(link), topics_, fleet, device, epoch), handlers()) {
  for (const ShapePart& part : shape()) {
    values_.push_back(part.type == "node" ? "" : "0");
  }
}

LinkOptions SimulatedDevice::withWill(LinkOptions link, const Topics& topics,
                                      const std::string& fleet, const std::string& device,
                                      std::uint64_t epoch) {
  DeviceState offline;
  offline.epoch = epoch;
  link.clientId = "ts-" + fleet + "-" + device;
  link.will = retained(topics.state(), encodeState(offline));
  return link;
}

BrokerLink::Handlers SimulatedDevice::handlers() {
  BrokerLink::Handlers handlers;
  handlers.connected = [this] { publishAll(); };
  handlers.disconnected = [](std::string_view reason, bool /*takenOver*/) {
    ++countedLosses()[std::string(reason)];
  };
  handlers.message = [this](const Message& message) { handle(message); };
  handlers.subscribed = [](std::string_view /*filter*/, bool /*granted*/) {};
  handlers.writable = [] {};
  return handlers;
}

const std::map<std::string, std::size_t>& SimulatedDevice::losses() {
  return countedLosses();
}

void SimulatedDevice::publishAll() {
  DeviceState state;
  state.online = true;
  state.epoch = epoch_;
  state.time = realNow();
  state.monotonic = monotonicNow();
  state.version = "simulated";
  state.servers[std::string(server)] = {true, 1, {pageHash(page())}, shape().size()};
  Publication publication = retained(topics_.state(), encodeState(state));
  publication.expiry = 1h;
  // What the broker does not take now is published on the next connection.
  static_cast<void>(link_.subscribe(topics_.requests(), 1));
  static_cast<void>(link_.publish(retained(topics_.shape(server, 0), page())));
  static_cast<void>(link_.publish(publication));
}

void SimulatedDevice::handle(const Message& message) {
  const auto topic = parseTopic(message.topic);
  if (!topic || topic->sort != "req") {
    return;
  }
  const std::size_t slash = std::min(topic->rest.find('/'), topic->rest.size());
  const auto verb = findVerb(topic->rest.substr(0, slash));
  const std::string_view user = topic->rest.substr(std::min(slash + 1, topic->rest.size()));
  std::string error;
  const auto request = decodeRequest(message.payload, message.contentType, error);
  if (!verb || !request || !message.responseTopic.starts_with(topics_.reply(user, ""))) {
    return;
  }
  Publication reply;
  const Format format = formatOf(message.payload, message.contentType);
  reply.topic = message.responseTopic;
  reply.payload = encodeReply(carryOut({*request, *verb}), format);
  reply.qos = 1;
  reply.contentType = contentType(format);
  reply.correlation = message.correlation;
  static_cast<void>(link_.publish(reply));
}

std::size_t SimulatedDevice::find(const Request& request) const {
  std::size_t position = 0;
  while (position < values_.size() && request.path != pathOf(position) &&
         request.chain != chainOf(position)) {
    ++position;
  }
  return position;
}

Reply SimulatedDevice::carryOut(const Target& target) {
  Reply reply;
  reply.epoch = epoch_;
  reply.sequence = sequence_;
  reply.monotonic = monotonicNow();
  reply.time = realNow();
  if (target.verb == Verb::sync) {
    reply.batch = encodeBatch(batchOf(allValues()));
    return reply;
  }
  if (target.verb == Verb::watch) {
    lease();
    reply.lease = 60'000;
    return reply;
  }
  const std::size_t position = find(target.request);
  if (position == values_.size() || values_[position].empty()) {
    reply.result = position == values_.size() ? ModelRes_NoSuchPart : ModelRes_NoValue;
    return reply;
  }
  if (target.verb != Verb::get && target.request.value) {
    values_[position] = *target.request.value;
    reply.sequence = ++sequence_;
  }
  reply.value = values_[position];
  return reply;
}

Batch SimulatedDevice::batchOf(std::vector<PositionedValue> values) const {
  return {epoch_, 1, sequence_, sequence_ - 1, realNow(), monotonicNow(), std::move(values)};
}

std::vector<PositionedValue> SimulatedDevice::allValues() const {
  std::vector<PositionedValue> values;
  for (std::size_t i = 0; i < values_.size(); ++i) {
    if (!values_[i].empty()) {
      values.push_back(
          {static_cast<std::uint32_t>(i), ModelPartIndex_All, {ModelRes_Success, values_[i]}});
    }
  }
  return values;
}

void SimulatedDevice::lease() {
  const bool isFirst = EventLoop::Clock::now() >= leaseEnd_;
  leaseEnd_ = EventLoop::Clock::now() + 60s;
  if (isFirst) {
    nextChange_ = loop_.after(1s, [this] { change(); });
  }
}

void SimulatedDevice::change() {
  if (EventLoop::Clock::now() >= leaseEnd_) {
    return;
  }
  values_[changingPart] = std::to_string(++counter_);
  ++sequence_;
  Publication update;
  update.topic = topics_.updates(server);
  update.payload = encodeBatch(
      batchOf({{changingPart, ModelPartIndex_All, {ModelRes_Success, values_[changingPart]}}}));
  if (link_.hasCapacity()) {
    static_cast<void>(link_.publish(update));
  }
  nextChange_ = loop_.after(1s, [this] { change(); });
}

}  // namespace bench
