#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "gateway/viewer/device_presence.h"
#include "gateway/viewer/remote_clock.h"
#include "gateway/viewer/viewer_context.h"
#include "gateway/wire/topics.h"
#include "gateway/wire/values.h"

namespace modelgate {

/// A viewer's way to one device: its requests, whether it is there, its clocks, and how long it
/// takes to reply.
///
/// Threads: that of the loop.
class DeviceLink {
 public:
  /// `context` outlives the object. `presenceChanged` is called whenever the device has come or
  /// gone, but not inside the functions that say so themselves.
  DeviceLink(ViewerContext& context, std::string name, std::function<void()> presenceChanged);

  [[nodiscard]] ViewerContext& context() { return context_; }
  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] const Topics& topics() const { return topics_; }
  [[nodiscard]] const DevicePresence& presence() const { return presence_; }
  /// The run of the exporter that is at work.
  [[nodiscard]] std::uint64_t epoch() const { return epoch_; }
  [[nodiscard]] const RemoteClock& clock() const { return clock_; }
  [[nodiscard]] std::optional<std::chrono::microseconds> roundTrip() const { return roundTrip_; }
  [[nodiscard]] std::optional<std::chrono::milliseconds> skew() const { return skew_; }
  [[nodiscard]] std::optional<std::chrono::milliseconds> age() const;

  /// As `ViewerContext::request`. A reply counts as heard.
  bool request(Verb verb, const Request& request, std::chrono::milliseconds limit,
               RequestTable::Done done);

  // These change the presence, and return whether the device has come or gone.
  bool stated(const DevicePresence::Statement& statement);
  bool cleared();
  bool connected();
  void disconnected();

  /// A batch has come just now.
  void heard(const Batch& batch);
  /// A server of the device, which a probe asks about.
  void setProbedServer(const std::string& server) { probedServer_ = server; }
  /// One more or one less of its servers is watched, so that heartbeats are due.
  void changeWatched(int by);

 private:
  void heardReply(const Reply& reply, std::chrono::steady_clock::duration roundTrip, bool measures);
  bool changePresence(const std::function<void()>& change);
  void setTimer();
  void probe();

  ViewerContext& context_;
  const std::string name_;
  const Topics topics_;
  const std::function<void()> presenceChanged_;
  DevicePresence presence_;
  RemoteClock clock_;
  std::uint64_t epoch_ = 0;
  std::optional<std::chrono::microseconds> roundTrip_;
  std::optional<std::chrono::milliseconds> skew_;
  int watched_ = 0;
  EventLoop::Timer timer_;
  std::optional<DevicePresence::Time> timerDue_;
  std::string probedServer_;
  EventLoop::Timer probeTimer_;
  bool isProbing_ = false;
};

}  // namespace modelgate
