#include "bindings/c/source/path.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <system_error>

#include "treescope.h"

namespace treescope_c {

namespace {

using ModelSrv::ModelPartIndex;

bool isNumber(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](char digit) { return digit >= '0' && digit <= '9'; });
}

/// Nothing if the number is above `limit`. `digits` has digits only.
std::optional<std::uint16_t> parseDigits(std::string_view digits, std::uint16_t limit) {
  std::uint16_t number = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return result.ec == std::errc{} && number <= limit ? std::optional(number) : std::nullopt;
}

/// Takes an index in brackets from the end of `text`. False if it is out of range.
bool takeIndex(std::string_view& text, ModelPartIndex& index) {
  const std::size_t open = text.rfind('[');
  if (open == std::string_view::npos || text.back() != ']') {
    return true;
  }
  const std::string_view digits = text.substr(open + 1, text.size() - open - 2);
  if (!isNumber(digits)) {
    return true;
  }
  const auto number = parseDigits(digits, ModelSrv::ModelPartElements_Max - 1);
  if (number) {
    index = *number;
    text = text.substr(0, open);
  }
  return number.has_value();
}

}  // namespace

std::optional<Path> parsePath(std::string_view text) {
  Path path;
  if (!takeIndex(text, path.index)) {
    return std::nullopt;
  }
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('/'), text.size());
    const std::string_view name = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (name.empty()) {
      continue;
    }
    Path::Step step{name, std::nullopt};
    if (name.front() == '#' && isNumber(name.substr(1))) {
      step = {{}, parseDigits(name.substr(1), 0xFFFF)};
      if (!step.id) {
        return std::nullopt;
      }
    }
    path.steps.push_back(step);
  }
  return path;
}

void setIdPath(std::span<const ModelSrv::ModelPartId> chain, std::string& text) {
  text.clear();
  for (const ModelSrv::ModelPartId id : chain) {
    std::array<char, std::numeric_limits<ModelSrv::ModelPartId>::digits10 + 1> digits{};
    const auto end = std::to_chars(digits.begin(), digits.end(), id);
    text.append(text.empty() ? "#" : "/#").append(digits.data(), end.ptr);
  }
}

std::string idPath(const IdChain& chain, ModelPartIndex index) {
  std::string text;
  setIdPath(chain, text);
  if (index != ModelSrv::ModelPartIndex_All) {
    text += "[" + std::to_string(index) + "]";
  }
  return text;
}

std::optional<ModelPartIndex> toIndex(int index) {
  if (index == TREESCOPE_ALL) {
    return ModelSrv::ModelPartIndex_All;
  }
  if (index < 0 || index >= static_cast<int>(ModelSrv::ModelPartElements_Max)) {
    return std::nullopt;
  }
  return static_cast<ModelPartIndex>(index);
}

int fromIndex(ModelPartIndex index) {
  return index == ModelSrv::ModelPartIndex_All ? TREESCOPE_ALL : static_cast<int>(index);
}

}  // namespace treescope_c
