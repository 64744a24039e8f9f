#include "gateway/wire/device_state.h"

#include <algorithm>
#include <array>

#include "gateway/wire/fields.h"
#include "gateway/wire/json_reader.h"
#include "gateway/wire/limits.h"
#include "gateway/wire/topics.h"
#include "modelsrv/part_description.h"

namespace modelgate {

namespace {

using JsonKind = JsonItem::Kind;

constexpr std::size_t maxCapabilities = 64;
constexpr std::size_t maxShortText = 64;
constexpr std::size_t hashSize = 32;

constexpr std::array<std::string_view, 9> stateKeys{
    "online", "epoch", "conflict", "heartbeat", "interval", "time", "mono", "caps", "version"};
constexpr std::string_view serversKey = "servers";
constexpr std::array<std::string_view, 4> serverKeys{"up", "shape", "pages", "parts"};

bool isHash(std::string_view text) {
  return text.size() == hashSize &&
         text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

bool isShortText(std::string_view text) {
  return text.size() <= maxShortText && ModelSrv::isLine(text);
}

bool setNumber(const JsonItem& item, std::uint64_t& number, std::uint64_t minimum,
               std::uint64_t maximum) {
  number = item.number;
  return item.kind == JsonKind::unsignedNumber && number >= minimum && number <= maximum;
}

bool setBoolean(const JsonItem& item, bool& value) {
  value = item.text == "true";
  return item.kind == JsonKind::boolean;
}

bool setTime(const JsonItem& item, std::int64_t& time) {
  if (item.number > maxExact ||
      (item.kind != JsonKind::unsignedNumber && item.kind != JsonKind::negativeNumber)) {
    return false;
  }
  time = static_cast<std::int64_t>(item.number) * (item.kind == JsonKind::negativeNumber ? -1 : 1);
  return true;
}

/// Fills in a state in the order of the text.
class StateReader final : public JsonVisitor {
 public:
  explicit StateReader(DeviceState& state) : state_(state) {}

  bool visit(JsonPath path, const JsonItem& item) override {
    if (path.empty()) {
      return item.kind == JsonKind::object;
    }
    if (path[0] != serversKey) {
      return visitState(path, item);
    }
    switch (path.size()) {
      case 1:
        return item.kind == JsonKind::object && take(taken_, stateKeys.size());
      case 2:
        takenOfServer_ = 0;
        server_ = &state_.servers[path[1]];
        // As many as there were names: none was there twice.
        return item.kind == JsonKind::object && isTopicLevel(path[1]) &&
               ++servers_ == state_.servers.size() && servers_ <= maxServers;
      default:
        return visitServer(path.subspan(2), item);
    }
  }

  /// Whether what every state has was there.
  [[nodiscard]] bool isComplete() const { return (taken_ & 3U) == 3U; }

 private:
  static bool take(unsigned& taken, std::size_t key) {
    const bool isFirst = (taken >> key & 1U) == 0;
    taken |= 1U << key;
    return isFirst;
  }

  bool visitState(JsonPath path, const JsonItem& item) {
    const auto key = static_cast<std::size_t>(
        std::find(stateKeys.begin(), stateKeys.end(), path[0]) - stateKeys.begin());
    if (key == stateKeys.size()) {
      return true;
    }
    const bool isCapability = path.size() == 2 && stateKeys[key] == "caps";
    if (isCapability) {
      state_.capabilities.emplace_back(item.text);
      return item.kind == JsonKind::text && isShortText(item.text) &&
             state_.capabilities.size() <= maxCapabilities;
    }
    return path.size() == 1 && take(taken_, key) && setKey(key, item);
  }

  bool setKey(std::size_t key, const JsonItem& item) {
    switch (key) {
      case 0:
        return setBoolean(item, state_.online);
      case 1:
        return setNumber(item, state_.epoch, 0, maxExact);
      case 2:
        return setBoolean(item, state_.conflict);
      case 3:
        return setNumber(item, state_.heartbeat, minHeartbeat, maxHeartbeat);
      case 4:
        return setNumber(item, state_.interval, 0, maxInterval);
      case 5:
        return setTime(item, state_.time);
      case 6:
        return setNumber(item, state_.monotonic, 0, maxExact);
      case 7:
        return item.kind == JsonKind::array;
      default:
        state_.version = item.text;
        return item.kind == JsonKind::text && isShortText(item.text);
    }
  }

  bool visitServer(JsonPath path, const JsonItem& item) {
    const auto key = static_cast<std::size_t>(
        std::find(serverKeys.begin(), serverKeys.end(), path[0]) - serverKeys.begin());
    if (key == serverKeys.size()) {
      return true;
    }
    if (path.size() == 2 && serverKeys[key] == "pages") {
      server_->pages.emplace_back(item.text);
      return item.kind == JsonKind::text && isHash(item.text) && server_->pages.size() <= maxPages;
    }
    if (path.size() != 1 || !take(takenOfServer_, key)) {
      return false;
    }
    switch (key) {
      case 0:
        return setBoolean(item, server_->up);
      case 1:
        return setNumber(item, server_->shape, 0, maxExact);
      case 2:
        return item.kind == JsonKind::array;
      default:
        return setNumber(item, server_->parts, 0, maxParts);
    }
  }

  DeviceState& state_;
  unsigned taken_ = 0;
  std::size_t servers_ = 0;
  ServerState* server_ = nullptr;
  unsigned takenOfServer_ = 0;
};

std::string listOf(const std::vector<std::string>& texts) {
  std::string list = "[";
  for (const std::string& text : texts) {
    list += (&text == texts.data() ? "" : ",") + quoteJson(text);
  }
  return list + "]";
}

void appendServers(std::string& out, const std::map<std::string, ServerState>& servers) {
  out += ",\"servers\":{";
  const char* separator = "";
  for (const auto& [name, server] : servers) {
    out += separator + quoteJson(name) + ":{\"up\":" + (server.up ? "true" : "false") +
           ",\"shape\":" + std::to_string(server.shape) + ",\"pages\":" + listOf(server.pages) +
           ",\"parts\":" + std::to_string(server.parts) + "}";
    separator = ",";
  }
  out += "}";
}

}  // namespace

std::string encodeState(const DeviceState& state) {
  const DeviceState usual;
  const auto isStated = [&state](bool isUsual) { return state.online || !isUsual; };
  std::string out = std::string("{\"online\":") + (state.online ? "true" : "false") +
                    ",\"epoch\":" + std::to_string(state.epoch);
  if (state.conflict) {
    out += ",\"conflict\":true";
  }
  if (isStated(state.heartbeat == usual.heartbeat)) {
    out += ",\"heartbeat\":" + std::to_string(state.heartbeat);
  }
  if (isStated(state.interval == usual.interval)) {
    out += ",\"interval\":" + std::to_string(state.interval);
  }
  if (isStated(state.time == usual.time)) {
    out += ",\"time\":" + std::to_string(state.time);
  }
  if (isStated(state.monotonic == usual.monotonic)) {
    out += ",\"mono\":" + std::to_string(state.monotonic);
  }
  if (isStated(state.capabilities.empty())) {
    out += ",\"caps\":" + listOf(state.capabilities);
  }
  if (!state.version.empty()) {
    out += ",\"version\":" + quoteJson(state.version);
  }
  if (isStated(state.servers.empty())) {
    appendServers(out, state.servers);
  }
  return out + "}";
}

std::optional<DeviceState> decodeState(std::string_view payload) {
  DeviceState state;
  StateReader reader(state);
  if (payload.size() > maxPayload || !readJson(payload, reader) || !reader.isComplete()) {
    return std::nullopt;
  }
  return state;
}

}  // namespace modelgate
