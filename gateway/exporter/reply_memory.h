#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace modelgate {

/// Remembers which requests are in progress, and the replies to the last ones, so that a request
/// that arrives twice is carried out once. Time comes from outside. For one thread.
class ReplyMemory {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::seconds duration{10};
  /// The most replies that are remembered; the oldest go first.
  static constexpr std::size_t maxReplies = 1024;
  /// The most bytes that they have together.
  static constexpr std::size_t maxBytes = std::size_t{8} * 1024 * 1024;

  enum class State { isNew, isInProgress, isAnswered };

  /// Notes that the request has arrived. Without correlation data (empty) each one is new.
  [[nodiscard]] State begin(std::string_view responseTopic, std::string_view correlation,
                            Clock::time_point now);

  /// The reply that `isAnswered`; valid until the next call.
  [[nodiscard]] const std::string& reply(std::string_view responseTopic,
                                         std::string_view correlation) const;

  /// Remembers the reply to a request that was begun.
  void complete(std::string_view responseTopic, std::string_view correlation, std::string reply,
                Clock::time_point now);
  /// The request has no reply, or one that need not be remembered: a repetition is new.
  void forget(std::string_view responseTopic, std::string_view correlation);

  [[nodiscard]] std::size_t size() const { return requests_.size(); }

 private:
  using Key = std::pair<std::string, std::string>;
  struct Request {
    bool isAnswered = false;
    std::string reply;
  };
  using Requests = std::map<Key, Request>;
  struct Answered {
    Requests::iterator request;
    Clock::time_point end;
  };

  void expire(Clock::time_point now);

  Requests requests_;
  std::deque<Answered> answered_;  ///< in the order of their ends
  std::size_t bytes_ = 0;          ///< of the replies
};

}  // namespace modelgate
