#include "gateway/config_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>

namespace modelgate {

namespace {

constexpr std::size_t maxFile = std::size_t{1} << 20;
constexpr std::string_view blanks = " \t\r";

std::string_view trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

ConfigError systemError() {
  return {0, std::generic_category().message(errno)};
}

}  // namespace

std::variant<std::vector<ConfigLine>, ConfigError> parseConfig(std::string_view text) {
  std::vector<ConfigLine> lines;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    const std::string_view line = trim(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == '#') {
      continue;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      return ConfigError{number, "expected \"name = value\""};
    }
    const std::string_view name = trim(line.substr(0, equals));
    std::string_view value = trim(line.substr(equals + 1));
    if (name.empty()) {
      return ConfigError{number, "missing name before \"=\""};
    }
    if (!value.empty() && value.front() == '"') {
      if (value.size() < 2 || value.back() != '"') {
        return ConfigError{number, "missing \" at the end of the line"};
      }
      value = value.substr(1, value.size() - 2);
    }
    lines.push_back({number, std::string(name), std::string(value)});
  }
  return lines;
}

std::variant<std::string, ConfigError> readSmallFile(const std::string& path) {
  // What is no regular file could keep the reader waiting.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) {
    return systemError();
  }
  std::variant<std::string, ConfigError> result;
  auto& text = std::get<std::string>(result);
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) {
    result = systemError();
  } else if (!S_ISREG(status.st_mode)) {
    result = ConfigError{0, "not a regular file"};
  } else {
    std::array<char, 4096> bytes{};
    ssize_t length = 0;
    while ((length = ::read(descriptor, bytes.data(), bytes.size())) > 0 &&
           text.size() <= maxFile) {
      text.append(bytes.data(), static_cast<std::size_t>(length));
    }
    if (length < 0) {
      result = systemError();
    } else if (text.size() > maxFile) {
      result = ConfigError{0, "larger than 1 MiB"};
    }
  }
  ::close(descriptor);
  return result;
}

}  // namespace modelgate
