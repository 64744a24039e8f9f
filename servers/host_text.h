#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace modelsrvd {

/// Parsers of the kernel's text files about the machine (proc(5)). They make no
/// system calls. Values that a text does not contain, or that do not parse, are 0 or
/// empty.

struct LoadAverages {
  double oneMinute = 0;
  double fiveMinutes = 0;
  double fifteenMinutes = 0;
};

/// "/proc/loadavg".
[[nodiscard]] LoadAverages parseLoad(std::string_view text);

/// "/proc/uptime": the whole seconds since boot.
[[nodiscard]] std::uint64_t parseUptime(std::string_view text);

/// The time that a core has spent since boot, in ticks.
struct CoreTimes {
  std::uint64_t busy = 0;
  std::uint64_t total = 0;
};

struct CpuStatus {
  std::map<unsigned, CoreTimes> cores;  ///< online cores by number
  std::uint32_t running = 0;            ///< runnable threads
};

/// "/proc/stat". Time spent waiting for I/O counts as idle.
[[nodiscard]] CpuStatus parseCpuStatus(std::string_view text);

/// The share of the time from `before` to `after` in which a core was busy, in
/// percent rounded to a tenth; 0 if no time has passed.
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

/// "/proc/net/dev", in the order of the file.
[[nodiscard]] std::vector<InterfaceCounts> parseInterfaces(std::string_view text);

/// "/proc/mounts": the mount points whose capacity can be read without waiting for
/// another machine or process. These are mounts of local file systems whose path
/// crosses only local and kernel file systems. Each appears once, in the order of
/// the file; those in "/proc", "/sys" and "/dev" are left out.
[[nodiscard]] std::vector<std::string> parseLocalMounts(std::string_view text);

/// The number at the beginning of `text`: decimal, or hexadecimal after "0x"; 0 if
/// there is none.
[[nodiscard]] std::int64_t parseNumberText(std::string_view text);

/// The first line of `text`.
[[nodiscard]] std::string firstLine(std::string_view text);

}  // namespace modelsrvd
