#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace treectl {

/// The scale of an axis: round limits around some values, and round ticks.
class Scale {
 public:
  /// For values from `least` to `greatest` on an axis of `rows` lines.
  Scale(double least, double greatest, std::size_t rows);

  [[nodiscard]] double low() const { return low_; }
  [[nodiscard]] double high() const { return high_; }

  /// The position of `value` among `count` from the top, which is 0.
  [[nodiscard]] std::size_t positionOf(double value, std::size_t count) const;

  /// From the lowest to the highest.
  [[nodiscard]] const std::vector<double>& ticks() const { return ticks_; }

  /// The text of a tick, with as many digits as tell the ticks apart.
  [[nodiscard]] std::string label(double tick) const;

 private:
  double low_;
  double high_;
  double step_;
  std::vector<double> ticks_;
};

}  // namespace treectl
