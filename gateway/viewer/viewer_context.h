#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "evtsrv/event_port_manager.h"
#include "gateway/link/broker_link.h"
#include "gateway/link/event_loop.h"
#include "gateway/viewer/idle_trees.h"
#include "gateway/viewer/page_cache.h"
#include "gateway/viewer/port_names.h"
#include "gateway/viewer/request_table.h"
#include "gateway/wire/request.h"

namespace modelgate {

/// How long a viewer keeps what is of no use at the moment.
struct ViewerTimes {
  /// After a server was lost: until another one that wants the same ports may have them. As long as
  /// the broker keeps the state of a device.
  std::chrono::milliseconds nameRetention = std::chrono::hours(1);
  /// After the last client of a mirror has gone: until its tree is given back, while the device
  /// still has the values.
  std::chrono::milliseconds treeRetention = std::chrono::minutes(5);
};

/// What the devices and mirrors of a viewer share: its connection to the broker, the requests that
/// wait for replies, the names of ports, how many shapes are being fetched, and what is kept of
/// trees that no client uses.
///
/// Threads: that of the loop.
class ViewerContext {
 public:
  using Time = EventLoop::Clock::time_point;
  using Log = std::function<void(std::string_view line, bool detail)>;
  struct Names {
    std::string fleet;
    std::string user;
    std::string clientId;
  };

  /// `loop` and `manager` outlive the object.
  ViewerContext(EventLoop& loop, EvtSrv::EventPortManager& manager, Names names, Log log,
                std::optional<gid_t> group, ViewerTimes times, std::size_t maxMirrors);

  /// The link, once it exists. It outlives the object, or is set to null before its end.
  void setLink(BrokerLink* link) { link_ = link; }

  [[nodiscard]] EventLoop& loop() { return loop_; }
  [[nodiscard]] EvtSrv::EventPortManager& manager() { return manager_; }
  [[nodiscard]] const Names& names() const { return names_; }
  [[nodiscard]] std::optional<gid_t> group() const { return group_; }
  [[nodiscard]] const ViewerTimes& times() const { return times_; }
  [[nodiscard]] PortNames& portNames() { return portNames_; }
  [[nodiscard]] PageCache& pages() { return pages_; }
  /// Whether there may be another mirror, which counts from now on: devices name as many servers as
  /// they like. Logs once that there are too many.
  [[nodiscard]] bool addMirror();
  /// Notes that no client uses a tree, as `IdleTrees::add`.
  void addIdleTree(std::optional<IdleTrees::Entry>& entry, std::size_t bytes, bool canBeFetched,
                   std::function<void()> giveBack);
  /// Does what is due; to be called each second or so.
  void review();
  [[nodiscard]] static Time now() { return EventLoop::Clock::now(); }
  [[nodiscard]] bool isConnected() const { return link_ != nullptr && link_->isConnected(); }

  void log(std::string_view line) const;
  /// Something that can be so of very many servers at once: some lines a minute, and the others
  /// with -v alone.
  void logOften(std::string_view line);
  /// With -v alone.
  void logDetail(std::string_view line) const;

  // Without a connection these do nothing.
  void subscribe(const std::string& filter, int qos);
  void unsubscribe(const std::string& filter);

  /// Sends a request to a device, with what is to be called when its reply has come or `limit` has
  /// passed. False, and nothing is called, without a connection.
  bool request(const std::string& device, Verb verb, const Request& request,
               std::chrono::milliseconds limit, RequestTable::Done done);
  /// The reply of a device has come.
  void takeReply(std::string_view device, const Message& message, const Reply& reply);
  /// The broker has refused a publication.
  void refused(std::string_view topic);
  /// The connection has ended.
  void disconnected();

  /// Calls `begin` when fewer than `maxFetches` shapes are being fetched, at once or later.
  /// Each call is followed by one of `endFetch`. Shapes may be large.
  void beginFetch(std::weak_ptr<std::function<void()>> begin);
  void endFetch();

 private:
  static constexpr std::size_t maxFetches = 4;

  void trimTrees();
  void setTimer();
  void beginNextFetches();

  EventLoop& loop_;
  EvtSrv::EventPortManager& manager_;
  const Names names_;
  const Log log_;
  const std::optional<gid_t> group_;
  const ViewerTimes times_;
  const std::size_t maxMirrors_;
  std::size_t mirrors_ = 0;
  bool saidTooMany_ = false;
  PortNames portNames_;
  PageCache pages_;
  IdleTrees idleTrees_;
  EventLoop::Timer trimTimer_;
  BrokerLink* link_ = nullptr;
  RequestTable requests_;
  EventLoop::Timer timer_;
  std::optional<Time> timerDue_;
  Time loggedSince_;  ///< the minute of `logOften`
  unsigned logged_ = 0;
  std::size_t fetches_ = 0;
  bool isBeginningFetches_ = false;
  std::deque<std::weak_ptr<std::function<void()>>> waitingFetches_;
};

}  // namespace modelgate
