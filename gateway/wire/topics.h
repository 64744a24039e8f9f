#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/wire/request.h"

namespace modelgate {

/// Whether `name` can be a fleet or a device: 1 to 64 characters of A-Z, a-z, 0-9, ".", "_", "-".
[[nodiscard]] bool isFleetName(std::string_view name);
/// Whether `name` can be a server's or user's level of a topic: 1 to 128 bytes of UTF-8 without
/// "/", "+", "#", "$" at the beginning, ";" and control characters.
[[nodiscard]] bool isTopicLevel(std::string_view name);

/// The topics of one device: "ts/1/F/D/" and what follows. `device` may be "+" in a filter.
class Topics {
 public:
  Topics(std::string_view fleet, std::string_view device);

  [[nodiscard]] std::string state() const;
  [[nodiscard]] std::string shape(std::string_view server, std::size_t page) const;
  [[nodiscard]] std::string values(std::string_view server, std::size_t page) const;
  [[nodiscard]] std::string allValues(std::string_view server) const;  ///< a filter: all pages
  [[nodiscard]] std::string updates(std::string_view server) const;
  [[nodiscard]] std::string request(Verb verb, std::string_view user) const;
  [[nodiscard]] std::string requests() const;  ///< a filter: every verb and user
  [[nodiscard]] std::string reply(std::string_view user, std::string_view client) const;
  /// Where an exporter that may not use the name notifies the one that does. Not retained.
  [[nodiscard]] std::string conflict() const;
  /// For dashboards: the node at `path` ("/cpu") of a server. In a level of the path "_" stands for
  /// each character that `isTopicLevel` does not allow and for an empty name; what is above 128
  /// bytes is left out.
  [[nodiscard]] std::string json(std::string_view server, std::string_view path) const;

 private:
  std::string prefix_;
};

/// A topic of a device, divided. `sort` is the level after the device ("state", "shape", "req" …);
/// `rest` is what follows it, such as "host/0", or empty.
struct ParsedTopic {
  std::string_view fleet;
  std::string_view device;
  std::string_view sort;
  std::string_view rest;
};

/// Empty for a topic that is none of a device, or has another version than 1.
[[nodiscard]] std::optional<ParsedTopic> parseTopic(std::string_view topic);

/// "host" and 3 for "host/3"; empty if it is wrong. The page is below `maxPages`.
struct ParsedPage {
  std::string_view server;
  std::size_t page = 0;
};
[[nodiscard]] std::optional<ParsedPage> parsePage(std::string_view rest);

/// S of a server: its port's name without "Model_" at the beginning.
[[nodiscard]] std::string_view serverInTopics(std::string_view port);

}  // namespace modelgate
