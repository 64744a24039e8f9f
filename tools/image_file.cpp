#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <optional>
#include <utility>

#include "tools/input.h"
#include "tools/tree_image.h"

namespace treectl {

namespace {

/// A path of the shell as an address: names have no escapes there, "noname-ID" is a child without a
/// name, and an index is in brackets at the end.
std::string addressOf(std::string_view path) {
  std::string_view element;
  if (const std::size_t open = path.rfind('[');
      open != std::string_view::npos && path.ends_with(']') && open + 2 < path.size() &&
      path.find_first_not_of("0123456789", open + 1) == path.size() - 1) {
    element = path.substr(open);
    path = path.substr(0, open);
  }
  std::string address;
  while (!path.empty()) {
    const std::size_t begin = path.front() == '/' ? 1 : 0;
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string_view name = path.substr(begin, end - begin);
    path.remove_prefix(end);
    constexpr std::string_view unnamed = "noname-";
    address += '/';
    if (name.starts_with(unnamed) && name.size() > unnamed.size() &&
        name.find_first_not_of("0123456789", unnamed.size()) == std::string_view::npos) {
      address += '#';
      address += name.substr(unnamed.size());
    } else {
      appendEscapedName(address, name);
    }
  }
  return address.append(element);
}

/// The value and the path of a saved command: `set VALUE PATH` or `str "VALUE" PATH`.
std::optional<std::pair<std::string_view, std::string_view>> splitCommand(std::string_view line) {
  if (line.starts_with("set ")) {
    line.remove_prefix(4);
    const std::size_t end = line.find(' ');
    if (end == 0 || end == std::string_view::npos) {
      return std::nullopt;
    }
    return std::pair(line.substr(0, end), line.substr(end + 1));
  }
  constexpr std::string_view quoted = "str \"";
  if (!line.starts_with(quoted)) {
    return std::nullopt;
  }
  line.remove_prefix(quoted.size());
  // A value may have quotes of its own, and a path seldom has one.
  std::size_t end = line.rfind("\" /");
  if (end == std::string_view::npos && line.ends_with("\" ")) {
    end = line.size() - 2;
  }
  if (end == std::string_view::npos) {
    return std::nullopt;
  }
  return std::pair(line.substr(0, end), line.substr(end + 2));
}

}  // namespace

bool parseSavedCommands(const std::string& text, TreeImage& image, std::string& error) {
  std::string_view rest = text;
  for (std::size_t number = 1; !rest.empty(); ++number) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (line.find_first_not_of(" \t") == std::string_view::npos || line.starts_with('#')) {
      continue;
    }
    const auto command = splitCommand(line);
    if (!command) {
      error =
          "line " + std::to_string(number) +
          ": expected a dump, or \"set VALUE PATH\" or \"str \"VALUE\" PATH\" as `to` writes it";
      return false;
    }
    ImagePart part;
    part.address = addressOf(command->second);
    part.value.texts.emplace_back(command->first);
    image.parts.push_back(std::move(part));
  }
  return true;
}

bool parseImage(const std::string& text, TreeImage& image, std::string& error) {
  if (text.empty()) {
    error = "the file is empty";  // A dump that was cut.
    return false;
  }
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  const char begin = first != std::string::npos ? text[first] : '\0';
  if (begin == '{') {
    error = "expected an array, got an object (a recording is for replay)";
    return false;
  }
  return begin == '[' ? parseJsonImage(text, image, error) : parseSavedCommands(text, image, error);
}

bool readImageFile(Context& context, const std::string& path, TreeImage& image) {
  std::string text;
  if (const int number = readInputFile(path, text)) {
    context.failFile(path, number);
    return false;
  }
  std::string error;
  if (!parseImage(text, image, error)) {
    context.fail(Status::ioError, path == "-" ? "standard input" : printable(path), error);
    return false;
  }
  return true;
}

}  // namespace treectl
