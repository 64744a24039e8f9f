#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "servers/error.h"

namespace modelsrvd {

/// The command line of `modelsrvd`, read without a look at the system.

/// How often the live tree is read, in milliseconds.
inline constexpr std::uint32_t shortestPeriod = 50;
inline constexpr std::uint32_t longestPeriod = 60000;
inline constexpr std::uint32_t usualPeriod = 1000;

/// How many value changes a second `--churn` takes.
inline constexpr std::uint32_t fastestChurn = 1000000;

/// The shape of a tree for measurements.
struct SyntheticShape {
  std::uint32_t groups = 0;  ///< 1 to 65,534
  std::uint32_t parts = 0;   ///< in each group, 1 to 65,534
};

/// How many parts a synthetic tree has at most, all groups together.
inline constexpr std::uint64_t mostSyntheticParts = 4000000;

struct Options {
  bool help = false;
  bool version = false;
  std::optional<std::string> name;   ///< the port's name; else the tree's own
  std::optional<std::string> tree;   ///< path of a description
  std::optional<std::string> group;  ///< a group's name or number
  std::optional<SyntheticShape> synthetic;
  std::uint32_t churn = 0;  ///< value changes a second
  std::uint32_t period = usualPeriod;
};

/// Reads the words behind the program's name. `--switch VALUE` and
/// `--switch=VALUE` mean the same; a switch stands at most once. A error names
/// the word that is wrong. `--help` and `--version` end the reading: what stands
/// behind them is not looked at.
[[nodiscard]] Result<Options> parseOptions(const std::vector<std::string_view>& words);

/// What `--help` prints, whole lines.
[[nodiscard]] std::string usageText();

}  // namespace modelsrvd
