#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "gateway/wire/request.h"

namespace modelgate {

/// Requests that wait for their replies. Knows no clock.
///
/// Threads: one.
class RequestTable {
 public:
  using Time = std::chrono::steady_clock::time_point;

  enum class Ending {
    replied,
    timedOut,
    disconnected,  ///< the connection to the broker has ended: it is unknown what became of it
    refused,       ///< the broker's access rules do not allow it
  };
  /// What became of a request.
  struct Answer {
    Ending ending = Ending::timedOut;
    const Reply* reply = nullptr;  ///< if it was replied to; valid during the call
    std::chrono::steady_clock::duration roundTrip{};
  };
  /// May add requests. Called once; with replies that say `more` for each.
  using Done = std::function<void(const Answer& answer)>;

  /// `prefix` makes the correlations different from those of other clients and runs.
  explicit RequestTable(std::string prefix) : prefix_(std::move(prefix)) {}

  /// Returns the correlation. `topic` is that of the request. Each reply with `more` gives it the
  /// same time again.
  std::string add(std::string device, std::string topic, Time now,
                  std::chrono::steady_clock::duration limit, Done done);
  /// Takes a reply of `device`. False if nothing waits for it.
  bool take(std::string_view device, std::string_view correlation, const Reply& reply, Time now);
  /// Ends those whose time has passed.
  void expire(Time now);
  /// Ends the oldest request of that topic.
  void refuse(std::string_view topic);
  /// Ends all.
  void disconnect();
  /// When `expire` is due next.
  [[nodiscard]] std::optional<Time> deadline() const;

 private:
  struct Entry {
    std::string device;
    std::string topic;
    Time sent;
    std::chrono::steady_clock::duration limit;
    Time due;
    Done done;
  };
  using Entries = std::map<std::uint64_t, Entry>;

  [[nodiscard]] std::string correlationOf(std::uint64_t number) const;
  void end(Entries::iterator at, const Answer& answer);

  const std::string prefix_;
  std::uint64_t last_ = 0;
  Entries entries_;
  std::set<std::pair<Time, std::uint64_t>> due_;
};

}  // namespace modelgate
