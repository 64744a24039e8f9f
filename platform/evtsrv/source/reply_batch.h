#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "evtsrv/source/system.h"

/// The replies of one dispatch to many clients, which are written together.
///
/// A write wakes its client up, and a server that has more work than others is preempted by each
/// client: the two switches cost more than the exchange. So the short replies of a dispatch with
/// many ready connections are collected, and one system call writes all of them.
///
/// They are written before the server does anything that may take long: see `flush`. If the system
/// supports no such call, nothing is collected.
namespace EvtSrv::internal {

/// Whose reply is written.
class ReplyWriter {
 public:
  virtual ~ReplyWriter() = default;

  /// `result`: how many of `bytes` were written, or a negative error number; `-EAGAIN` if none was.
  /// Must not use the batch.
  virtual void replyWritten(std::span<const std::uint8_t> bytes, ssize_t result) noexcept = 0;
};

/// Requires the client mutex, except for `isPending`.
class ReplyBatch {
 public:
  /// From so many ready descriptors on it is worth while.
  static constexpr std::size_t minReady = 8;
  /// The longest reply that is collected.
  static constexpr std::size_t maxReply = 256;
  /// How long a reply waits for others, besides the request that is being served.
  static constexpr std::int64_t maxHeldNs = 200'000;

  explicit ReplyBatch(System& system) : system_(system) {}
  ~ReplyBatch();
  ReplyBatch(const ReplyBatch&) = delete;
  ReplyBatch& operator=(const ReplyBatch&) = delete;

  /// Begins to collect replies in a dispatch, if so many descriptors are `ready`.
  void begin(std::size_t ready) { collects_ = collects_ || ready >= minReady; }
  /// Ends that, also for a dispatch that this one is nested in, and writes what was collected.
  void end() {
    if (collects_) {
      collects_ = false;
      flush();
    }
  }
  [[nodiscard]] bool collects() const { return collects_; }

  /// Between these: collects the reply `bytes` of `writer` for `pipe`, `sinceBegin` nanoseconds
  /// after the beginning of the dispatch. `writer` and the pipe stay until `replyWritten`. Returns
  /// false if the caller has to write it.
  [[nodiscard]] bool add(ReplyWriter& writer, int pipe, std::span<const std::uint8_t> bytes,
                         std::int64_t sinceBegin);

  /// Writes what was collected: before a wait, a request of this process, the end of a connection
  /// that has a reply here, and a request whose handling may take long.
  void flush() {
    if (isPending()) {
      writeAll();
    }
  }
  /// The same if the first reply has waited for long.
  void flushOld(std::int64_t sinceBegin) {
    if (isPending() && sinceBegin - firstAt_ >= maxHeldNs) {
      writeAll();
    }
  }

  /// Whether replies wait. For any thread.
  [[nodiscard]] bool isPending() const { return pending_.load(std::memory_order_relaxed); }

 private:
  static constexpr std::size_t bytesAtOnce = std::size_t{8} * 1024;
  struct Collected {
    std::array<ReplyWriter*, maxQueuedWrites> writers{};
    std::array<QueuedWrite, maxQueuedWrites> writes{};
    std::array<std::uint8_t, bytesAtOnce> bytes{};
  };

  bool prepare();
  void writeAll() noexcept;

  System& system_;
  std::atomic<bool> pending_{false};  // Whether `count_` is not 0.
  bool collects_ = false;
  bool isSupported_ = true;
  std::unique_ptr<Collected> collected_;
  std::uint64_t queue_ = 0;
  std::size_t count_ = 0;
  std::size_t size_ = 0;  // Of the collected bytes.
  std::int64_t firstAt_ = 0;
};

}  // namespace EvtSrv::internal
