#pragma once

#include <cstdint>
#include <deque>

namespace treectl {

/// The numbers that an address has had in the last minute, for a chart. Its memory is bounded: what
/// comes within 50 ms becomes the least, the greatest and the last of it.
class Trace {
 public:
  /// How long numbers are kept, in microseconds, and what they are collected in.
  static constexpr std::int64_t window = 60'000'000;
  static constexpr std::int64_t binLength = 50'000;

  struct Bin {
    std::int64_t time = 0;  ///< when it begins, in microseconds
    double least = 0;       ///< not a number if there was none
    double greatest = 0;
    double last = 0;  ///< not a number: nothing is known from then on
  };

  /// Adds a value, which holds until the next one; not a number or an infinity: a gap. A time
  /// before that of the last value counts as that one.
  void add(std::int64_t time, double value);
  void addGap(std::int64_t time);

  /// In the order of their times. The first one may be older than the window: it is what held at
  /// its beginning.
  [[nodiscard]] const std::deque<Bin>& bins() const { return bins_; }

 private:
  /// The bin of that time, or the last one; without values if it is new.
  Bin& binAt(std::int64_t time);

  std::deque<Bin> bins_;
};

}  // namespace treectl
