#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/exporter/export_context.h"
#include "gateway/exporter/exporter.h"
#include "gateway/exporter/presence.h"
#include "gateway/exporter/request_handler.h"
#include "gateway/exporter/server_discovery.h"
#include "gateway/exporter/server_export.h"
#include "gateway/link/reason_log.h"

namespace modelgate {

/// A number that no other process has. Throws std::system_error if the system has none.
[[nodiscard]] std::uint64_t randomEpoch();

/// The exporter: connects the servers, the requests and the broker. On the loop's thread.
struct Exporter::State {
  using Clock = std::chrono::steady_clock;

  State(EventLoop& loop, ExporterOptions options);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void start();
  void finish(std::function<void()> done);

 private:
  // Servers (exporter_servers.cpp).
  void found(const std::string& port);
  [[nodiscard]] bool canExport(const std::string& port);
  [[nodiscard]] bool makeSpace();
  void removeEnded();
  [[nodiscard]] ServerExport* find(std::string_view name);
  void serversChanged();
  void takeLeftovers(const DeviceState& state);
  void removeLeftovers();
  [[nodiscard]] std::optional<Publication> nextLeftover();

  // The broker (exporter_link.cpp, exporter.cpp).
  void makeLink();
  void leaveLink();
  void changeLink();
  [[nodiscard]] bool canPublish() const;
  [[nodiscard]] BrokerLink::Handlers handlers();
  void connected();
  void subscribed(std::string_view filter, bool granted);
  void begin();
  void yield();
  void disconnected(std::string_view reason, bool takenOver);
  void handle(const Message& message);
  void seenState(const Message& message);
  void seenNote(const Message& message);
  void sendNote();
  void flush();
  /// Does what follows from an event of `presence_`.
  void followPresence();

  // The device's state (exporter.cpp).
  [[nodiscard]] DeviceState deviceState(bool isOnline);
  [[nodiscard]] Publication statePublication(bool isOnline);
  void publishState();
  void renewState();
  void checkReady(const DeviceState& seen);

  void post(std::function<void()> action);
  void log(std::string_view line, bool detail) const;

  EventLoop& loop_;
  ExporterOptions options_;
  ExportContext context_;
  Presence presence_;
  RequestHandler requests_;
  ServerDiscovery discovery_;

  bool isStarted_ = false;
  bool isFinishing_ = false;
  bool isReady_ = false;
  bool areSettled_ = false;     ///< whether the servers at the start have been read
  bool hasStarted_ = false;     ///< whether the first connection has begun
  bool isWorkingLink_ = false;  ///< whether `link_` has the client id of the device
  bool hasBegun_ = false;       ///< whether this exporter publishes on the present connection
  /// Whether the last connection was lost while it was at work: another exporter may have come.
  bool mustLook_ = false;
  bool wasConflict_ = false;  ///< as it is in the state
  ReasonLog reasons_;
  /// Before a wrong state at the broker is replaced.
  Clock::duration correction_ = std::chrono::seconds(1);

  /// The servers of the state that an earlier process has left, with their numbers of pages; at
  /// most `maxServers`.
  std::map<std::string, std::size_t> leftovers_;
  std::string firstFlushed_;            ///< the port with which the last flush began
  std::set<std::string> refusedPorts_;  ///< that have been logged
  unsigned linkNumber_ = 0;
  EventLoop::Timer lookTimer_;
  EventLoop::Timer settleTimer_;
  EventLoop::Timer stateTimer_;
  EventLoop::Timer correctionTimer_;
  EventLoop::Timer presenceTimer_;

  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  std::unique_ptr<BrokerLink> leaving_;
  std::unique_ptr<BrokerLink> link_;
  /// Those that had to go; their threads end soon. At most `maxEnding`.
  std::vector<std::unique_ptr<ServerExport>> ending_;
  bool needsSpace_ = false;  ///< a server was refused since there were too many of those
  /// By port. The last member: their threads end first.
  std::map<std::string, std::unique_ptr<ServerExport>> servers_;
};

}  // namespace modelgate
