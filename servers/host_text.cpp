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

/// Takes the next piece before `separator` off `text`.
std::string_view takeUntil(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  const std::string_view piece = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return piece;
}

/// Takes the next word off `text`; empty at its end.
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
  const auto [stop, fault] = std::from_chars(word.data(), word.data() + word.size(), number);
  return fault == std::errc{} && stop != word.data() ? number : T{};
}

template <typename T>
T takeNumber(std::string_view& text) {
  return numberOf<T>(takeWord(text));
}

/// The columns behind a core's name: user, nice, system, idle, iowait, irq,
/// softirq, steal; those behind are part of the first two.
CoreTimes takeCoreTimes(std::string_view columns) {
  constexpr std::size_t idle = 3;
  constexpr std::size_t waiting = 4;
  CoreTimes times;
  for (std::size_t column = 0; column < 8; ++column) {
    const auto ticks = takeNumber<std::uint64_t>(columns);
    times.total += ticks;
    if (column != idle && column != waiting) {
      times.busy += ticks;
    }
  }
  return times;
}

/// Undoes the octal escapes of a field of "/proc/mounts" (getmntent(3)).
std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t at = 0; at < field.size(); ++at) {
    unsigned byte = 0;
    if (field[at] == '\\' && at + 3 < field.size()) {
      const auto [stop, fault] =
          std::from_chars(field.data() + at + 1, field.data() + at + 4, byte, 8);
      if (fault == std::errc{} && stop == field.data() + at + 4 && byte <= 0xFF) {
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

bool hasRoom(std::string_view type) {
  static constexpr std::array<std::string_view, 28> types{
      "bcachefs", "btrfs",  "cramfs",  "erofs",   "exfat",   "ext2",     "ext3",
      "ext4",     "f2fs",   "hfsplus", "iso9660", "jffs2",   "jfs",      "minix",
      "msdos",    "nilfs2", "ntfs",    "ntfs3",   "overlay", "reiserfs", "romfs",
      "squashfs", "tmpfs",  "ubifs",   "udf",     "vfat",    "xfs",      "zfs"};
  return isOneOf(type, types);
}

/// Whether a path through a mount of this type waits for nobody.
bool answersAtOnce(std::string_view type) {
  static constexpr std::array<std::string_view, 8> kernels{
      "rootfs", "ramfs", "devtmpfs", "proc", "sysfs", "cgroup", "cgroup2", "configfs"};
  return hasRoom(type) || isOneOf(type, kernels);
}

bool liesIn(std::string_view path, std::string_view directory) {
  return path.substr(0, directory.size()) == directory &&
         (path.size() == directory.size() || path[directory.size()] == '/');
}

bool isKernels(std::string_view path) {
  return liesIn(path, "/proc") || liesIn(path, "/sys") || liesIn(path, "/dev");
}

/// Whether the way to `path` leads through one of `slow`, which are mount points.
bool leadsThrough(std::string_view path, const std::set<std::string, std::less<>>& slow) {
  for (std::size_t end = path.rfind('/'); end != std::string_view::npos && end != 0;
       end = path.rfind('/', end - 1)) {
    if (slow.find(path.substr(0, end)) != slow.end()) {
      return true;
    }
  }
  return path != "/" && slow.find("/") != slow.end();
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
  // The kernel's idle counts may step back a little (proc(5)).
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
  constexpr int columnsBetween = 6;
  std::vector<InterfaceCounts> interfaces;
  while (!text.empty()) {
    std::string_view line = takeUntil(text, '\n');
    // An alias has a colon in its name; numbers have none.
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
    for (int column = 0; column < columnsBetween; ++column) {
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
    std::string place = unescaped(takeWord(line));
    const std::string_view type = takeWord(line);
    if (type.empty() || place.empty() || place.front() != '/') {
      continue;
    }
    mounts.emplace_back(std::move(place), type);
  }
  std::set<std::string, std::less<>> slow;
  std::map<std::string_view, std::string_view> last;  // a later mount hides an earlier one
  for (const auto& [place, type] : mounts) {
    last[place] = type;
    if (!answersAtOnce(type)) {
      slow.insert(place);
    }
  }
  std::vector<std::string> local;
  for (const auto& [place, type] : mounts) {
    const auto shown = last.find(place);
    if (shown == last.end()) {
      continue;
    }
    if (hasRoom(shown->second) && slow.find(place) == slow.end() && !isKernels(place) &&
        !leadsThrough(place, slow)) {
      local.push_back(place);
    }
    last.erase(shown);
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
