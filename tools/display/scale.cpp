#include "tools/display/scale.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace treectl {

namespace {

/// The smallest of 1, 2 and 5 times a power of ten that is not below `least`.
double roundStep(double least) {
  const double power = std::pow(10.0, std::floor(std::log10(least)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    // A little less, for what rounding has added.
    if (factor * power >= least * (1 - 1e-9)) {
      return factor * power;
    }
  }
  return 10 * power;
}

}  // namespace

Scale::Scale(double least, double greatest, std::size_t rows) {
  constexpr std::size_t rowsPerTick = 3;
  const double parts = static_cast<double>(std::max<std::size_t>(1, (rows - 1) / rowsPerTick));
  // Values that are the same, or differ by rounding only, stand in the middle.
  const double size = std::max(std::fabs(least), std::fabs(greatest));
  if (greatest - least <= size * 1e-12) {
    const double margin = size > 0 ? size * 0.1 : 1;
    least -= margin;
    greatest += margin;
  }
  step_ = roundStep(std::max((greatest - least) / parts, 1e-300));
  low_ = std::floor(least / step_) * step_;
  high_ = std::ceil(greatest / step_) * step_;
  const double count = std::round((high_ - low_) / step_);
  for (double i = 0; i <= std::min(count, 100.0); ++i) {
    const double tick = low_ + i * step_;
    // What rounding leaves of zero.
    ticks_.push_back(std::fabs(tick) < step_ * 1e-6 ? 0 : tick);
  }
}

std::size_t Scale::positionOf(double value, std::size_t count) const {
  const double part = (high_ - value) / (high_ - low_);
  const double position = std::round(part * static_cast<double>(count - 1));
  return static_cast<std::size_t>(std::clamp(position, 0.0, static_cast<double>(count - 1)));
}

std::string Scale::label(double tick) const {
  constexpr int mostDecimals = 6;
  constexpr double longest = 1e7;
  const int decimals = std::max(0, -static_cast<int>(std::floor(std::log10(step_) + 1e-9)));
  char text[64];
  if (decimals <= mostDecimals && std::max(std::fabs(low_), std::fabs(high_)) < longest) {
    std::snprintf(text, sizeof text, "%.*f", decimals, tick);
  } else {
    std::snprintf(text, sizeof text, "%.4g", tick);
  }
  return text;
}

}  // namespace treectl
