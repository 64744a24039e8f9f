#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace modelsrvd {

/// Readers of the texts in which the kernel tells about the machine (proc(5)).
/// Text in, values out; whatever a text does not hold is left as it was, and a
/// text that makes no sense gives nothing.

struct LoadAverages {
  double oneMinute = 0;
  double fiveMinutes = 0;
  double fifteenMinutes = 0;
};

/// "/proc/loadavg".
[[nodiscard]] LoadAverages parseLoad(std::string_view text);

/// The seconds since the start, whole ones: "/proc/uptime".
[[nodiscard]] std::uint64_t parseUptime(std::string_view text);

/// The time that a core has spent since the start, in ticks.
struct CoreTimes {
  std::uint64_t busy = 0;
  std::uint64_t total = 0;
};

struct CpuStatus {
  std::map<unsigned, CoreTimes> cores;  ///< those that are on, by number
  std::uint32_t running = 0;            ///< threads that run or could
};

/// "/proc/stat". Time spent waiting for a device counts as idle.
[[nodiscard]] CpuStatus parseCpuStatus(std::string_view text);

/// How much of the time from `before` to `after` a core was busy, in percent
/// rounded to a tenth; 0 where no time has passed.
[[nodiscard]] double usagePercent(const CoreTimes& before, const CoreTimes& after);

struct MemorySizes {
  std::uint64_t total = 0;
  std::uint64_t available = 0;
  std::uint64_t free = 0;
  std::uint64_t cached = 0;
};

/// "/proc/meminfo", in bytes.
[[nodiscard]] MemorySizes parseMemory(std::string_view text);

struct InterfaceCounts {
  std::string name;
  std::uint64_t receivedBytes = 0;
  std::uint64_t receivedPackets = 0;
  std::uint64_t sentBytes = 0;
  std::uint64_t sentPackets = 0;
};

/// "/proc/net/dev", in its order.
[[nodiscard]] std::vector<InterfaceCounts> parseInterfaces(std::string_view text);

/// The places of "/proc/mounts" whose room can be asked for without waiting for
/// another machine or program: mounts of file systems that lie on this machine,
/// reached through such and the kernel's own alone. Each once, in the text's
/// order; what lies in "/proc", "/sys" and "/dev" is left out.
[[nodiscard]] std::vector<std::string> parseLocalMounts(std::string_view text);

/// The first number of `text` in decimal or, behind "0x", in hexadecimal; 0 where
/// it begins with none.
[[nodiscard]] std::int64_t parseNumberText(std::string_view text);

/// The first line of `text`.
[[nodiscard]] std::string firstLine(std::string_view text);

}  // namespace modelsrvd
