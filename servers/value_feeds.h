#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
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
/// construction to its destruction; the part outlives it. While the part is observed, each change
/// of the value notifies the part's subscribers once, whether a client stored it or not.
class ValueFeed {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~ValueFeed() = default;

  /// The part.
  [[nodiscard]] virtual ModelSrv::ModelPart& part() = 0;
  /// When to read next, if nothing is noticed before.
  [[nodiscard]] virtual Clock::time_point next(Clock::time_point now) const = 0;
  /// The file whose changes are to be noticed; empty if there is none.
  [[nodiscard]] virtual std::string watchedFile() const = 0;

  [[nodiscard]] bool isObserved() const { return isObserved_; }
  void setObserved(bool observed) { isObserved_ = observed; }
  /// Reads the value that later ones are compared with.
  void readFirst() { last_ = read(); }
  /// Reads the value, and notifies if it is not the last one that was read.
  void refresh();
  /// The last value that was read while the part was observed.
  [[nodiscard]] const Reading& last() const { return last_; }
  /// Notifies the part's subscribers.
  virtual void notify() = 0;

 protected:
  /// The present value.
  [[nodiscard]] virtual Reading read() = 0;
  /// A client has stored a value in place of `before`, while the part is observed.
  void stored(const Reading& before);

 private:
  bool isObserved_ = false;
  Reading last_;
};

/// The parts of a described tree whose values are in files or simulated. A client's request reads
/// the file or calculates the value. Subscribed parts are observed, others cost nothing.
///
/// For the thread that dispatches events, with the client mutex held if the tree is served. A call
/// does about a millisecond of work, so that clients are served in between. If memory is out while
/// a part is observed, that is tried again a second later.
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
  /// Nothing has changed if it throws `std::bad_alloc`.
  void add(ModelSrv::ModelPart& part, EntryType type, std::shared_ptr<const EntryDetails> details);

  /// Stops supplying the parts, which must still exist. Does not throw.
  void clear();

  /// Whether the value of `part` comes from here.
  [[nodiscard]] bool supplies(const ModelSrv::ModelPart& part) const {
    return supplied_.count(&part) != 0;
  }

  /// When `tick` is to be called next; nothing if no subscribed part is due. A time in the past if
  /// the last call has left something.
  [[nodiscard]] std::optional<Clock::time_point> nextDeadline() const;

  /// Reads values that are due and notifies the subscribers of those that have changed.
  void tick(Clock::time_point now);

  /// To be called after SIGIO: reads the values of changed files.
  void takeFileChanges(Clock::time_point now);

 private:
  struct Observed {
    std::unique_ptr<ValueFeed> feed;
    Clock::time_point deadline = notScheduled;
    std::string watchedFile;  ///< not empty while its directory is watched
  };
  static constexpr Clock::time_point notScheduled = Clock::time_point::max();

  /// A position in the order of `byFile_`.
  struct FilePosition {
    std::string_view file;
    const Observed* observed;
  };
  struct ByFile {
    using is_transparent = void;
    static FilePosition of(const Observed* observed) { return {observed->watchedFile, observed}; }
    static const FilePosition& of(const FilePosition& position) { return position; }
    template <typename A, typename B>
    bool operator()(const A& a, const B& b) const {
      const FilePosition left = of(a);
      const FilePosition right = of(b);
      const int order = left.file.compare(right.file);
      return order < 0 || (order == 0 && std::less<>()(left.observed, right.observed));
    }
  };
  /// How far the values of a changed file, or of those below a changed directory, are read.
  struct Changed {
    std::string path;
    std::string file;
    const Observed* observed = nullptr;
  };

  void setWatched(Observed& observed, bool watched) noexcept;
  template <typename Operation>
  void observe(Observed& observed, Clock::time_point now, Operation operation) noexcept;
  void schedule(Observed& observed, Clock::time_point now);
  void unschedule(Observed& observed) noexcept;
  void retry(Clock::time_point now);
  void readDue(Clock::time_point now);
  void readChanged(Clock::time_point now);
  bool nextChanged();
  [[nodiscard]] bool hasChanged() const {
    return mayHaveChanges_ || changing_ || !changed_.empty();
  }

  Clock::time_point start_;
  DirectoryWatch directories_;
  std::vector<std::unique_ptr<Observed>> feeds_;
  std::unordered_set<const ModelSrv::ModelPart*> supplied_;
  std::set<std::pair<Clock::time_point, Observed*>> due_;  ///< what is observed
  std::set<Observed*, ByFile> byFile_;                     ///< those of watched directories
  bool mayHaveChanges_ = false;                            ///< in `directories_`
  std::set<std::string> changed_;                          ///< paths taken from there
  std::optional<Changed> changing_;
  /// When to schedule what is observed and not in `due_`, since memory was out.
  std::optional<Clock::time_point> retryAt_;
  /// The last values of parts that were cleared while they were subscribed.
  std::map<const ModelSrv::ModelPart*, Reading> cleared_;
};

}  // namespace modelsrvd
