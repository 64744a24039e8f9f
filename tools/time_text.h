#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace treectl {

/// The time of now, in microseconds since 1970.
[[nodiscard]] std::int64_t microsecondsNow();

/// A time as "2026-11-21T09:30:01.000123Z", or with the local zone: "...+01:00".
[[nodiscard]] std::string utcTime(std::int64_t microseconds);
[[nodiscard]] std::string localTime(std::int64_t microseconds);

/// The time that `utcTime` gave that text.
[[nodiscard]] std::optional<std::int64_t> parseTime(const std::string& text);

}  // namespace treectl
