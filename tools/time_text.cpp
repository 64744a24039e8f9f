#include "tools/time_text.h"

#include <sys/time.h>

#include <ctime>
#include <string_view>

namespace treectl {

namespace {

constexpr std::int64_t microsecondsPerSecond = 1000000;

/// The time in seconds, a dot and microseconds.
std::string timeText(const tm& parts, std::int64_t microseconds) {
  char text[64];
  const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  const std::string digits =
      std::to_string(microsecondsPerSecond + microseconds % microsecondsPerSecond);
  return std::string(text, size) + '.' + digits.substr(1);
}

}  // namespace

std::int64_t microsecondsNow() {
  timeval now{};
  ::gettimeofday(&now, nullptr);
  return std::int64_t{now.tv_sec} * microsecondsPerSecond + now.tv_usec;
}

std::string utcTime(std::int64_t microseconds) {
  const std::time_t seconds = microseconds / microsecondsPerSecond;
  tm parts{};
  ::gmtime_r(&seconds, &parts);
  return timeText(parts, microseconds) + 'Z';
}

std::string localTime(std::int64_t microseconds) {
  const std::time_t seconds = microseconds / microsecondsPerSecond;
  tm parts{};
  ::localtime_r(&seconds, &parts);
  char zone[16];
  // "+0100" becomes "+01:00".
  const std::size_t size = std::strftime(zone, sizeof zone, "%z", &parts);
  std::string text = timeText(parts, microseconds);
  if (size != 5 || parts.tm_gmtoff == 0) {
    return text + 'Z';
  }
  return text.append(zone, 3) + ':' + std::string(zone + 3, 2);
}

std::optional<std::int64_t> parseTime(const std::string& text) {
  tm parts{};
  const char* const rest = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
  if (rest == nullptr) {
    return std::nullopt;
  }
  const std::string_view fraction(rest);
  constexpr std::size_t digits = 6;
  std::int64_t microseconds = 0;
  if (fraction.size() != digits + 2 || fraction.front() != '.' || fraction.back() != 'Z') {
    return std::nullopt;
  }
  for (const char digit : fraction.substr(1, digits)) {
    if (digit < '0' || digit > '9') {
      return std::nullopt;
    }
    microseconds = microseconds * 10 + (digit - '0');
  }
  return std::int64_t{::timegm(&parts)} * microsecondsPerSecond + microseconds;
}

}  // namespace treectl
