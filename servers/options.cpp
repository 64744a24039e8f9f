#include "servers/options.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <utility>

namespace modelsrvd {

namespace {

constexpr std::uint32_t mostChildren = 65534;

/// A whole decimal number from `least` to `most`, nothing else around it.
std::optional<std::uint32_t> parseNumber(std::string_view text, std::uint32_t least,
                                         std::uint32_t most) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, fault] = std::from_chars(text.data(), end, number);
  if (fault != std::errc{} || stop != end || number < least || number > most) {
    return std::nullopt;
  }
  return number;
}

Error badValue(std::string_view name, std::string_view value, const std::string& wanted) {
  std::string text(name);
  text += ": \"";
  text += oneLine(value);
  text += "\" is not ";
  text += wanted;
  return {std::move(text)};
}

Error noSuchSwitch(std::string_view word) {
  std::string text("\"");
  text += oneLine(word);
  text += "\": no such switch; see modelsrvd --help";
  return {std::move(text)};
}

std::string range(std::uint32_t least, std::uint32_t most) {
  return std::to_string(least) + " to " + std::to_string(most);
}

using Fault = std::optional<Error>;

Fault takeText(std::string_view name, std::string_view value, std::optional<std::string>& target) {
  if (value.empty()) {
    return Error{std::string(name) + ": the value is empty"};
  }
  target = std::string(value);
  return std::nullopt;
}

Fault takeName(Options& options, std::string_view value) {
  return takeText("--name", value, options.name);
}

Fault takeTree(Options& options, std::string_view value) {
  return takeText("--tree", value, options.tree);
}

Fault takeGroup(Options& options, std::string_view value) {
  return takeText("--group", value, options.group);
}

Fault takePeriod(Options& options, std::string_view value) {
  const auto period = parseNumber(value, shortestPeriod, longestPeriod);
  if (!period) {
    return badValue("--period", value,
                    "a number of milliseconds from " + range(shortestPeriod, longestPeriod));
  }
  options.period = *period;
  return std::nullopt;
}

Fault takeSynthetic(Options& options, std::string_view value) {
  const std::size_t cross = value.find('x');
  const auto groups = parseNumber(value.substr(0, cross), 1, mostChildren);
  const auto parts = cross == std::string_view::npos
                         ? std::nullopt
                         : parseNumber(value.substr(cross + 1), 1, mostChildren);
  if (!groups || !parts) {
    return badValue("--synthetic", value,
                    "GROUPSxPARTS with both numbers from " + range(1, mostChildren));
  }
  if (std::uint64_t{*groups} * *parts > mostSyntheticParts) {
    return badValue("--synthetic", value,
                    "within " + std::to_string(mostSyntheticParts) + " parts altogether");
  }
  options.synthetic = SyntheticShape{*groups, *parts};
  return std::nullopt;
}

Fault takeChangeRate(Options& options, std::string_view value) {
  const auto churn = parseNumber(value, 1, fastestChurn);
  if (!churn) {
    return badValue("--churn", value,
                    "a number of changes a second from " + range(1, fastestChurn));
  }
  options.churn = *churn;
  return std::nullopt;
}

struct Switch {
  std::string_view name;
  Fault (*take)(Options& options, std::string_view value);
};

constexpr std::array<Switch, 6> switches{{{"--name", takeName},
                                          {"--tree", takeTree},
                                          {"--period", takePeriod},
                                          {"--group", takeGroup},
                                          {"--synthetic", takeSynthetic},
                                          {"--churn", takeChangeRate}}};

std::optional<std::size_t> findSwitch(std::string_view name) {
  for (std::size_t index = 0; index < switches.size(); ++index) {
    if (switches[index].name == name) {
      return index;
    }
  }
  return std::nullopt;
}

Fault checkTogether(const Options& options) {
  if (options.tree && options.synthetic) {
    return Error{"--synthetic: not together with --tree"};
  }
  if (options.churn != 0 && !options.synthetic) {
    return Error{"--churn: only together with --synthetic"};
  }
  return std::nullopt;
}

}  // namespace

Result<Options> parseOptions(const std::vector<std::string_view>& words) {
  Options options;
  std::array<bool, switches.size()> given{};
  for (std::size_t at = 0; at < words.size(); ++at) {
    const std::string_view word = words[at];
    if (word == "--help" || word == "-h") {
      options.help = true;
      return options;
    }
    if (word == "--version") {
      options.version = true;
      return options;
    }
    const std::size_t equals = word.find('=');
    const std::string_view name = word.substr(0, equals);
    const auto index = findSwitch(name);
    if (!index) {
      return noSuchSwitch(word);
    }
    if (std::exchange(given[*index], true)) {
      return Error{std::string(name) + ": given twice"};
    }
    if (equals == std::string_view::npos && ++at == words.size()) {
      return Error{std::string(name) + ": wants a value"};
    }
    const std::string_view value =
        equals == std::string_view::npos ? words[at] : word.substr(equals + 1);
    if (Fault fault = switches[*index].take(options, value)) {
      return std::move(*fault);
    }
  }
  if (Fault fault = checkTogether(options)) {
    return std::move(*fault);
  }
  return options;
}

std::string usageText() {
  return "usage: modelsrvd [--name NAME] [--group GROUP] [--period MS]\n"
         "       modelsrvd [--name NAME] [--group GROUP] --tree FILE.json\n"
         "       modelsrvd [--name NAME] [--group GROUP] --synthetic GROUPSxPARTS [--churn HZ]\n"
         "       modelsrvd --help | --version\n"
         "Publishes a tree of values until SIGINT or SIGTERM.\n"
         "  --name NAME        name of the port (default: Model_host, the file's name,\n"
         "                     Model_synthetic)\n"
         "  --group GROUP      members of this group may connect too\n"
         "  --period MS        how often this machine is read, 50 to 60000 (default: 1000)\n"
         "  --tree FILE.json   publishes the tree that the file describes; SIGHUP reads it again\n"
         "  --synthetic GROUPSxPARTS\n"
         "                     publishes a tree of that shape\n"
         "  --churn HZ         changes that many of its values a second\n"
         "  --help             shows this\n"
         "  --version          shows the version\n";
}

}  // namespace modelsrvd
