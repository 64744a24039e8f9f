#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "modelsrv/model_root.h"
#include "servers/error.h"
#include "servers/recording_file.h"
#include "servers/replayed_tree.h"

namespace modelsrvd {

/// Publishes the tree of a recording, and lets it move as it did. Reads the file line by line, as
/// the lines are due.
///
/// For the thread that dispatches events, which passes the time in.
class Replay {
 public:
  using Clock = std::chrono::steady_clock;

  struct Pace {
    double speed = 1;    ///< how many times as fast as it was recorded
    bool loops = false;  ///< whether it begins again at its end
  };

  /// Opens the recording and checks all of it. The error says in which line it is wrong.
  [[nodiscard]] static Result<std::unique_ptr<Replay>> open(const std::string& path, Pace pace);

  /// The name of the server that the recording is of; empty if it is of none or several.
  [[nodiscard]] const std::string& name() const { return name_; }

  /// Adds the tree with the values that the recording begins with to `root`, which outlives this
  /// object. To be called once.
  [[nodiscard]] std::optional<Error> publish(ModelSrv::ModelRoot& root);

  /// When `tick` is to be called next; nothing after the end.
  [[nodiscard]] std::optional<Clock::time_point> nextDeadline(Clock::time_point now) const;

  /// Applies some of the changes that are due; the first call is the time at which the recording
  /// begins. Does a bounded amount of work, so that clients are served in between.
  void tick(Clock::time_point now);

  /// Why the replay has ended early, once: the file has changed since it was checked, or cannot be
  /// read. The tree keeps its values.
  [[nodiscard]] std::optional<Error> takeError() { return std::exchange(error_, std::nullopt); }

 private:
  Replay(const std::string& path, Pace pace) : path_(path), pace_(pace), file_(path) {}

  [[nodiscard]] Error errorAtLine(const Error& error) const;
  [[nodiscard]] std::optional<Error> check();
  [[nodiscard]] std::optional<Error> readNext();
  [[nodiscard]] std::optional<Error> begin();
  [[nodiscard]] Clock::time_point due() const;
  void step(Clock::time_point now, std::size_t& bytes);
  void end(std::optional<Error> error);

  std::string path_;
  Pace pace_;
  RecordingFile file_;
  RecordingHeader header_;
  std::string name_;
  bool isOfOneServer_ = false;
  ModelSrv::ModelRoot* root_ = nullptr;
  std::optional<ReplayedTree> tree_;

  std::optional<RecordedChange> next_;  ///< the change that was read last and is not applied yet
  std::size_t nextBytes_ = 0;           ///< of its line
  bool isBeginning_ = true;             ///< whether all changes before it are initial values
  std::int64_t offset_ = 0;             ///< its time since the beginning, in microseconds
  std::optional<Clock::time_point> begin_;
  bool isFinished_ = false;
  std::optional<Error> error_;
};

}  // namespace modelsrvd
