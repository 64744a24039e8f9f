#include "tools/option_table.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace treectl {

namespace {

using Problem = std::optional<std::string>;

std::optional<unsigned long> parseWhole(std::string_view text) {
  unsigned long number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, number);
  if (text.empty() || code != std::errc{} || stop != end) {
    return std::nullopt;
  }
  return number;
}

/// A decimal number that is not negative. The C library's function is there anyway.
std::optional<double> parseNumber(std::string_view text) {
  const std::string copy(text);
  char* end = nullptr;
  const double number = std::strtod(copy.c_str(), &end);
  if (copy.find_first_not_of("0123456789.eE+-") != std::string::npos || copy.empty() || *end != 0 ||
      !std::isfinite(number) || number < 0) {
    return std::nullopt;
  }
  return number;
}

/// A number of seconds. Longer than a century is no time that anyone waits for.
template <std::optional<double> Options::*target>
Problem setSeconds(Options& options, std::string_view text) {
  constexpr double maxSeconds = 4e9;
  const auto seconds = parseNumber(text);
  if (!seconds || *seconds > maxSeconds) {
    return "expected seconds";
  }
  options.*target = *seconds;
  return std::nullopt;
}

template <bool Options::*target>
Problem setFlag(Options& options, std::string_view /*text*/) {
  options.*target = true;
  return std::nullopt;
}

Problem setCount(Options& options, std::string_view text) {
  const auto count = parseWhole(text);
  if (!count || *count == 0) {
    return "expected a number of lines from 1";
  }
  options.count = *count;
  return std::nullopt;
}

Problem setSpeed(Options& options, std::string_view text) {
  const auto speed = parseNumber(text);
  if (!speed || *speed <= 0) {
    return "expected a number above 0";
  }
  options.speed = *speed;
  return std::nullopt;
}

Problem setColor(Options& options, std::string_view text) {
  if (text == "auto") {
    options.color = Color::automatic;
  } else if (text == "always") {
    options.color = Color::always;
  } else if (text == "never") {
    options.color = Color::never;
  } else {
    return "expected auto, always or never";
  }
  return std::nullopt;
}

Problem setServer(Options& options, std::string_view text) {
  if (text.empty()) {
    return "expected the name of a server";
  }
  options.server = text;
  return std::nullopt;
}

Problem addAwaited(Options& options, std::string_view text) {
  if (text.empty()) {
    return "expected the name of a server";
  }
  options.waitFor.emplace_back(text);
  return std::nullopt;
}

Problem setFile(Options& options, std::string_view text) {
  if (text.empty()) {
    return "expected the name of a file";
  }
  options.file = text;
  return std::nullopt;
}

constexpr CommandRow commandRows[] = {
    {Command::servers, "servers", "", "list the servers and their states", 0, 0},
    {Command::list, "list", "ADDRESS...", "list addresses", 1, anyNumber},
    {Command::get, "get", "ADDRESS...", "print values", 1, anyNumber},
    {Command::set, "set", "ADDRESS VALUE [ADDRESS VALUE]...", "store values", 1, anyNumber},
    {Command::describe, "describe", "ADDRESS...", "print what parts are", 1, anyNumber},
    {Command::watch, "watch", "ADDRESS...", "print values and their changes", 1, anyNumber},
    {Command::wait, "wait", "ADDRESS OP [VALUE]", "wait until a condition holds", 2, 3},
    {Command::dump, "dump", "ADDRESS", "write a subtree as JSON", 1, 1},
    {Command::restore, "restore", "FILE [ADDRESS]", "store what a dump has", 1, 2},
    {Command::diff, "diff", "A [B]", "compare dumps and live trees", 1, 2},
    {Command::record, "record", "ADDRESS...", "write changes into a file", 1, anyNumber},
    {Command::replay, "replay", "FILE", "store what a recording has, at its pace", 1, 1},
    {Command::help, "help", "[COMMAND]", "explain a command", 0, 1},
};

constexpr CommandSet everyCommand = ~CommandSet{0};
constexpr CommandSet watchOnly = setOf(Command::watch);

constexpr OptionRow optionRows[] = {
    {"--wait", 0, setOf(Command::servers), "NAME", "return when this server is up, too",
     addAwaited},
    {"--recursive", 'r', setOf(Command::list), "", "everything below",
     setFlag<&Options::recursive>},
    {"--long", 'l', setOf(Command::list), "", "with type, access and value",
     setFlag<&Options::longForm>},
    {"--raw", 0, setOf(Command::get), "", "the bytes of the one value as they are",
     setFlag<&Options::raw>},
    {"--stop", 0, setOf(Command::set), "", "end at the first refusal", setFlag<&Options::stop>},
    {"--protected", 0, setOf(Command::set) | setOf(Command::restore) | setOf(Command::replay), "",
     "store in protected parts, too", setFlag<&Options::passProtected>},
    {"--array", 0, setOf(Command::set), "", "store a whole array: ADDRESS VALUE...",
     setFlag<&Options::array>},
    {"--stdin", 0, setOf(Command::set), "", "take the value from standard input",
     setFlag<&Options::fromInput>},
    {"--dry-run", 0, setOf(Command::restore), "", "print what would be stored",
     setFlag<&Options::dryRun>},
    {"--time", 0, watchOnly, "", "print the time of each change", setFlag<&Options::time>},
    {"--count", 0, watchOnly, "N", "end after N lines", setCount},
    {"--for", 0, watchOnly | setOf(Command::wait) | setOf(Command::record), "SECONDS",
     "watch, record: end after that time; wait: hold that long", setSeconds<&Options::duration>},
    {"--changes", 0, watchOnly, "", "leave the first values out", setFlag<&Options::changes>},
    {"--every", 0, watchOnly, "SECONDS", "at most one line an address in that time",
     setSeconds<&Options::every>},
    {"--csv", 0, watchOnly, "", "a row a change, a column an address", setFlag<&Options::csv>},
    {"--live", 0, watchOnly, "", "repaint a table, on a terminal", setFlag<&Options::live>},
    {"--plot", 0, watchOnly, "", "draw a chart, on a terminal", setFlag<&Options::plot>},
    {"--fail-on-loss", 0, watchOnly, "", "end when a server is lost",
     setFlag<&Options::failOnLoss>},
    {"--output", 'o', setOf(Command::dump) | setOf(Command::record), "FILE", "write into a file",
     setFile},
    {"--speed", 0, setOf(Command::replay), "X", "times as fast as it was recorded", setSpeed},
    {"--as-fast-as-possible", 0, setOf(Command::replay), "", "without waiting",
     setFlag<&Options::fast>},
    {"--json", 0, everyCommand, "", "print JSON, an object a line", setFlag<&Options::json>},
    {"--server", 's', everyCommand, "NAME", "addresses begin at this server's root", setServer},
    {"--timeout", 0, everyCommand, "SECONDS", "the longest time to wait (default: 2; wait: none)",
     setSeconds<&Options::timeout>},
    {"--quiet", 'q', everyCommand, "", "print no messages", setFlag<&Options::quiet>},
    {"--color", 0, everyCommand, "WHEN", "auto, always or never", setColor},
    {"--version", 'V', everyCommand, "", "print the version", setFlag<&Options::version>},
    {"--help", 'h', everyCommand, "", "print this help", setFlag<&Options::help>},
};

}  // namespace

Commands commandTable() {
  return {commandRows, std::size(commandRows)};
}

OptionRows optionTable() {
  return {optionRows, std::size(optionRows)};
}

const CommandRow& rowOf(Command command) {
  return commandRows[static_cast<std::size_t>(command)];
}

}  // namespace treectl
