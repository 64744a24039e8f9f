#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "gateway/exporter/local_server.h"
#include "gateway/exporter/served_tree.h"
#include "gateway/exporter/tree_reading.h"
#include "gateway/wire/request.h"

namespace modelgate {

struct WorkerResult {
  ModelSrv::ModelRes result = ModelSrv::ModelRes_Success;
  std::string reason;
  std::optional<std::string> value;
};

/// A request about one part of a worker's server.
struct WorkerRequest {
  Verb verb = Verb::get;  ///< get, set or load
  Chain chain;
  /// The names along the chain, as they were when it was decided that the store is allowed.
  std::vector<std::string> names;
  ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;
  std::string value;
  /// The last moment to store.
  std::chrono::steady_clock::time_point until;
  /// Called once on the worker's thread.
  std::function<void(WorkerResult)> done;
};

/// A thread that holds the connection to one server of this machine: it reads the server's tree,
/// again after each change of the structure, keeps its values up to date, and carries out requests.
/// A server that does not respond blocks this thread alone.
class TreeWorker {
 public:
  using Clock = std::chrono::steady_clock;

  /// Called on the worker's thread.
  struct Handlers {
    /// The tree has been read for the first time, or has another shape.
    std::function<void(std::shared_ptr<ServedTree> tree)> tree;
    /// Values of the last tree have changed: it has marks.
    std::function<void()> changed;
    /// The server was lost, or is back with the same shape.
    std::function<void(bool isUp)> up;
    /// The server cannot be connected to, or read, now. It is tried again.
    std::function<void(std::string reason)> failed;
    /// The tree cannot be exported. It is read again when its structure changes, and when the
    /// server comes anew; for a mirror, which fetches its values for each client, only then. May be
    /// called again with the same reason.
    std::function<void(std::string reason)> rejected;
    /// The thread does nothing any more: `hasEnded`.
    std::function<void()> ended = {};
  };

  /// The most requests that wait.
  static constexpr std::size_t maxRequests = 256;

  /// `interval` is the least time between two changes of one part. Throws std::system_error if
  /// there is no thread.
  TreeWorker(std::string port, std::chrono::milliseconds interval, Handlers handlers);
  /// Waits for the request that is in progress. Requests that wait are not carried out.
  ~TreeWorker();
  TreeWorker(const TreeWorker&) = delete;
  TreeWorker& operator=(const TreeWorker&) = delete;

  // Any thread.

  /// Queues a request; false if too many wait, or the server was left.
  [[nodiscard]] bool request(WorkerRequest request);
  /// Whether values are of interest, so that parts that cannot be watched are read each second.
  void setActive(bool isActive);
  /// The server may have come up.
  void retry();
  /// Ends the thread soon; a request that is in progress takes 2 s at most. The destructor waits
  /// for that, so that nothing else has to.
  void stop();
  [[nodiscard]] bool hasEnded() const { return hasEnded_; }

 private:
  void run();
  void serve();
  bool connect();
  /// False if the thread is to end.
  bool awaitConnection();
  bool pauseUnconnected();
  bool leave();
  [[nodiscard]] bool isStopping();
  /// When the parts that cannot be watched are to be read again.
  [[nodiscard]] Clock::time_point nextUnwatchedRead();
  [[nodiscard]] static int millisecondsUntil(Clock::time_point next);

  // tree_updates.cpp
  void readAgain();
  void takeReadout(TreeReadout readout);
  void takeValues(const std::vector<Value>& values);
  void handle(const ModelSrv::WatchEvent& event);
  void takeValue(const ModelSrv::WatchEvent& event);
  void readUnwatched();
  void noteStructureChange();
  void watchStructure();
  void reject(std::string reason, bool leaves = false);

  // tree_requests.cpp
  bool serveRequests();
  WorkerResult carryOut(const WorkerRequest& request);
  WorkerResult carryOutStore(const WorkerRequest& request);
  WorkerResult readValue(const WorkerRequest& request);
  [[nodiscard]] bool isSamePart(const WorkerRequest& request);
  ModelSrv::ModelRes readInto(Position position, const Chain& chain, ModelSrv::ModelPartIndex index,
                              std::string& text);
  void setWhole(Position position, const Chain& chain, ModelSrv::ModelRes result,
                std::string_view text);

  const std::string port_;
  const std::chrono::milliseconds interval_;
  const Handlers handlers_;
  LocalServer server_;

  // Of the thread.
  std::shared_ptr<ServedTree> tree_;
  std::vector<Position> unwatched_;          ///< with values of which the watch reports nothing
  Clock::time_point unwatchedAt_;            ///< when these are to be read again
  std::optional<Clock::time_point> readAt_;  ///< when the tree is to be read again
  bool isWatching_ = false;
  bool expectsBegin_ = false;  ///< the watch is new: its beginning says nothing
  bool isUp_ = false;
  bool isRejected_ = false;  ///< the tree could not be exported when it was last read
  bool isListed_ = false;    ///< the watch has reported the whole tree
  std::chrono::milliseconds rejectionPause_{0};  ///< until a rejected tree may be read again
  Clock::time_point rejectedUntil_;
  Chain chain_;  ///< reused

  std::mutex mutex_;
  std::condition_variable wakeUp_;
  // Guarded by the mutex.
  std::deque<WorkerRequest> requests_;
  bool isActive_ = false;
  bool shouldRetry_ = false;
  bool hasLeft_ = false;  ///< the server, until it comes anew
  bool isStopping_ = false;

  std::atomic<bool> hasEnded_{false};
  std::thread thread_;  ///< the last member: it uses the others
};

}  // namespace modelgate
