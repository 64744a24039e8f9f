#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "servers/error.h"

namespace modelsrvd {

/// The command line of `modelsrvd`. Parsing makes no system calls; any thread may
/// call it.

/// The sampling period of the live tree, in milliseconds.
inline constexpr std::uint32_t minPeriod = 50;
inline constexpr std::uint32_t maxPeriod = 60000;
inline constexpr std::uint32_t defaultPeriod = 1000;

/// The largest value of `--churn`, in value changes per second.
inline constexpr std::uint32_t maxChurn = 1000000;

/// The size of a synthetic tree.
struct SyntheticShape {
  std::uint32_t groups = 0;  ///< 1 to 65,534
  std::uint32_t parts = 0;   ///< in each group, 1 to 65,534
};

/// The largest number of parts in a synthetic tree, over all groups.
inline constexpr std::uint64_t maxSyntheticParts = 4000000;

/// The limits of `--speed`.
inline constexpr double minSpeed = 0.001;
inline constexpr double maxSpeed = 1000000;

struct Options {
  bool help = false;
  bool version = false;
  std::optional<std::string> name;    ///< the port's name; empty: the tree's default name
  std::optional<std::string> tree;    ///< path of a description file
  std::optional<std::string> group;   ///< a group's name or number
  std::optional<std::string> state;   ///< path of the file that keeps what clients store
  std::optional<std::string> replay;  ///< path of a recording
  std::optional<double> speed;        ///< how many times as fast as it was recorded
  bool loop = false;                  ///< begin it again at its end
  std::optional<SyntheticShape> synthetic;
  std::uint32_t churn = 0;  ///< value changes per second
  std::uint32_t period = defaultPeriod;
};

/// Parses the arguments after the program's name. `--option VALUE` and
/// `--option=VALUE` are equivalent; an option may be given once. An error names the
/// argument that is wrong. Parsing stops at `--help` and `--version`; later
/// arguments are not checked.
[[nodiscard]] Result<Options> parseOptions(const std::vector<std::string_view>& args);

/// The output of `--help`: whole lines.
[[nodiscard]] std::string usageText();

}  // namespace modelsrvd
