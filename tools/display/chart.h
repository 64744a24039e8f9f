#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/display/cell_text.h"
#include "tools/display/trace.h"

namespace treectl {

/// What a chart shows of one address.
struct Series {
  std::string label;  ///< the address
  std::string value;  ///< the last one, as text
  std::string unit;
  const Trace* trace = nullptr;  ///< null: there is no curve, as for a text
};

/// Draws curves of the last minute, one for each series. Series with the same unit share a scale;
/// each unit has a part of the height. Returns at most `size.rows` lines. Pure: the same arguments
/// give the same lines.
///
/// `now` is the time at the right edge, in microseconds since 1970. `more` is the number of
/// addresses that there is no series of.
[[nodiscard]] std::vector<ScreenLine> drawChart(const std::vector<Series>& series, Size size,
                                                std::int64_t now, const Style& style,
                                                std::size_t more = 0);

/// How long it takes until the curves move by a dot, in microseconds.
[[nodiscard]] std::int64_t chartStep(Size size);

}  // namespace treectl
