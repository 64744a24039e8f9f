#include "gateway/wire/topics.h"

#include <algorithm>
#include <charconv>

#include "gateway/wire/limits.h"
#include "gateway/wire/utf8.h"
#include "modelsrv/part_description.h"

namespace modelgate {

namespace {

constexpr std::string_view versionPrefix = "ts/1/";
constexpr std::size_t maxFleetName = 64;
constexpr std::size_t maxTopicLevel = 128;
constexpr std::string_view wrongAnywhere = "/+#;";

bool isFleetCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-';
}

/// A name of a part as a level of a topic.
std::string toTopicLevel(std::string_view name) {
  std::string level;
  while (!name.empty()) {
    const std::size_t size = characterSize(name);
    const std::string_view next = name.substr(0, size == 0 ? 1 : size);
    const bool isWrong = !ModelSrv::isLine(next) || wrongAnywhere.find(next) != std::string::npos ||
                         (level.empty() && next == "$");
    const std::string_view written = isWrong ? "_" : next;
    if (level.size() + written.size() > maxTopicLevel) {
      break;
    }
    level += written;
    name.remove_prefix(next.size());
  }
  return level.empty() ? "_" : level;
}

/// Takes what is before the first "/", and that itself, off the beginning of `rest`.
std::string_view takeLevel(std::string_view& rest) {
  const std::size_t end = std::min(rest.find('/'), rest.size());
  const std::string_view level = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return level;
}

}  // namespace

bool isFleetName(std::string_view name) {
  return !name.empty() && name.size() <= maxFleetName &&
         std::all_of(name.begin(), name.end(), isFleetCharacter);
}

bool isTopicLevel(std::string_view name) {
  return !name.empty() && name.size() <= maxTopicLevel && name.front() != '$' &&
         name.find_first_of(wrongAnywhere) == std::string::npos && ModelSrv::isLine(name);
}

Topics::Topics(std::string_view fleet, std::string_view device) : prefix_(versionPrefix) {
  prefix_.append(fleet).append("/").append(device).append("/");
}

std::string Topics::state() const {
  return prefix_ + "state";
}

std::string Topics::shape(std::string_view server, std::size_t page) const {
  return prefix_ + "shape/" + std::string(server) + "/" + std::to_string(page);
}

std::string Topics::values(std::string_view server, std::size_t page) const {
  return prefix_ + "val/" + std::string(server) + "/" + std::to_string(page);
}

std::string Topics::allValues(std::string_view server) const {
  return prefix_ + "val/" + std::string(server) + "/+";
}

std::string Topics::updates(std::string_view server) const {
  return prefix_ + "upd/" + std::string(server);
}

std::string Topics::request(Verb verb, std::string_view user) const {
  return prefix_ + "req/" + std::string(verbName(verb)) + "/" + std::string(user);
}

std::string Topics::requests() const {
  return prefix_ + "req/+/+";
}

std::string Topics::reply(std::string_view user, std::string_view client) const {
  return prefix_ + "rsp/" + std::string(user) + "/" + std::string(client);
}

std::string Topics::conflict() const {
  return prefix_ + "conflict";
}

std::string Topics::json(std::string_view server, std::string_view path) const {
  std::string topic = prefix_ + "j/" + std::string(server);
  path.remove_prefix(path.starts_with('/') ? 1 : 0);
  while (!path.empty()) {
    topic += "/" + toTopicLevel(takeLevel(path));
  }
  return topic;
}

std::optional<ParsedTopic> parseTopic(std::string_view topic) {
  if (!topic.starts_with(versionPrefix)) {
    return std::nullopt;
  }
  topic.remove_prefix(versionPrefix.size());
  ParsedTopic parsed;
  parsed.fleet = takeLevel(topic);
  parsed.device = takeLevel(topic);
  parsed.sort = takeLevel(topic);
  parsed.rest = topic;
  if (!isFleetName(parsed.fleet) || !isFleetName(parsed.device) || parsed.sort.empty()) {
    return std::nullopt;
  }
  return parsed;
}

std::optional<ParsedPage> parsePage(std::string_view rest) {
  const std::string_view server = takeLevel(rest);
  const bool isCanonical =
      !rest.empty() && rest.size() <= 4 && (rest.front() != '0' || rest == "0");
  ParsedPage parsed{server, 0};
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), parsed.page);
  if (!isTopicLevel(server) || !isCanonical || error != std::errc() ||
      end != rest.data() + rest.size() || parsed.page >= maxPages) {
    return std::nullopt;
  }
  return parsed;
}

std::string_view serverInTopics(std::string_view port) {
  constexpr std::string_view prefix = "Model_";
  return port.starts_with(prefix) ? port.substr(prefix.size()) : port;
}

}  // namespace modelgate
