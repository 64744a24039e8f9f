#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/exporter/paced_set.h"
#include "gateway/exporter/path_rules.h"
#include "gateway/exporter/served_tree.h"
#include "gateway/link/broker_link.h"
#include "gateway/wire/topics.h"

namespace modelgate {

/// The nodes of a server that are published as JSON for dashboards, each at most once a second. Of
/// several nodes with one topic the first one is published. Time comes from outside. For one
/// thread.
class JsonTopics {
 public:
  static constexpr std::chrono::seconds period{1};

  /// All nodes that `rules` name, and the parts that they name themselves, are to be published.
  JsonTopics(const Topics& topics, std::string_view server, const PathRules& rules,
             std::shared_ptr<const ServedTree> tree);

  /// The value of a part has changed.
  void change(Position position);
  /// Everything is to be published.
  void changeAll() { due_.markAll(); }

  [[nodiscard]] std::optional<PacedSet::Clock::time_point> deadline() const {
    return due_.deadline();
  }
  [[nodiscard]] std::optional<Publication> take(PacedSet::Clock::time_point now);

  /// The topics, in their order.
  [[nodiscard]] std::vector<std::string> topics() const;
  /// Those that the broker may have: `take` has returned them, or `notePublished` was called.
  [[nodiscard]] std::vector<std::string> publishedTopics() const;
  /// The broker may have these, from an earlier tree.
  void notePublished(const std::set<std::string>& topics);

 private:
  struct Node {
    Position position;
    std::string topic;
    bool isPublished = false;
  };

  static constexpr std::uint32_t none = 0xFFFFFFFF;

  std::shared_ptr<const ServedTree> tree_;
  std::vector<Node> nodes_;
  /// For each part the node that has its value, or `none`; nothing without nodes.
  std::vector<std::uint32_t> nodeOf_;
  PacedSet due_;
};

}  // namespace modelgate
