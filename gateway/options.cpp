#include "gateway/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <utility>

#include "gateway/config_file.h"
#include "gateway/exporter/exporter.h"
#include "gateway/wire/topics.h"

namespace modelgate {

namespace {

using Role = Options::Role;
/// Stores a value; if it is wrong, what was expected.
using Setter = std::string (*)(Options& options, const std::string& value);

/// Wrong values appear in messages, where control characters would disturb the terminal.
std::string oneLine(std::string_view text) {
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == '\x7f'; }, '?');
  return line;
}

std::string setText(std::string& target, const std::string& value) {
  if (value.empty()) {
    return "expected a text";
  }
  target = value;
  return {};
}

std::string setBroker(Options& options, const std::string& value) {
  std::string error;
  if (const auto address = parseBroker(value, error)) {
    options.broker = *address;
  }
  return error;
}

constexpr const char* fleetRule =
    "expected 1 to 64 characters of A-Z, a-z, 0-9, \".\", \"_\", \"-\"";

std::string setFleet(Options& options, const std::string& value) {
  options.fleet = value;
  return isFleetName(value) ? "" : fleetRule;
}

std::string setDevice(Options& options, const std::string& value) {
  options.device = value;
  return isFleetName(value) ? "" : fleetRule;
}

std::string addDevice(Options& options, const std::string& value) {
  options.devices.push_back(value);
  return isFleetName(value) ? "" : fleetRule;
}

std::string addServer(Options& options, const std::string& value) {
  options.servers.push_back(value);
  return isTopicLevel(serverInTopics(value)) ? "" : "expected the name of a server";
}

std::string setUser(Options& options, const std::string& value) {
  options.user = value;
  return isTopicLevel(value)
             ? ""
             : "expected 1 to 128 bytes of UTF-8 without \"/\", \"+\", \"#\", \";\" "
               "and control characters";
}

/// Stores a number of `unit`, such as "seconds", from `least` to `most`.
template <typename Duration>
std::string setDuration(Duration& target, const std::string& value, int least, int most,
                        const char* unit) {
  int number = 0;
  const char* const end = value.data() + value.size();
  const auto [stop, code] = std::from_chars(value.data(), end, number);
  if (code != std::errc() || stop != end || number < least || number > most) {
    return "expected " + std::to_string(least) + " to " + std::to_string(most) + " " + unit;
  }
  target = Duration(number);
  return {};
}

std::string setInterval(Options& options, const std::string& value) {
  return setDuration(options.interval, value, 0, 10'000, "milliseconds");
}

std::string setHeartbeat(Options& options, const std::string& value) {
  return setDuration(options.heartbeat, value, 100, 3'600'000, "milliseconds");
}

std::string setKeepAlive(Options& options, const std::string& value) {
  return setDuration(options.keepAlive, value, 5, 3'600, "seconds");
}

std::string addRule(std::vector<std::string>& target, const std::string& value) {
  target.push_back(value);
  return isPathRule(value) ? "" : "expected a path such as /cpu, or / for everything";
}

std::string setFlag(bool& target, const std::string& value) {
  if (value != "true" && value != "false") {
    return "expected true or false";
  }
  target = value == "true";
  return {};
}

enum class Roles { both, exporter, viewer };
enum class Kind { single, list, flag };

struct Entry {
  const char* name;
  Roles roles;
  Kind kind;
  Setter set;
  const char* value;
  const char* help;
};

const std::array entries{
    Entry{"broker", Roles::both, Kind::single, setBroker, "URL",
          "mqtt://HOST[:PORT], mqtts://HOST[:PORT] or unix:/PATH (mqtt://localhost)"},
    Entry{"fleet", Roles::both, Kind::single, setFleet, "F", "the fleet's name (default)"},
    Entry{"device", Roles::exporter, Kind::single, setDevice, "D",
          "this device's name, unique in the fleet (the host's name)"},
    Entry{"server", Roles::exporter, Kind::list, addServer, "NAME",
          "export this server; may be repeated (all of them)"},
    Entry{
        "allow-set", Roles::exporter, Kind::list,
        [](Options& options, const std::string& value) { return addRule(options.allowSet, value); },
        "PATH", "let viewers store at and below PATH; may be repeated (nowhere)"},
    Entry{"interval", Roles::exporter, Kind::single, setInterval, "MS",
          "the time between two updates in milliseconds, 0 to 10000 (50)"},
    Entry{"heartbeat", Roles::exporter, Kind::single, setHeartbeat, "MS",
          "the longest silence while a viewer watches in milliseconds, 100 to 3600000 (10000)"},
    Entry{"json", Roles::exporter, Kind::list,
          [](Options& options, const std::string& value) { return addRule(options.json, value); },
          "PATH", "publish the nodes at and below PATH as JSON; may be repeated"},
    Entry{"retain-values", Roles::exporter, Kind::flag,
          [](Options& options, const std::string& value) {
            return setFlag(options.retainValues, value);
          },
          "", "let the broker keep the last values"},
    Entry{"device", Roles::viewer, Kind::list, addDevice, "D",
          "show this device; may be repeated (all of them)"},
    Entry{"group", Roles::viewer, Kind::single,
          [](Options& options, const std::string& value) { return setText(options.group, value); },
          "GROUP", "let members of this group connect to the mirrors"},
    Entry{"cafile", Roles::both, Kind::single,
          [](Options& options, const std::string& value) { return setText(options.caFile, value); },
          "FILE", "certificates of the authorities that are trusted (the system's)"},
    Entry{
        "cert", Roles::both, Kind::single,
        [](Options& options, const std::string& value) { return setText(options.certFile, value); },
        "FILE", "this client's certificate"},
    Entry{
        "key", Roles::both, Kind::single,
        [](Options& options, const std::string& value) { return setText(options.keyFile, value); },
        "FILE", "the certificate's key (in the same file)"},
    Entry{"keep-alive", Roles::both, Kind::single, setKeepAlive, "SECONDS",
          "the longest silence on the connection to the broker, 5 to 3600 seconds (10)"},
    Entry{"user", Roles::both, Kind::single, setUser, "U", "the user name at the broker"},
    Entry{"password-file", Roles::both, Kind::single,
          [](Options& options, const std::string& value) {
            return setText(options.passwordFile, value);
          },
          "FILE", "a file with the user's password"},
    Entry{
        "verbose", Roles::both, Kind::flag,
        [](Options& options, const std::string& value) { return setFlag(options.verbose, value); },
        "", "log more"},
};

bool belongsTo(const Entry& entry, Role role) {
  return entry.roles == Roles::both || (entry.roles == Roles::exporter) == (role == Role::exporter);
}

/// A value, and where it was stated: "--name" or "FILE:LINE: name".
struct Statement {
  const Entry* entry;
  std::string value;
  std::string origin;
};

std::optional<OptionError> setAll(Options& options, const std::vector<Statement>& statements) {
  std::map<std::string_view, int> counts;
  for (const Statement& statement : statements) {
    if (++counts[statement.entry->name] > 1 && statement.entry->kind == Kind::single) {
      return OptionError{statement.origin + ": given twice"};
    }
    const std::string error = statement.entry->set(options, statement.value);
    if (!error.empty()) {
      return OptionError{statement.origin + ": " + error + ", got \"" + oneLine(statement.value) +
                         "\""};
    }
  }
  return std::nullopt;
}

/// Adds what the file at `path` states of names that are not among `statements`.
std::optional<OptionError> addConfig(const std::string& path, Role role,
                                     std::vector<Statement>& statements) {
  const std::string file = oneLine(path);
  auto text = readSmallFile(path);
  if (const auto* error = std::get_if<ConfigError>(&text)) {
    return OptionError{file + ": " + error->text};
  }
  const auto parsed = parseConfig(std::get<std::string>(text));
  if (const auto* error = std::get_if<ConfigError>(&parsed)) {
    return OptionError{file + ":" + std::to_string(error->number) + ": " + error->text};
  }
  std::vector<Statement> found;
  for (const ConfigLine& line : std::get<std::vector<ConfigLine>>(parsed)) {
    const std::string origin = file + ":" + std::to_string(line.number) + ": ";
    const auto entry = std::find_if(entries.begin(), entries.end(), [&](const Entry& candidate) {
      return candidate.name == line.name && belongsTo(candidate, role);
    });
    if (entry == entries.end()) {
      return OptionError{origin + "unknown name \"" + oneLine(line.name) + "\""};
    }
    const bool replaced =
        std::any_of(statements.begin(), statements.end(),
                    [&](const Statement& statement) { return statement.entry == &*entry; });
    if (!replaced) {
      found.push_back({&*entry, line.value, origin + line.name});
    }
  }
  statements.insert(statements.end(), found.begin(), found.end());
  return std::nullopt;
}

std::optional<OptionError> checkCombination(const Options& options) {
  if (!options.keyFile.empty() && options.certFile.empty()) {
    return OptionError{"--key: needs --cert"};
  }
  if (!options.broker.tls && !(options.caFile + options.certFile).empty()) {
    return OptionError{std::string(options.certFile.empty() ? "--cafile" : "--cert") +
                       ": needs a broker at mqtts://"};
  }
  if (!options.passwordFile.empty() && options.user.empty()) {
    return OptionError{"--password-file: needs --user"};
  }
  return std::nullopt;
}

/// What the command line states for a role.
struct RoleLine {
  CLI::App* app = nullptr;
  std::vector<std::string> configs;
  std::map<const Entry*, std::vector<std::string>> values;
  std::map<const Entry*, bool> flags;

  void addTo(CLI::App& program, Role role, const char* name, const char* text) {
    app = program.add_subcommand(name, text);
    for (const Entry& entry : entries) {
      if (!belongsTo(entry, role)) {
        continue;
      }
      const std::string option = std::string("--") + entry.name;
      if (entry.kind == Kind::flag) {
        const bool isVerbose = std::string_view(entry.name) == "verbose";
        app->add_flag(isVerbose ? "-v," + option : option, flags[&entry], entry.help);
      } else {
        app->add_option(option, values[&entry], entry.help)
            ->type_name(entry.value)
            ->allow_extra_args(false);
      }
    }
    app->add_option("--config", configs, "a file with lines \"name = value\" of the names above")
        ->type_name("FILE")
        ->allow_extra_args(false);
  }

  [[nodiscard]] std::vector<Statement> statements() const {
    std::vector<Statement> result;
    for (const auto& [entry, stated] : values) {
      for (const std::string& value : stated) {
        result.push_back({entry, value, std::string("--") + entry->name});
      }
    }
    for (const auto& [entry, set] : flags) {
      if (set) {
        result.push_back({entry, "true", std::string("--") + entry->name});
      }
    }
    return result;
  }
};

ParsedOptions complete(Role role, const RoleLine& line) {
  Options options;
  options.role = role;
  std::vector<Statement> statements = line.statements();
  if (line.configs.size() > 1) {
    return OptionError{"--config: given twice"};
  }
  if (!line.configs.empty()) {
    if (const auto error = addConfig(line.configs.front(), role, statements)) {
      return *error;
    }
  }
  if (const auto error = setAll(options, statements)) {
    return *error;
  }
  if (const auto error = checkCombination(options)) {
    return *error;
  }
  return options;
}

}  // namespace

ParsedOptions parseOptions(const std::vector<std::string>& arguments) {
  CLI::App program(
      "Publishes the model servers of this device at an MQTT broker, or makes those of "
      "other devices local servers.",
      "modelgate");
  program.set_version_flag("--version", "modelgate " MODELGATE_VERSION);
  program.require_subcommand(1);
  RoleLine exporter;
  RoleLine viewer;
  exporter.addTo(program, Role::exporter, "export", "publish the model servers of this device");
  viewer.addTo(program, Role::viewer, "view", "show exported model servers as local ones");
  // The library takes the arguments from the end.
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  const auto wrong = [](const std::string& text) {
    return OptionError{oneLine(text) + "; see modelgate --help"};
  };
  try {
    program.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    const auto chosen = program.get_subcommands();
    return OptionText{chosen.empty() ? program.help() : chosen.front()->help(program.get_name())};
  } catch (const CLI::CallForVersion& version) {
    return OptionText{std::string(version.what()) + "\n"};
  } catch (const CLI::RequiredError&) {
    const auto extra = program.remaining(true);
    return wrong(extra.empty() ? "expected \"export\" or \"view\""
                               : "expected \"export\" or \"view\", got \"" + extra.front() + "\"");
  } catch (const CLI::ExtrasError&) {
    return wrong("\"" + program.remaining(true).front() + "\": unknown argument");
  } catch (const CLI::ArgumentMismatch& error) {
    const std::string text = error.what();
    return wrong(text.substr(0, text.find(':')) + ": missing value");
  } catch (const CLI::ConversionError& error) {
    // "Could not convert: --verbose = maybe": only flags are converted there.
    const std::string text = error.what();
    const std::size_t start = text.find("--");
    return wrong(text.substr(start, text.find(' ', start) - start) + ": expected true or false");
  } catch (const CLI::ParseError& error) {
    return wrong(error.what());
  }
  return exporter.app->parsed() ? complete(Role::exporter, exporter)
                                : complete(Role::viewer, viewer);
}

}  // namespace modelgate
