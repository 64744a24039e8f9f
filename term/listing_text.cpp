#include "term/listing_text.h"

#include <algorithm>

#include "term/shown_text.h"

namespace treescope {

std::string blanks(std::ptrdiff_t count) {
  return std::string(static_cast<std::size_t>(std::max<std::ptrdiff_t>(count, 0)), ' ');
}

std::string_view nameText(const std::optional<std::string>& name) {
  return name ? name->c_str() : "notfound";
}

void appendNameText(std::string& line, const std::optional<std::string>& name) {
  appendShown(line, nameText(name));
}

std::size_t shownNameSize(const std::optional<std::string>& name) {
  return shownSize(nameText(name));
}

std::string valueText(const std::optional<std::string>& value) {
  std::string text;
  appendValueText(text, value);
  return text;
}

void appendValueText(std::string& line, const std::optional<std::string>& value) {
  if (!value) {
    line += "[nodata]";
    return;
  }
  line += '[';
  const auto begin = static_cast<std::ptrdiff_t>(line.size());
  appendShown(line, std::string_view(*value).substr(0, value->find('\0')));
  std::replace(line.begin() + begin, line.end(), '\n', ' ');
  line += ']';
}

}  // namespace treescope
