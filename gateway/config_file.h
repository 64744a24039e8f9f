#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace modelgate {

/// A line "name = value" of a configuration file.
struct ConfigLine {
  int number = 0;  ///< from 1
  std::string name;
  std::string value;
};

/// A line that is wrong.
struct ConfigError {
  int number = 0;  ///< 0: of no line
  std::string text;
};

/// The lines of a configuration file, without empty ones and comments: lines that begin with "#".
/// Blanks around names and values are left out. A value may be in double quotes, in which blanks
/// count; nothing else is special. A name may occur several times.
[[nodiscard]] std::variant<std::vector<ConfigLine>, ConfigError> parseConfig(std::string_view text);

/// Reads a file of at most 1 MiB.
[[nodiscard]] std::variant<std::string, ConfigError> readSmallFile(const std::string& path);

}  // namespace modelgate
