#include "tools/watcher.h"

#include <algorithm>
#include <utility>

#include "tools/stop_signals.h"

namespace treectl {

using ModelSrv::ModelRes;

namespace {

/// The position of the first name with wildcards.
std::ptrdiff_t firstWildcard(const Address& address) {
  return std::find_if(address.names.begin(), address.names.end(),
                      [](const NamePattern& name) { return name.hasWildcards(); }) -
         address.names.begin();
}

/// What has to match below the node that the names before the first wildcard lead to.
std::vector<NamePattern> namesBelow(const Address& address) {
  std::vector<NamePattern> names(address.names.begin() + firstWildcard(address),
                                 address.names.end());
  if (names.empty()) {
    names.emplace_back("**");
  }
  return names;
}

}  // namespace

bool Watcher::start(const std::vector<Address>& addresses) {
  context_.reconnect();
  for (const Address& address : addresses) {
    addresses_.push_back({address.text, {}});
    if (!address.hasWildcards() || address.element) {
      forEachMatch(context_, address, [&](const Match& match) { return addMatch(match, address); });
      continue;
    }
    // Everything below the names before the first wildcard, of which the others are left out.
    Address base = address;
    base.names.erase(base.names.begin() + firstWildcard(address), base.names.end());
    forEachMatch(context_, base, [&](const Match& match) { return addMatch(match, address); });
  }
  return !trees_.empty();
}

Visit Watcher::addMatch(const Match& match, const Address& address) {
  ModelRes result = ModelSrv::ModelRes_Success;
  auto tree = std::make_unique<WatchedTree>(*match.connection, needs_);
  tree->setOutput(&changes_);
  noteConnection(*match.connection);
  const bool node =
      match.index == ModelSrv::ModelPartIndex_All && isNode(*match.connection, match.chain, result);
  if (result == ModelSrv::ModelRes_Success && node) {
    result = tree->startBelow(match, namesBelow(address));
  } else if (result == ModelSrv::ModelRes_Success) {
    result = tree->startPart(match);
  }
  if (result == ModelSrv::ModelRes_NotSubscribable) {
    tree->complete();
  }
  if (result != ModelSrv::ModelRes_Success) {
    context_.fail(match.shown(), result);
  }
  if (result != ModelSrv::ModelRes_Success && result != ModelSrv::ModelRes_NotSubscribable) {
    return visitAfter(result);
  }
  trees_.push_back(std::move(tree));
  return Visit::taken;
}

void Watcher::noteConnection(Connection& connection) {
  const auto addOnce = [&](std::vector<Connection*>& list) {
    if (std::find(list.begin(), list.end(), &connection) == list.end()) {
      list.push_back(&connection);
    }
  };
  addOnce(addresses_.back().connections);
  addOnce(connections_);
  connection.setListener(this);
}

bool Watcher::isComplete() const {
  return std::all_of(trees_.begin(), trees_.end(),
                     [](const auto& tree) { return tree->isComplete(); });
}

void Watcher::forEachPart(const std::function<void(const WatchedPart&)>& visit) const {
  for (const auto& tree : trees_) {
    tree->forEachPart(visit);
  }
}

void Watcher::forEachNode(const std::function<void(const WatchedPart&)>& visit) const {
  for (const auto& tree : trees_) {
    tree->forEachNode(visit);
  }
}

std::vector<Change> Watcher::wait(std::optional<Clock::time_point> deadline, pollfd* other) {
  std::vector<pollfd> descriptors;
  for (const Connection* connection : connections_) {
    descriptors.push_back({connection->descriptor(), POLLIN, 0});
  }
  if (other != nullptr) {
    descriptors.push_back(*other);
  }
  int milliseconds = -1;
  if (deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
    constexpr std::chrono::milliseconds longest{3600000};
    milliseconds =
        static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), longest).count());
  }
  const bool isReady =
      StopSignals::waitFor(descriptors.data(), descriptors.size(), milliseconds) > 0;
  if (isReady) {
    for (Connection* connection : connections_) {
      // Bounded, so that output and time limits are not delayed by a flood.
      constexpr int mostEvents = 100;
      for (int i = 0; i < mostEvents && connection->dispatch(); ++i) {
      }
    }
  }
  if (other != nullptr) {
    other->revents = isReady ? descriptors.back().revents : short{0};
  }
  return std::exchange(changes_, {});
}

void Watcher::lost(Connection& connection) {
  reportConnection(connection, Change::Event::lost);
}

void Watcher::restored(Connection& connection) {
  reportConnection(connection, Change::Event::restored);
}

void Watcher::reportConnection(Connection& connection, Change::Event event) {
  for (const auto& tree : trees_) {
    if (&tree->connection() == &connection) {
      tree->setLost(event == Change::Event::lost);
    }
  }
  for (const WatchedAddress& address : addresses_) {
    const std::vector<Connection*>& own = address.connections;
    if (std::find(own.begin(), own.end(), &connection) != own.end()) {
      Change change;
      change.event = event;
      change.address = address.text;
      change.time = microsecondsNow();
      changes_.push_back(std::move(change));
    }
  }
}

}  // namespace treectl
