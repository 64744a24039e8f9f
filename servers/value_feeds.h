#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "modelsrv/model_part.h"
#include "servers/directory_watch.h"
#include "servers/tree_description.h"

namespace modelsrvd {

/// A value, or why there is none.
struct Reading {
  ModelSrv::ModelRes result = ModelSrv::ModelRes_NoValue;
  std::string text;

  bool operator==(const Reading&) const = default;
};

/// Where the value of one part comes from. It supplies the part's value to clients from its
/// construction to its destruction; the part outlives it.
class ValueFeed {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~ValueFeed() = default;

  /// The present value.
  [[nodiscard]] virtual Reading read() = 0;
  /// Notifies the part's subscribers.
  virtual void notify() = 0;
  /// The part.
  [[nodiscard]] virtual ModelSrv::ModelPart& part() = 0;
  /// When to read next, if that is known, and if nothing is noticed before.
  [[nodiscard]] virtual std::optional<Clock::time_point> next(Clock::time_point now) const = 0;
  /// The file whose changes are to be noticed; empty if there is none.
  [[nodiscard]] virtual std::string watchedFile() const = 0;
};

/// The parts of a described tree whose values are in files or simulated. A client's request reads
/// the file or calculates the value. Subscribed parts are observed, others cost nothing.
///
/// For the thread that dispatches events, with the client mutex held if the tree is served.
class ValueFeeds {
 public:
  using Clock = ValueFeed::Clock;

  /// Simulations begin at `start`.
  explicit ValueFeeds(Clock::time_point start) : start_(start) {}
  ~ValueFeeds() { clear(); }
  ValueFeeds(const ValueFeeds&) = delete;
  ValueFeeds& operator=(const ValueFeeds&) = delete;

  /// Supplies `part`, created for an entry of that type and with these details, if they have a
  /// source. If clients have subscribed to it already, those of a changed value are notified.
  void add(ModelSrv::ModelPart& part, EntryType type, std::shared_ptr<const EntryDetails> details);

  /// Stops supplying the parts, which must still exist.
  void clear();

  /// Whether the value of `part` comes from here.
  [[nodiscard]] bool supplies(const ModelSrv::ModelPart& part) const {
    return supplied_.count(&part) != 0;
  }

  /// When `tick` is to be called next; nothing if no subscribed part is due.
  [[nodiscard]] std::optional<Clock::time_point> nextDeadline() const;

  /// Reads the values that are due and notifies the subscribers of those that have changed.
  void tick(Clock::time_point now);

  /// To be called after SIGIO: reads the values of changed files.
  void takeFileChanges(Clock::time_point now);

 private:
  struct Observed {
    std::unique_ptr<ValueFeed> feed;
    Reading last;
    Clock::time_point deadline = Clock::time_point::max();
    std::string watchedFile;  ///< not empty while its directory is watched
    bool isWatched = false;
  };

  void setWatched(Observed& observed, bool watched);
  void refresh(Observed& observed, Clock::time_point now);
  void schedule(Observed& observed, Clock::time_point now);
  void unschedule(Observed& observed);

  Clock::time_point start_;
  DirectoryWatch directories_;
  std::vector<std::unique_ptr<Observed>> feeds_;
  std::unordered_set<const ModelSrv::ModelPart*> supplied_;
  std::set<std::pair<Clock::time_point, Observed*>> due_;
  std::multimap<std::string, Observed*> byFile_;  ///< of watched directories
  /// The last values of parts that were cleared while they were subscribed.
  std::map<const ModelSrv::ModelPart*, Reading> cleared_;
};

}  // namespace modelsrvd
