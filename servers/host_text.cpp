#include "servers/host_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <optional>
#include <set>
#include <utility>

namespace modelsrvd {

namespace {

/// Removes the text up to and including `separator` from `text`; returns what is
/// before the separator.
std::string_view takeUntil(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  const std::string_view field = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return field;
}

/// Removes the next word from `text` and returns it; empty at the end.
std::string_view takeWord(std::string_view& text) {
  const std::size_t start = text.find_first_not_of(" \t\n");
  text.remove_prefix(start == std::string_view::npos ? text.size() : start);
  const std::string_view word = text.substr(0, text.find_first_of(" \t\n"));
  text.remove_prefix(word.size());
  return word;
}

template <typename T>
T numberOf(std::string_view word) {
  T number{};
  const auto [stop, code] = std::from_chars(word.data(), word.data() + word.size(), number);
  return code == std::errc{} && stop != word.data() ? number : T{};
}

template <typename T>
T takeNumber(std::string_view& text) {
  return numberOf<T>(takeWord(text));
}

/// The columns after a core's name: user, nice, system, idle, iowait, irq, softirq,
/// steal. Later columns are already included in the first two.
CoreTimes takeCoreTimes(std::string_view columns) {
  constexpr std::size_t idle = 3;
  constexpr std::size_t ioWait = 4;
  CoreTimes times;
  for (std::size_t column = 0; column < 8; ++column) {
    const auto ticks = takeNumber<std::uint64_t>(columns);
    times.total += ticks;
    if (column != idle && column != ioWait) {
      times.busy += ticks;
    }
  }
  return times;
}

/// Decodes the octal escapes in a field of "/proc/mounts" (getmntent(3)).
std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t at = 0; at < field.size(); ++at) {
    unsigned byte = 0;
    if (field[at] == '\\' && at + 3 < field.size()) {
      const auto [stop, code] =
          std::from_chars(field.data() + at + 1, field.data() + at + 4, byte, 8);
      if (code == std::errc{} && stop == field.data() + at + 4 && byte <= 0xFF) {
        text += static_cast<char>(byte);
        at += 3;
        continue;
      }
    }
    text += field[at];
  }
  return text;
}

template <std::size_t n>
bool isOneOf(std::string_view word, const std::array<std::string_view, n>& words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

/// Whether file systems of this type store data on this machine.
bool isLocalStorage(std::string_view type) {
  static constexpr std::array<std::string_view, 28> types{
      "bcachefs", "btrfs",  "cramfs",  "erofs",   "exfat",   "ext2",     "ext3",
      "ext4",     "f2fs",   "hfsplus", "iso9660", "jffs2",   "jfs",      "minix",
      "msdos",    "nilfs2", "ntfs",    "ntfs3",   "overlay", "reiserfs", "romfs",
      "squashfs", "tmpfs",  "ubifs",   "udf",     "vfat",    "xfs",      "zfs"};
  return isOneOf(type, types);
}

/// Whether resolving a path on a mount of this type never waits for another machine
/// or process.
bool neverBlocks(std::string_view type) {
  static constexpr std::array<std::string_view, 8> kernelTypes{
      "rootfs", "ramfs", "devtmpfs", "proc", "sysfs", "cgroup", "cgroup2", "configfs"};
  return isLocalStorage(type) || isOneOf(type, kernelTypes);
}

bool isAtOrBelow(std::string_view path, std::string_view directory) {
  return path.substr(0, directory.size()) == directory &&
         (path.size() == directory.size() || path[directory.size()] == '/');
}

bool isKernelDirectory(std::string_view path) {
  return isAtOrBelow(path, "/proc") || isAtOrBelow(path, "/sys") || isAtOrBelow(path, "/dev");
}

/// Whether one of the directories above `path` is a mount point in `blocking`.
bool crosses(std::string_view path, const std::set<std::string, std::less<>>& blocking) {
  for (std::size_t end = path.rfind('/'); end != std::string_view::npos && end != 0;
       end = path.rfind('/', end - 1)) {
    if (blocking.find(path.substr(0, end)) != blocking.end()) {
      return true;
    }
  }
  return path != "/" && blocking.find("/") != blocking.end();
}

}  // namespace

LoadAverages parseLoad(std::string_view text) {
  LoadAverages load;
  load.oneMinute = takeNumber<double>(text);
  load.fiveMinutes = takeNumber<double>(text);
  load.fifteenMinutes = takeNumber<double>(text);
  return load;
}

std::uint64_t parseUptime(std::string_view text) {
  return takeNumber<std::uint64_t>(text);
}

CpuStatus parseCpuStatus(std::string_view text) {
  CpuStatus status;
  while (!text.empty()) {
    std::string_view line = takeUntil(text, '\n');
    const std::string_view name = takeWord(line);
    if (name == "procs_running") {
      status.running = takeNumber<std::uint32_t>(line);
    } else if (name.size() > 3 && name.substr(0, 3) == "cpu") {
      status.cores[numberOf<unsigned>(name.substr(3))] = takeCoreTimes(line);
    }
  }
  return status;
}

double usagePercent(const CoreTimes& before, const CoreTimes& after) {
  // The kernel's idle counts may decrease slightly (proc(5)).
  if (after.total <= before.total || after.busy <= before.busy) {
    return 0;
  }
  const double share = static_cast<double>(after.busy - before.busy) /
                       static_cast<double>(after.total - before.total);
  return std::round(std::min(share, 1.0) * 1000) / 10;
}

MemorySizes parseMemory(std::string_view text) {
  MemorySizes sizes;
  const std::array<std::pair<std::string_view, std::uint64_t*>, 4> fields{
      {{"MemTotal:", &sizes.total},
       {"MemAvailable:", &sizes.available},
       {"MemFree:", &sizes.free},
       {"Cached:", &sizes.cached}}};
  while (!text.empty()) {
    std::string_view line = takeUntil(text, '\n');
    const std::string_view name = takeWord(line);
    for (const auto& [field, size] : fields) {
      if (field == name) {
        *size = takeNumber<std::uint64_t>(line) * 1024;
      }
    }
  }
  return sizes;
}

std::vector<InterfaceCounts> parseInterfaces(std::string_view text) {
  constexpr int skippedColumns = 6;
  std::vector<InterfaceCounts> interfaces;
  while (!text.empty()) {
    std::string_view line = takeUntil(text, '\n');
    // The last colon: the name of an alias contains one, numbers do not.
    const std::size_t colon = line.rfind(':');
    if (colon == std::string_view::npos) {
      continue;
    }
    std::string_view name = line.substr(0, colon);
    line.remove_prefix(colon + 1);
    InterfaceCounts counts;
    counts.name = takeWord(name);
    counts.receivedBytes = takeNumber<std::uint64_t>(line);
    counts.receivedPackets = takeNumber<std::uint64_t>(line);
    for (int column = 0; column < skippedColumns; ++column) {
      takeWord(line);
    }
    counts.sentBytes = takeNumber<std::uint64_t>(line);
    counts.sentPackets = takeNumber<std::uint64_t>(line);
    interfaces.push_back(std::move(counts));
  }
  return interfaces;
}

std::vector<std::string> parseLocalMounts(std::string_view text) {
  std::vector<std::pair<std::string, std::string_view>> mounts;
  while (!text.empty()) {
    std::string_view line = takeUntil(text, '\n');
    takeWord(line);
    std::string mountPoint = unescaped(takeWord(line));
    const std::string_view type = takeWord(line);
    if (type.empty() || mountPoint.empty() || mountPoint.front() != '/') {
      continue;
    }
    mounts.emplace_back(std::move(mountPoint), type);
  }
  std::set<std::string, std::less<>> blocking;
  std::map<std::string_view, std::string_view> last;  // a later mount hides an earlier one
  for (const auto& [mountPoint, type] : mounts) {
    last[mountPoint] = type;
    if (!neverBlocks(type)) {
      blocking.insert(mountPoint);
    }
  }
  std::vector<std::string> local;
  for (const auto& [mountPoint, type] : mounts) {
    const auto visible = last.find(mountPoint);
    if (visible == last.end()) {
      continue;
    }
    if (isLocalStorage(visible->second) && blocking.find(mountPoint) == blocking.end() &&
        !isKernelDirectory(mountPoint) && !crosses(mountPoint, blocking)) {
      local.push_back(mountPoint);
    }
    last.erase(visible);
  }
  return local;
}

std::int64_t parseNumberText(std::string_view text) {
  const std::string_view word = takeWord(text);
  if (word.substr(0, 2) != "0x") {
    return numberOf<std::int64_t>(word);
  }
  std::int64_t number = 0;
  std::from_chars(word.data() + 2, word.data() + word.size(), number, 16);
  return number;
}

std::string firstLine(std::string_view text) {
  return std::string(takeUntil(text, '\n'));
}

}  // namespace modelsrvd
