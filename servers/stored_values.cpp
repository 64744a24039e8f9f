#include "servers/stored_values.h"

#include <algorithm>
#include <new>
#include <sstream>
#include <utility>

#include "servers/entry_values.h"

namespace modelsrvd {

namespace {

using ModelSrv::ModelNode;
using ModelSrv::ModelPart;
using ModelSrv::ModelPartIndex;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes_Success;

bool isText(const StoredPart& value) {
  return value.type == nameOf(EntryType::text);
}

/// An operation on a part of this process that only a lack of memory prevents.
void requireMemory(ModelSrv::ModelRes result) {
  if (result != ModelRes_Success) {
    throw std::bad_alloc();
  }
}

std::string textOf(ModelPart& part, ModelPartIndex index) {
  std::ostringstream text;
  requireMemory(part.save(text, index));
  return std::move(text).str();
}

ModelSrv::PartDescription describePart(ModelPart& part) {
  ModelSrv::PartDescription description;
  requireMemory(part.describe(description));
  return description;
}

/// Sets the texts of `value` to those of `part`.
void readElements(ModelPart& part, StoredPart& value) {
  std::vector<StoredPart::Element>& elements = value.elements;
  if (value.array && isText(value)) {
    // They may have line feeds, which separate the elements of the whole value.
    for (std::size_t i = 0; i < elements.size(); ++i) {
      elements[i].text = textOf(part, static_cast<ModelPartIndex>(i));
    }
    return;
  }
  std::string whole = textOf(part, ModelPartIndex_All);
  if (!value.array) {
    elements.front().text = std::move(whole);
    return;
  }
  const std::string_view lines = whole;
  std::size_t start = 0;
  for (StoredPart::Element& element : elements) {
    const std::size_t end = std::min(lines.find('\n', start), lines.size());
    element.text = lines.substr(start, end - start);
    start = std::min(end + 1, lines.size());
  }
}

/// What the file is to have of `part`.
StoredPart storedPartOf(const ModelPart& part, const ModelSrv::PartDescription& description) {
  StoredPart value;
  for (const ModelPart* at = &part; at->parent() != nullptr; at = at->parent()) {
    value.levels.push_back({at->id(), std::string(at->name())});
  }
  std::reverse(value.levels.begin(), value.levels.end());
  value.type = description.type;
  value.array = description.elements != 0;
  value.elements.resize(std::max(description.elements, 1U));
  for (std::size_t i = 0; i < description.elementNames.size(); ++i) {
    value.elements[i].name = description.elementNames[i];
  }
  return value;
}

bool hasNamesOf(const StoredPart& value, const ModelSrv::PartDescription& description) {
  for (std::size_t i = 0; i < value.elements.size(); ++i) {
    const bool isNamed = i < description.elementNames.size();
    if (value.elements[i].name != (isNamed ? description.elementNames[i] : std::string())) {
      return false;
    }
  }
  return true;
}

/// Why a value of the file cannot be one of a part that is described so; nothing if it can.
std::optional<std::string> mismatch(const StoredPart& value,
                                    const ModelSrv::PartDescription& description) {
  if (value.type != description.type) {
    return "expected " + description.type + ", got " + oneLine(value.type);
  }
  const std::size_t elements = value.array ? value.elements.size() : 0;
  if (elements != description.elements) {
    return "expected " + std::to_string(description.elements) + " elements, got " +
           std::to_string(elements);
  }
  if (value.array && !hasNamesOf(value, description)) {
    return "expected other names of elements";
  }
  if (description.access == ModelSrv::ModelPartStatus_ReadOnly) {
    return ModelSrv::describe(ModelSrv::ModelRes_ReadOnly);
  }
  return std::nullopt;
}

/// Stores an element as a client would, a loader for the sake of protected parts. Returns the
/// reason if that is refused.
std::optional<std::string> storeElement(ModelPart& part, const StoredPart& value, std::size_t i) {
  const std::string& text = value.elements[i].text;
  std::string reason;
  const auto index = value.array ? static_cast<ModelPartIndex>(i) : ModelPartIndex_All;
  // Counted, so that a text that begins with a number stays as it is.
  const ModelSrv::ModelRes result =
      isText(value)
          ? part.storeAsClient(std::to_string(text.size()) + '\n' + text, true, index, reason)
          : part.storeAsClient(text, true, index, reason);
  if (result == ModelSrv::ModelRes_SystemError) {
    throw std::bad_alloc();
  }
  return result == ModelRes_Success ? std::nullopt : std::optional(std::move(reason));
}

/// The child of `node` with the id and name of `level`, or else the only one of that name; null if
/// there is none.
ModelPart* findChild(const ModelNode& node, const StoredPart::Level& level) {
  ModelPart* const sameId = node.findChild(level.id);
  if (sameId != nullptr && sameId->name() == level.name) {
    return sameId;
  }
  ModelPart* found = nullptr;
  for (ModelPart* const child : node.children()) {
    if (child->name() == level.name) {
      if (found != nullptr || level.name.empty()) {
        return nullptr;
      }
      found = child;
    }
  }
  return level.name.empty() ? nullptr : found;
}

}  // namespace

StoredValues::StoredValues(std::string path, ModelSrv::ModelRoot& root, Hooks hooks)
    : file_(std::move(path)), root_(root), hooks_(std::move(hooks)) {}

std::optional<Error> StoredValues::restore() {
  auto read = file_.read();
  if (auto* error = std::get_if<Error>(&read)) {
    return std::move(*error);
  }
  const auto& text = std::get<std::optional<std::string>>(read);
  if (!text) {
    return std::nullopt;
  }
  const auto parsed = parseState(*text);
  if (const auto* error = std::get_if<Error>(&parsed)) {
    hooks_.report({oneLine(file_.path()) + ": damaged, renamed to " + oneLine(file_.damagedPath()) +
                   ": " + error->text});
    if (const auto notMoved = file_.setAside()) {
      hooks_.report(*notMoved);
    }
    return std::nullopt;
  }
  for (const StoredPart& value : std::get<std::vector<StoredPart>>(parsed)) {
    restoreValue(value);
  }
  return std::nullopt;
}

/// Sets the value in the tree, and records it if it fits.
void StoredValues::restoreValue(const StoredPart& value) {
  ModelPart* const part = find(value);
  if (part == nullptr || !hooks_.holdsValue(*part)) {
    reportLost(value, part == nullptr ? "no such part" : "the tree does not hold the value");
    return;
  }
  if (positions_.count(part) != 0) {
    reportLost(value, "a second value of the part");
    return;
  }
  const ModelSrv::PartDescription description = describePart(*part);
  if (set(*part, description, value)) {
    StoredPart present = storedPartOf(*part, description);
    readElements(*part, present);
    add(*part, std::move(present));
  }
}

ModelPart* StoredValues::find(const StoredPart& value) const {
  ModelPart* part = &root_;
  for (const StoredPart::Level& level : value.levels) {
    const auto* const node = dynamic_cast<const ModelNode*>(part);
    part = node != nullptr ? findChild(*node, level) : nullptr;
    if (part == nullptr) {
      return nullptr;
    }
  }
  return part;
}

/// Sets the value of `part`, and reports what does not fit. Whether anything fits.
bool StoredValues::set(ModelPart& part, const ModelSrv::PartDescription& description,
                       const StoredPart& value) const {
  if (const auto why = mismatch(value, description)) {
    reportLost(value, *why);
    return false;
  }
  bool isSet = false;
  for (std::size_t i = 0; i < value.elements.size(); ++i) {
    if (const auto why = storeElement(part, value, i)) {
      reportLost(value, *why);
    } else {
      isSet = true;
    }
  }
  return isSet;
}

void StoredValues::reportLost(const StoredPart& value, const std::string& why) const {
  hooks_.report({oneLine(file_.path()) + ": " + pathOf(value) + ": " + why});
}

/// Records a part, or nothing if memory runs out.
void StoredValues::add(ModelPart& part, StoredPart value) {
  std::string line = stateLine(value);
  if (stale_.capacity() <= records_.size()) {
    stale_.reserve(2 * (records_.size() + 1));
  }
  records_.push_back({&part, std::move(value), std::move(line)});
  try {
    positions_.emplace(&part, records_.size() - 1);
  } catch (const std::bad_alloc&) {
    records_.pop_back();
    throw;
  }
}

void StoredValues::stored(ModelPart& part) noexcept {
  try {
    auto at = positions_.find(&part);
    if (at == positions_.end()) {
      if (!hooks_.holdsValue(part)) {
        return;
      }
      add(part, storedPartOf(part, describePart(part)));
      changed_ = true;
      at = positions_.find(&part);
    }
    pending_ = true;
    Record& record = records_[at->second];
    // The capacity was reserved with the record.
    if (!std::exchange(record.isStale, true)) {
      stale_.push_back(at->second);
    }
  } catch (const std::bad_alloc&) {
    pending_ = true;
    outOfMemory_ = true;
  }
}

std::optional<StoredValues::Clock::time_point> StoredValues::nextDeadline() const {
  return pending_ ? std::optional(next_) : std::nullopt;
}

void StoredValues::tick(Clock::time_point now) {
  if (!pending_ || now < next_) {
    return;
  }
  const auto begin = Clock::now();
  save(false);
  next_ = now + (Clock::now() - begin) + interval;
}

void StoredValues::finish() {
  save(true);
}

void StoredValues::save(bool isLast) {
  pending_ = false;
  std::optional<Error> error;
  try {
    refresh();
    if (!changed_ && !writeFailed_ && !outOfMemory_) {
      return;
    }
    error = write();
  } catch (const std::bad_alloc&) {
    outOfMemory_ = true;
    changed_ = true;
  }
  if (std::exchange(outOfMemory_, false) && !error) {
    error = Error{oneLine(file_.path()) + ": out of memory"};
  }
  if (error && (isLast || !writeFailed_)) {
    hooks_.report({"stored values are not saved: " + error->text});
  }
  writeFailed_ = error.has_value();
  changed_ = changed_ && error;
}

/// Updates the stale records, after what had no memory in a reload.
void StoredValues::refresh() {
  setReplaced();
  for (; !stale_.empty(); stale_.pop_back()) {
    Record& record = records_[stale_.back()];
    readElements(*record.part, record.value);
    std::string line = stateLine(record.value);
    changed_ = changed_ || line != record.line;
    record.line = std::move(line);
    record.isStale = false;
  }
}

std::optional<Error> StoredValues::write() {
  std::string text(stateBegin);
  for (const Record& record : records_) {
    if (text.size() != stateBegin.size()) {
      text += stateSeparator;
    }
    text += record.line;
  }
  text += stateEnd;
  return file_.write(text);
}

void StoredValues::beginReload() {
  refresh();
  replaced_.reserve(records_.size());
  for (Record& record : records_) {
    record.part = nullptr;
  }
}

bool StoredValues::keeps(ModelPart& part) {
  const auto at = positions_.find(&part);
  if (at == positions_.end()) {
    return false;
  }
  Record& record = records_[at->second];
  for (std::size_t i = 0; i < record.value.elements.size(); ++i) {
    // It has that value, so nothing changes.
    if (const auto why = storeElement(part, record.value, i)) {
      return false;
    }
  }
  record.part = &part;
  return true;
}

void StoredValues::endReload() {
  // Nothing here allocates until `replaced_` has all values of the parts that did not stay.
  std::erase_if(positions_,
                [this](const auto& each) { return records_[each.second].part == nullptr; });
  for (auto record = records_.rbegin(); record != records_.rend(); ++record) {
    if (record->part == nullptr) {
      replaced_.push_back(std::move(record->value));
    }
  }
  std::erase_if(records_, [](const Record& record) { return record.part == nullptr; });
  for (std::size_t i = 0; i < records_.size(); ++i) {
    positions_.find(records_[i].part)->second = i;
  }
  if (!replaced_.empty()) {
    changed_ = true;
    pending_ = true;
    setReplaced();
  }
}

/// Sets the values of parts that have been replaced. Those without memory wait for the next call.
void StoredValues::setReplaced() {
  for (; !replaced_.empty(); replaced_.pop_back()) {
    restoreValue(replaced_.back());
  }
}

}  // namespace modelsrvd
