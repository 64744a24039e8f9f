#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "gateway/exporter/tree_index.h"
#include "gateway/wire/values.h"

namespace modelgate {

/// A value that has changed: of the part at `position`, or of one of its elements.
struct ValueMark {
  Position position = 0;
  ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;

  bool operator==(const ValueMark&) const = default;
};

/// The last value of each part of a tree, and one mark for each that has changed. So what a slow
/// reader costs is bounded, and it gets last values. Any thread; it has a lock of its own.
class ValueTable {
 public:
  /// No part has a value. `index` outlives this object.
  explicit ValueTable(const TreeIndex& index);

  /// Sets the whole value. Does nothing if it is the same. A text that no message can hold becomes
  /// `ModelRes_TooLarge`.
  void set(Position position, ModelSrv::ModelRes result, std::string_view text);
  /// Sets the elements of an array of which at least one text has a line feed, so that the text of
  /// the whole value would not say where they end.
  void setElements(Position position, std::vector<std::string> texts);
  /// Sets an element. The whole value must be known; otherwise nothing changes, and the result is
  /// false.
  bool setElement(Position position, ModelSrv::ModelPartIndex index, std::string_view text);

  /// Whether `text` says where the elements of the array at `position` end.
  [[nodiscard]] bool isWhole(Position position, std::string_view text) const;

  /// Removes and returns the marks, in the order of the first change.
  [[nodiscard]] std::vector<ValueMark> takeMarks();

  /// Appends the value, or that of an element, to `values`: element by element if it was set so.
  void read(ValueMark mark, std::vector<PositionedValue>& values) const;

  /// As `read`, for a batch whose values take `size` bytes, which grows. False, and nothing
  /// changes, if one message would not hold all of them; the first value always fits.
  [[nodiscard]] bool readForBatch(ValueMark mark, std::vector<PositionedValue>& values,
                                  std::size_t& size) const;

  /// Calls `changed` for the first mark after `takeMarks`, without the lock, on the thread that
  /// sets the value. Set it before other threads use the table.
  void setHandler(std::function<void()> changed) { changed_ = std::move(changed); }

 private:
  /// With the lock held. Whether it is the first mark.
  bool mark(Position position, ModelSrv::ModelPartIndex index);
  void notify(bool isFirst) const;
  bool setElementLocked(Position position, ModelSrv::ModelPartIndex index, std::string_view text,
                        bool& isKnown);

  const TreeIndex& index_;
  std::function<void()> changed_;

  mutable std::mutex mutex_;
  std::vector<Value> values_;
  /// Instead of the text in `values_`.
  std::unordered_map<Position, std::vector<std::string>> elements_;
  std::vector<ValueMark> marks_;
  /// For each part the number of its mark plus 1; 0 if there is none.
  std::vector<std::uint32_t> markOf_;
};

}  // namespace modelgate
