#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "modelsrv/model_root.h"
#include "modelsrv/part_description.h"
#include "servers/error.h"
#include "servers/state_file.h"
#include "servers/state_text.h"

namespace modelsrvd {

/// Keeps what clients store in a file, and sets it again when the server starts.
///
/// For the thread that dispatches events, which passes the time in.
class StoredValues {
 public:
  using Clock = std::chrono::steady_clock;

  /// The least time from the end of a write to the next one.
  static constexpr std::chrono::seconds interval{1};

  struct Hooks {
    /// Gets the errors that do not end the service.
    std::function<void(const Error& error)> report;
    /// Whether the tree holds the value of `part`, instead of a file or a simulation.
    std::function<bool(const ModelSrv::ModelPart& part)> holdsValue;
  };

  /// `root` outlives this object.
  StoredValues(std::string path, ModelSrv::ModelRoot& root, Hooks hooks);

  /// Reads the file and sets the values in the tree. What does not fit is reported and forgotten;
  /// a damaged file is reported and set aside. An error if the file cannot be read.
  [[nodiscard]] std::optional<Error> restore();

  /// To be called when a client has stored a value in `part`.
  void stored(ModelSrv::ModelPart& part) noexcept;

  /// When `tick` is to be called next; nothing if no client has stored anything since the last
  /// call.
  [[nodiscard]] std::optional<Clock::time_point> nextDeadline() const;

  /// Writes the file if the deadline has passed and a value has changed. The first error of
  /// several attempts is reported; the next store leads to another attempt.
  void tick(Clock::time_point now);

  /// Writes the file if it lacks something.
  void finish();

  // A reload of the tree: `beginReload`, then `keeps` for each part that stays, after its
  // attributes were set, then `endReload`.

  /// If it throws `std::bad_alloc`, no reload has begun.
  void beginReload();
  /// Whether `part` keeps its value, because a client has stored it and may still do so.
  [[nodiscard]] bool keeps(ModelSrv::ModelPart& part);
  /// Sets the values of parts that have been replaced. If it throws `std::bad_alloc`, that is tried
  /// again before the next write.
  void endReload();

 private:
  /// A part to which a client has stored.
  struct Record {
    ModelSrv::ModelPart* part;  ///< during a reload null until the part is known to stay
    StoredPart value;           ///< what the file has or gets
    std::string line;           ///< its text
    bool isStale = false;       ///< whether the part may have another value
  };

  [[nodiscard]] ModelSrv::ModelPart* find(const StoredPart& value) const;
  void restoreValue(const StoredPart& value);
  [[nodiscard]] bool set(ModelSrv::ModelPart& part, const ModelSrv::PartDescription& description,
                         const StoredPart& value) const;
  void add(ModelSrv::ModelPart& part, StoredPart value);
  void refresh();
  void setReplaced();
  void save(bool isLast);
  [[nodiscard]] std::optional<Error> write();
  void reportLost(const StoredPart& value, const std::string& why) const;

  StateFile file_;
  ModelSrv::ModelRoot& root_;
  Hooks hooks_;
  std::vector<Record> records_;  ///< in the order of their first stores
  std::unordered_map<const ModelSrv::ModelPart*, std::size_t> positions_;
  std::vector<std::size_t> stale_;  ///< the positions of stale records
  /// Values of parts that a reload has replaced, the first one last. Empty except in `endReload`,
  /// and if memory was out there.
  std::vector<StoredPart> replaced_;
  Clock::time_point next_{};  ///< the earliest time of the next write
  bool pending_ = false;      ///< whether a client has stored something since the last tick
  bool changed_ = false;      ///< whether the file lacks something
  bool writeFailed_ = false;  ///< whether the last attempt to write it has failed
  bool outOfMemory_ = false;  ///< whether a store could not be recorded
};

}  // namespace modelsrvd
