#include <algorithm>
#include <utility>

#include "gateway/exporter/exporter_state.h"
#include "gateway/wire/limits.h"

namespace modelgate {

namespace {

/// The most threads of servers that are not exported any more.
constexpr std::size_t maxEnding = 16;

/// The port of a viewer's list of devices.
constexpr std::string_view fleetPort = "Model_fleet";

/// `text` as one line: control bytes become "?".
std::string oneLine(std::string_view text) {
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(),
      [](char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F; }, '?');
  return line;
}

}  // namespace

void Exporter::State::found(const std::string& port) {
  if (isFinishing_) {
    return;
  }
  if (const auto known = servers_.find(port); known != servers_.end()) {
    known->second->retry();
  } else if (canExport(port)) {
    servers_.emplace(port, std::make_unique<ServerExport>(context_, port));
  }
}

bool Exporter::State::canExport(const std::string& port) {
  const std::string_view name = serverInTopics(port);
  std::string_view reason;
  if (port == fleetPort) {
    reason = "it is a list of devices";
  } else if (!isTopicLevel(name)) {
    reason = "no topic can have its name";
  } else if (std::any_of(servers_.begin(), servers_.end(),
                         [name](const auto& server) { return server.second->name() == name; })) {
    reason = "another server has its name in topics";
  } else if (!makeSpace()) {
    reason = "there are too many servers";
  }
  if (!reason.empty() && refusedPorts_.size() < maxServers && refusedPorts_.insert(port).second) {
    log(oneLine(port) + " is not exported: " + std::string(reason), false);
  }
  return reason.empty();
}

/// Whether there is space for another server; one that has ended may go for it. Its thread may need
/// 2 s to end, for which nothing waits here.
bool Exporter::State::makeSpace() {
  if (servers_.size() < maxServers) {
    return true;
  }
  const auto ended = std::find_if(servers_.begin(), servers_.end(), [](const auto& server) {
    return server.second->isSettled() && !server.second->isUp();
  });
  if (ended == servers_.end()) {
    return false;
  }
  needsSpace_ = ending_.size() >= maxEnding;
  if (needsSpace_) {
    return false;
  }
  ended->second->removeAll();
  ended->second->end();
  ending_.push_back(std::move(ended->second));
  servers_.erase(ended);
  return true;
}

void Exporter::State::removeEnded() {
  std::erase_if(ending_, [](const auto& server) { return server->hasEnded(); });
  if (std::exchange(needsSpace_, false)) {
    discovery_.scan();
  }
}

ServerExport* Exporter::State::find(std::string_view name) {
  const auto found = std::find_if(servers_.begin(), servers_.end(), [name](const auto& server) {
    return server.second->name() == name;
  });
  return found == servers_.end() ? nullptr : found->second.get();
}

void Exporter::State::serversChanged() {
  if (isFinishing_ || !isStarted_) {
    return;
  }
  areSettled_ |= std::all_of(servers_.begin(), servers_.end(),
                             [](const auto& server) { return server.second->isSettled(); });
  // Only one that can be at work at once may take the place of another one.
  if (areSettled_ && !std::exchange(hasStarted_, true)) {
    link_->start();
  }
  publishState();
  if (isReady_) {
    removeLeftovers();
  }
}

/// Notes what an earlier process has published.
void Exporter::State::takeLeftovers(const DeviceState& state) {
  for (const auto& [name, server] : state.servers) {
    // Only a broker that makes up retained states has more.
    if (leftovers_.size() < maxServers || leftovers_.count(name) > 0) {
      leftovers_[name] = server.pages.size();
    }
  }
  if (isReady_) {
    removeLeftovers();
  }
}

/// Removes the pages of an earlier process that nothing has replaced. Without a connection: later.
void Exporter::State::removeLeftovers() {
  for (const auto& [port, server] : servers_) {
    if (const auto pages = leftovers_.extract(server->name()); !pages.empty()) {
      server->removePages(pages.mapped());
    }
  }
  if (!leftovers_.empty()) {
    context_.outbox.pushRetained(
        &leftovers_, [this] { return nextLeftover(); }, true);
  }
}

/// The removal of the next page, the last one of a server first.
std::optional<Publication> Exporter::State::nextLeftover() {
  std::erase_if(leftovers_, [](const auto& leftover) { return leftover.second == 0; });
  // One that has come meanwhile knows itself what it publishes.
  const auto next =
      std::find_if(leftovers_.begin(), leftovers_.end(),
                   [this](const auto& leftover) { return find(leftover.first) == nullptr; });
  return next == leftovers_.end()
             ? std::nullopt
             : std::optional(retained(context_.topics.shape(next->first, --next->second), {}));
}

}  // namespace modelgate
