#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "gateway/exporter/export_context.h"
#include "gateway/exporter/json_topics.h"
#include "gateway/exporter/leases.h"
#include "gateway/exporter/sequence_table.h"
#include "gateway/exporter/sync_job.h"
#include "gateway/exporter/tree_worker.h"
#include "gateway/exporter/value_pages.h"
#include "gateway/wire/device_state.h"
#include "gateway/wire/limits.h"

namespace modelgate {

/// One server of this machine at the broker: its shape, batches of its values while a client has a
/// lease, and the retained values and JSON. On the loop's thread; it has a worker, whose server may
/// block it.
class ServerExport {
 public:
  using Clock = std::chrono::steady_clock;

  /// Begins to read the tree of the server of `port`. Throws std::system_error if there is no
  /// thread.
  ServerExport(ExportContext& context, std::string port);
  ServerExport(const ServerExport&) = delete;
  ServerExport& operator=(const ServerExport&) = delete;

  [[nodiscard]] const std::string& port() const { return port_; }
  [[nodiscard]] const std::string& name() const { return name_; }
  /// Whether the first attempt to read the tree has ended.
  [[nodiscard]] bool isSettled() const { return isSettled_; }
  /// Whether its tree cannot be exported.
  [[nodiscard]] bool isRejected() const { return !rejection_.empty(); }
  /// For the device's state; empty if the tree has not been read yet.
  [[nodiscard]] std::optional<ServerState> state() const;
  [[nodiscard]] bool isUp() const { return isUp_; }
  /// Null if it has not been read yet. It is replaced when the shape changes.
  [[nodiscard]] const std::shared_ptr<ServedTree>& tree() const { return tree_; }
  [[nodiscard]] std::uint64_t sequence() { return sequences_.sequence(); }

  /// The server may have come up.
  void retry() { worker_.retry(); }

  /// Begins the end: from now on it calls and publishes nothing. The destructor does not wait once
  /// `hasEnded`.
  void end();
  [[nodiscard]] bool hasEnded() const { return worker_.hasEnded(); }

  // The broker.

  /// There is a connection: publishes everything that is retained.
  void publishRetained();
  /// The broker may retain that many pages of an earlier process.
  void removePages(std::size_t count);
  /// Removes everything that the broker retains of the server.
  void removeAll();
  /// Publishes what is due while the outbox takes it.
  void flush();

  // Requests.

  /// Of one part; `done` is called on the loop's thread. False if too many wait.
  [[nodiscard]] bool request(WorkerRequest request);
  /// Begins or renews a lease of the subtree at `position`. False if there are too many.
  [[nodiscard]] bool lease(const std::string& holder, Position position);
  using SendBatch = std::function<void(Batch batch, bool more)>;
  /// Sends the values of the subtree that have changed since `since` (all with 0), now or when the
  /// broker takes them. False if too many wait.
  [[nodiscard]] bool sync(Position top, std::uint64_t since, SendBatch send);

 private:
  struct PendingSync {
    Position top;
    std::uint64_t since;
    SendBatch send;
    SyncJob job;
  };

  [[nodiscard]] TreeWorker::Handlers handlers();
  void post(std::function<void()> action);
  void takeTree(std::shared_ptr<ServedTree> tree);
  void setUp(bool isUp);
  void takeMarks();
  void updateCover();
  void updateActivity();

  void publishPages();
  [[nodiscard]] std::optional<Publication> nextPage();
  void addPages(std::set<std::string>& topics) const;
  void leaveTopics();
  void removeLeftTopics();

  [[nodiscard]] PositionRange rangeOf(Position top) const;
  [[nodiscard]] SyncJob makeJob(Position top, std::uint64_t since);
  void sendSync(PendingSync& sync);
  [[nodiscard]] bool flushOne(Clock::time_point now);
  void sendBatch(Clock::time_point now);
  [[nodiscard]] bool isBatchDue(Clock::time_point now) const;
  void schedule(Clock::time_point now);

  ExportContext& context_;
  const std::string port_;
  const std::string name_;

  std::shared_ptr<ServedTree> tree_;
  std::uint64_t shape_ = 0;
  std::vector<std::string> publishedPages_;  ///< the hashes of those that this broker has
  bool isUp_ = false;
  bool isSettled_ = false;
  std::string rejection_;  ///< why the tree cannot be exported; empty if it can, or is not known
  SequenceTable sequences_;
  Leases leases_;
  std::optional<JsonTopics> json_;
  std::optional<ValuePages> pages_;
  std::deque<PendingSync> syncs_;
  /// What the broker may retain, except the pages and nodes that there are. Shared with the outbox,
  /// which takes from it also when this object has gone.
  std::shared_ptr<std::set<std::string>> leftTopics_ = std::make_shared<std::set<std::string>>();

  Clock::time_point nextBatch_ = Clock::time_point::min();
  bool isBatchOpen_ = false;  ///< some of what was due could not be sent yet
  Clock::time_point nextHeartbeat_ = Clock::time_point::min();
  EventLoop::Timer timer_;
  Clock::time_point timerAt_ = Clock::time_point::max();

  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);  ///< false after `end`
  TreeWorker worker_;                                           ///< the last member: it ends first
};

}  // namespace modelgate
