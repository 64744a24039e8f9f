#pragma once

#include <chrono>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace modelgate {

/// Remembers which requests are in progress, those of the last 10 s, and the newest replies, so
/// that a request that arrives twice is carried out once. Time comes from outside. For one thread.
class ReplyMemory {
 public:
  using Clock = std::chrono::steady_clock;

  /// From the reply until a request with the same data is a new one.
  static constexpr std::chrono::seconds duration{10};
  /// The same from the request, if it gets no reply: longer than any takes.
  static constexpr std::chrono::seconds longestProgress{60};
  /// The most replies that are remembered; the oldest are dropped first.
  static constexpr std::size_t maxReplies = 1024;
  /// The most bytes that they have together.
  static constexpr std::size_t maxBytes = std::size_t{8} * 1024 * 1024;
  /// The most requests that are remembered, with their replies or without.
  static constexpr std::size_t maxRequests = 32768;

  enum class State {
    isNew,
    isInProgress,
    isAnswered,
    isForgotten,  ///< it was carried out, and its reply has been dropped
    isFull        ///< it is new and cannot be remembered
  };

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
  struct Request;
  using Requests = std::map<Key, Request>;
  using Order = std::list<Requests::iterator>;
  struct Request {
    State state = State::isInProgress;
    Clock::time_point end;
    Order::iterator place;  ///< in `begun_`, or in `done_`
    std::string reply;
  };

  void expire(Clock::time_point now);
  void expire(Order& order, Clock::time_point now);
  void dropReply();

  Requests requests_;
  Order begun_;                               ///< those in progress, the oldest first
  Order done_;                                ///< the others, by the times of their replies
  Order::iterator firstReply_ = done_.end();  ///< of `done_`: the ones before have been dropped
  std::size_t replies_ = 0;                   ///< that have not been dropped
  std::size_t bytes_ = 0;                     ///< of these
};

}  // namespace modelgate
