#include "gateway/exporter/value_table.h"

#include <algorithm>
#include <utility>

#include "gateway/wire/limits.h"

namespace modelgate {

using ModelSrv::ModelPartIndex;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;

namespace {

/// The longest text that a message can hold beside its other fields.
constexpr std::size_t maxText = maxPayload - 4096;
/// The most bytes of the values of a batch, beside its other fields and those of a reply.
constexpr std::size_t maxBatch = maxPayload - 2048;
/// What an element takes in a batch beside its text, at most.
constexpr std::size_t elementHead = 16;

/// Where the line `number` of `text` begins and ends.
std::pair<std::size_t, std::size_t> lineOf(std::string_view text, unsigned number) {
  std::size_t start = 0;
  for (; number > 0; --number) {
    start = text.find('\n', start) + 1;
  }
  return {start, std::min(text.find('\n', start), text.size())};
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

std::size_t totalSize(const std::vector<std::string>& texts) {
  std::size_t size = texts.size() * elementHead;
  for (const std::string& text : texts) {
    size += text.size();
  }
  return size;
}

}  // namespace

ValueTable::ValueTable(const TreeIndex& index)
    : index_(index), values_(index.size()), markOf_(index.size()) {}

void ValueTable::set(Position position, ModelRes result, std::string_view text) {
  if (result == ModelRes_Success && text.size() > maxText) {
    result = ModelSrv::ModelRes_TooLarge;
  }
  if (result != ModelRes_Success) {
    text = {};
  }
  bool isFirst = false;
  {
    const std::lock_guard lock(mutex_);
    Value& value = values_[position];
    const bool hadElements = elements_.erase(position) > 0;
    if (!hadElements && value.result == result && value.text == text) {
      return;
    }
    value.result = result;
    value.text = text;
    isFirst = mark(position, ModelPartIndex_All);
  }
  notify(isFirst);
}

void ValueTable::setElements(Position position, std::vector<std::string> texts) {
  if (totalSize(texts) > maxText) {
    return set(position, ModelSrv::ModelRes_TooLarge, {});
  }
  bool isFirst = false;
  {
    const std::lock_guard lock(mutex_);
    std::vector<std::string>& elements = elements_[position];
    if (elements == texts) {
      return;
    }
    elements = std::move(texts);
    values_[position] = {ModelRes_Success, {}};
    isFirst = mark(position, ModelPartIndex_All);
  }
  notify(isFirst);
}

bool ValueTable::setElement(Position position, ModelPartIndex index, std::string_view text) {
  bool isFirst = false;
  bool isKnown = true;
  {
    const std::lock_guard lock(mutex_);
    isFirst = setElementLocked(position, index, text, isKnown);
  }
  notify(isFirst);
  return isKnown;
}

bool ValueTable::setElementLocked(Position position, ModelPartIndex index, std::string_view text,
                                  bool& isKnown) {
  Value& value = values_[position];
  isKnown = value.result == ModelRes_Success && index < index_.elements(position);
  if (!isKnown) {
    return false;
  }
  auto elements = elements_.find(position);
  if (elements == elements_.end()) {
    const auto [start, end] = lineOf(value.text, index);
    if (std::string_view(value.text).substr(start, end - start) == text) {
      return false;
    }
    if (text.find('\n') == std::string_view::npos) {
      isKnown = value.text.size() + text.size() <= maxText;
      if (isKnown) {
        value.text.replace(start, end - start, text);
      }
      return isKnown && mark(position, index);
    }
    elements = elements_.emplace(position, linesOf(value.text)).first;
    value.text.clear();
  }
  std::string& element = elements->second[index];
  if (element == text) {
    return false;
  }
  isKnown = totalSize(elements->second) + text.size() <= maxText;
  if (isKnown) {
    element = text;
  }
  return isKnown && mark(position, index);
}

bool ValueTable::isWhole(Position position, std::string_view text) const {
  const unsigned elements = index_.elements(position);
  return elements == 0 ||
         std::count(text.begin(), text.end(), '\n') == static_cast<std::ptrdiff_t>(elements) - 1;
}

std::vector<ValueMark> ValueTable::takeMarks() {
  const std::lock_guard lock(mutex_);
  for (const ValueMark& mark : marks_) {
    markOf_[mark.position] = 0;
  }
  return std::exchange(marks_, {});
}

void ValueTable::read(ValueMark mark, std::vector<PositionedValue>& values) const {
  const std::lock_guard lock(mutex_);
  const Value& value = values_[mark.position];
  const auto elements = elements_.find(mark.position);
  if (value.result != ModelRes_Success ||
      (mark.index == ModelPartIndex_All && elements == elements_.end())) {
    values.push_back({mark.position, ModelPartIndex_All, value});
  } else if (elements == elements_.end()) {
    const auto [start, end] = lineOf(value.text, mark.index);
    values.push_back(
        {mark.position, mark.index, {ModelRes_Success, value.text.substr(start, end - start)}});
  } else {
    const std::size_t first = mark.index == ModelPartIndex_All ? 0 : mark.index;
    const std::size_t last = mark.index == ModelPartIndex_All ? elements->second.size() : first + 1;
    for (std::size_t i = first; i < last; ++i) {
      values.push_back(
          {mark.position, static_cast<ModelPartIndex>(i), {ModelRes_Success, elements->second[i]}});
    }
  }
}

bool ValueTable::readForBatch(ValueMark mark, std::vector<PositionedValue>& values,
                              std::size_t& size) const {
  const std::size_t first = values.size();
  read(mark, values);
  std::size_t added = 0;
  for (std::size_t i = first; i < values.size(); ++i) {
    added += encodedSize(values[i]);
  }
  if (first > 0 && size + added > maxBatch) {
    values.resize(first);
    return false;
  }
  size += added;
  return true;
}

bool ValueTable::mark(Position position, ModelPartIndex index) {
  std::uint32_t& number = markOf_[position];
  if (number != 0) {
    ModelPartIndex& marked = marks_[number - 1].index;
    marked = marked == index ? index : ModelPartIndex_All;
    return false;
  }
  marks_.push_back({position, index});
  number = static_cast<std::uint32_t>(marks_.size());
  return marks_.size() == 1;
}

void ValueTable::notify(bool isFirst) const {
  if (isFirst && changed_) {
    changed_();
  }
}

}  // namespace modelgate
