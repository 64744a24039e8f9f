#include "gateway/exporter/json_topics.h"

#include <algorithm>
#include <set>

#include "gateway/exporter/node_json.h"

namespace modelgate {

namespace {

/// The path of a part as `Topics::json` takes it. A part without a name has "#ID".
std::string pathOf(const TreeIndex& index, Position position) {
  std::string path;
  for (; position != rootPosition; position = index.parent(position)) {
    std::string level(index.name(position));
    std::replace(level.begin(), level.end(), '/', '_');
    path.insert(0, '/' + (level.empty() ? '#' + std::to_string(index.id(position)) : level));
  }
  return path.empty() ? "/" : path;
}

}  // namespace

JsonTopics::JsonTopics(const Topics& topics, std::string_view server, const PathRules& rules,
                       std::shared_ptr<const ServedTree> tree)
    : tree_(std::move(tree)), due_(0, period) {
  if (rules.isEmpty()) {
    return;
  }
  const TreeIndex& index = tree_->index;
  nodeOf_.assign(index.size(), none);
  std::set<std::string> used;
  const auto add = [&](Position position) {
    std::string topic = topics.json(server, pathOf(index, position));
    if (!used.insert(topic).second) {
      return none;
    }
    nodes_.push_back({position, std::move(topic)});
    return static_cast<std::uint32_t>(nodes_.size() - 1);
  };
  const auto isNamed = [&](Position position) {
    return rules.allow(server, index.names(position));
  };
  std::vector<std::uint32_t> numbers(index.size(), none);  // of the nodes
  const std::uint32_t root = isNamed(rootPosition) ? add(rootPosition) : none;
  for (Position position = 0; position < index.size(); ++position) {
    if (index.isNode(position)) {
      numbers[position] = isNamed(position) ? add(position) : none;
      continue;
    }
    const Position parent = index.parent(position);
    nodeOf_[position] = parent == rootPosition ? root : numbers[parent];
    if (nodeOf_[position] == none && isNamed(position)) {
      nodeOf_[position] = add(position);
    }
  }
  due_ = PacedSet(nodes_.size(), period);
  due_.markAll();
}

void JsonTopics::change(Position position) {
  if (!nodes_.empty() && nodeOf_[position] != none) {
    due_.mark(nodeOf_[position]);
  }
}

std::optional<Publication> JsonTopics::take(PacedSet::Clock::time_point now) {
  const std::optional<std::size_t> number = due_.take(now);
  if (!number) {
    return std::nullopt;
  }
  Node& node = nodes_[*number];
  node.isPublished = true;
  Publication publication;
  publication.topic = node.topic;
  publication.payload = nodeJson(tree_->index, tree_->values, node.position);
  publication.qos = 1;
  publication.retain = true;
  publication.contentType = contentType(Format::json);
  return publication;
}

std::vector<std::string> JsonTopics::topics() const {
  std::vector<std::string> topics;
  for (const Node& node : nodes_) {
    topics.push_back(node.topic);
  }
  std::sort(topics.begin(), topics.end());
  return topics;
}

std::vector<std::string> JsonTopics::publishedTopics() const {
  std::vector<std::string> topics;
  for (const Node& node : nodes_) {
    if (node.isPublished) {
      topics.push_back(node.topic);
    }
  }
  return topics;
}

void JsonTopics::notePublished(const std::set<std::string>& topics) {
  for (Node& node : nodes_) {
    node.isPublished = node.isPublished || topics.count(node.topic) > 0;
  }
}

}  // namespace modelgate
