#include "servers/options.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <utility>

namespace modelsrvd {

namespace {

constexpr std::uint32_t maxChildren = 65534;

/// A decimal integer from `min` to `max` without anything around it.
std::optional<std::uint32_t> parseNumber(std::string_view text, std::uint32_t min,
                                         std::uint32_t max) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, number);
  if (code != std::errc{} || stop != end || number < min || number > max) {
    return std::nullopt;
  }
  return number;
}

Error badValue(std::string_view option, std::string_view value, const std::string& expected) {
  std::string text(option);
  text += ": expected ";
  text += expected;
  text += ", got \"";
  text += oneLine(value);
  text += '"';
  return {std::move(text)};
}

Error badArgument(std::string_view argument) {
  std::string text("\"");
  text += oneLine(argument);
  text += argument.substr(0, 1) == "-" ? "\": unknown option" : "\": unexpected argument";
  text += "; see modelsrvd --help";
  return {std::move(text)};
}

std::string range(std::uint32_t min, std::uint32_t max) {
  return std::to_string(min) + " to " + std::to_string(max);
}

std::optional<Error> setText(std::string_view option, std::string_view value,
                             std::optional<std::string>& target) {
  if (value.empty()) {
    return Error{std::string(option) + ": empty value"};
  }
  target = std::string(value);
  return std::nullopt;
}

std::optional<Error> setName(Options& options, std::string_view value) {
  return setText("--name", value, options.name);
}

std::optional<Error> setTree(Options& options, std::string_view value) {
  return setText("--tree", value, options.tree);
}

std::optional<Error> setGroup(Options& options, std::string_view value) {
  return setText("--group", value, options.group);
}

std::optional<Error> setState(Options& options, std::string_view value) {
  return setText("--state", value, options.state);
}

std::optional<Error> setReplay(Options& options, std::string_view value) {
  return setText("--replay", value, options.replay);
}

std::optional<Error> setSpeed(Options& options, std::string_view value) {
  double speed = 0;
  const char* const end = value.data() + value.size();
  const auto [stop, code] = std::from_chars(value.data(), end, speed);
  // Not a number fails both comparisons.
  if (code != std::errc{} || stop != end || !(speed >= minSpeed && speed <= maxSpeed)) {
    return badValue("--speed", value, "a factor from 0.001 to 1000000");
  }
  options.speed = speed;
  return std::nullopt;
}

std::optional<Error> setPeriod(Options& options, std::string_view value) {
  const auto period = parseNumber(value, minPeriod, maxPeriod);
  if (!period) {
    return badValue("--period", value, "milliseconds from " + range(minPeriod, maxPeriod));
  }
  options.period = *period;
  return std::nullopt;
}

std::optional<Error> setSynthetic(Options& options, std::string_view value) {
  const std::size_t cross = value.find('x');
  // 0 stands for what is no number of parts. GCC 12 takes two optionals here for uninitialized
  // when it compiles for size.
  const std::uint32_t groups = parseNumber(value.substr(0, cross), 1, maxChildren).value_or(0);
  const std::uint32_t parts =
      cross == std::string_view::npos
          ? 0
          : parseNumber(value.substr(cross + 1), 1, maxChildren).value_or(0);
  if (groups == 0 || parts == 0) {
    return badValue("--synthetic", value,
                    "GROUPSxPARTS with both numbers from " + range(1, maxChildren));
  }
  if (std::uint64_t{groups} * parts > maxSyntheticParts) {
    return badValue("--synthetic", value,
                    "at most " + std::to_string(maxSyntheticParts) + " parts in total");
  }
  options.synthetic = SyntheticShape{groups, parts};
  return std::nullopt;
}

std::optional<Error> setChurn(Options& options, std::string_view value) {
  const auto churn = parseNumber(value, 1, maxChurn);
  if (!churn) {
    return badValue("--churn", value, "changes per second from " + range(1, maxChurn));
  }
  options.churn = *churn;
  return std::nullopt;
}

struct OptionRow {
  std::string_view name;
  std::optional<Error> (*set)(Options& options, std::string_view value);
};

/// The options that take a value.
constexpr std::array<OptionRow, 9> optionTable{{{"--name", setName},
                                                {"--tree", setTree},
                                                {"--period", setPeriod},
                                                {"--group", setGroup},
                                                {"--state", setState},
                                                {"--replay", setReplay},
                                                {"--speed", setSpeed},
                                                {"--synthetic", setSynthetic},
                                                {"--churn", setChurn}}};

std::optional<std::size_t> findOption(std::string_view name) {
  for (std::size_t index = 0; index < optionTable.size(); ++index) {
    if (optionTable[index].name == name) {
      return index;
    }
  }
  return std::nullopt;
}

std::optional<Error> checkCombination(const Options& options) {
  if (options.tree && options.synthetic) {
    return Error{"--synthetic: not allowed together with --tree"};
  }
  for (const auto& [given, name] : {std::pair{options.tree.has_value(), "--tree"},
                                    std::pair{options.synthetic.has_value(), "--synthetic"},
                                    std::pair{options.state.has_value(), "--state"}}) {
    if (options.replay && given) {
      return Error{std::string("--replay: not allowed together with ") + name};
    }
  }
  if (!options.replay && (options.speed || options.loop)) {
    return Error{std::string(options.speed ? "--speed" : "--loop") + ": requires --replay"};
  }
  if (options.churn != 0 && !options.synthetic) {
    return Error{"--churn: requires --synthetic"};
  }
  return std::nullopt;
}

}  // namespace

Result<Options> parseOptions(const std::vector<std::string_view>& args) {
  Options options;
  std::array<bool, optionTable.size()> given{};
  for (std::size_t index = 0; index < args.size(); ++index) {
    const std::string_view argument = args[index];
    if (argument == "--help" || argument == "-h") {
      options.help = true;
      return options;
    }
    if (argument == "--version") {
      options.version = true;
      return options;
    }
    if (argument == "--loop") {
      if (std::exchange(options.loop, true)) {
        return Error{"--loop: given twice"};
      }
      continue;
    }
    const std::size_t equals = argument.find('=');
    const std::string_view name = argument.substr(0, equals);
    const auto row = findOption(name);
    if (!row) {
      return badArgument(argument);
    }
    if (std::exchange(given[*row], true)) {
      return Error{std::string(name) + ": given twice"};
    }
    if (equals == std::string_view::npos && ++index == args.size()) {
      return Error{std::string(name) + ": missing value"};
    }
    const std::string_view value =
        equals == std::string_view::npos ? args[index] : argument.substr(equals + 1);
    if (auto error = optionTable[*row].set(options, value)) {
      return std::move(*error);
    }
  }
  if (auto error = checkCombination(options)) {
    return std::move(*error);
  }
  return options;
}

std::string usageText() {
  return "usage: modelsrvd [OPTION ...] [--period MS]\n"
         "       modelsrvd [OPTION ...] --tree FILE.json\n"
         "       modelsrvd [OPTION ...] --replay FILE [--speed X] [--loop]\n"
         "       modelsrvd [OPTION ...] --synthetic GROUPSxPARTS [--churn HZ]\n"
         "       modelsrvd --help | --version\n"
         "Publishes a tree of values until SIGINT or SIGTERM.\n"
         "  --name NAME        name of the port (default: Model_host, the name in the file,\n"
         "                     the recorded server, or Model_synthetic)\n"
         "  --group GROUP      let members of this group connect too\n"
         "  --state FILE       keep in this file what clients store, and set it again at the "
         "start\n"
         "  --period MS        sampling period of this machine's values, 50 to 60000\n"
         "                     milliseconds (default: 1000)\n"
         "  --tree FILE.json   publish the tree described by the file; SIGHUP reloads it\n"
         "  --replay FILE      publish what treectl record has written, moving as it did\n"
         "  --speed X          times as fast as it was recorded, 0.001 to 1000000 (default: 1)\n"
         "  --loop             begin again at the end of the recording\n"
         "  --synthetic GROUPSxPARTS\n"
         "                     publish GROUPS nodes with PARTS values each\n"
         "  --churn HZ         change HZ of these values per second\n"
         "  --help             show this text\n"
         "  --version          show the version\n";
}

}  // namespace modelsrvd
