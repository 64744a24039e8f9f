#include "servers/stored_values.h"

#include <algorithm>
#include <new>
#include <sstream>
#include <utility>

#include "modelsrv/part_description.h"
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

std::optional<std::string> textOf(ModelPart& part, ModelPartIndex index) {
  std::ostringstream text;
  if (part.save(text, index) != ModelRes_Success) {
    return std::nullopt;
  }
  return std::move(text).str();
}

/// Sets the texts of `value` to those of `part`, where they can be read.
void readElements(ModelPart& part, StoredPart& value) {
  std::vector<StoredPart::Element>& elements = value.elements;
  if (value.array && isText(value)) {
    // They may have line feeds, which separate the elements of the whole value.
    for (std::size_t i = 0; i < elements.size(); ++i) {
      if (auto text = textOf(part, static_cast<ModelPartIndex>(i))) {
        elements[i].text = std::move(*text);
      }
    }
    return;
  }
  auto whole = textOf(part, ModelPartIndex_All);
  if (whole && !value.array) {
    elements.front().text = std::move(*whole);
  } else if (whole) {
    std::istringstream lines(std::move(*whole));
    for (StoredPart::Element& element : elements) {
      std::getline(lines, element.text);
    }
  }
}

/// What the file is to have of `part`.
StoredPart storedPartOf(const ModelPart& part, const ModelSrv::PartDescription& description) {
  StoredPart value;
  for (const ModelPart* at = &part; at->parent() != nullptr; at = at->parent()) {
    value.levels.push_back({at->id(), at->name()});
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
    if (const auto failure = file_.setAside()) {
      hooks_.report(*failure);
    }
    return std::nullopt;
  }
  setAll(std::get<std::vector<StoredPart>>(parsed));
  return std::nullopt;
}

/// Sets the values in the tree and records those that fit.
void StoredValues::setAll(const std::vector<StoredPart>& values) {
  for (const StoredPart& value : values) {
    ModelPart* const part = find(value);
    if (part == nullptr || !hooks_.holdsValue(*part)) {
      reportLost(value, part == nullptr ? "no such part" : "the tree does not hold the value");
    } else if (positions_.count(part) != 0) {
      reportLost(value, "a second value of the part");
    } else if (set(*part, value)) {
      ModelSrv::PartDescription description;
      static_cast<void>(part->describe(description));
      StoredPart present = storedPartOf(*part, description);
      readElements(*part, present);
      add(*part, std::move(present));
    }
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
bool StoredValues::set(ModelPart& part, const StoredPart& value) {
  ModelSrv::PartDescription description;
  static_cast<void>(part.describe(description));
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
      ModelSrv::PartDescription description;
      static_cast<void>(part.describe(description));
      StoredPart value = storedPartOf(part, description);
      add(part, std::move(value));
      changed_ = true;
      at = positions_.find(&part);
    }
    pending_ = true;
    Record& record = records_[at->second];
    record.part = &part;
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

/// Updates the stale records.
void StoredValues::refresh() {
  for (; !stale_.empty(); stale_.pop_back()) {
    Record& record = records_[stale_.back()];
    if (record.part == nullptr) {
      continue;
    }
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
  std::vector<Record> before = std::exchange(records_, {});
  positions_.clear();
  std::vector<StoredPart> replaced;
  for (Record& record : before) {
    if (record.part == nullptr) {
      replaced.push_back(std::move(record.value));
      continue;
    }
    positions_.emplace(record.part, records_.size());
    records_.push_back(std::move(record));
  }
  if (!replaced.empty()) {
    setAll(replaced);
    changed_ = true;
    pending_ = true;
  }
}

}  // namespace modelsrvd
