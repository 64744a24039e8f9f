#include "servers/description_reader.h"

#include <algorithm>
#include <array>
#include <utility>

namespace modelsrvd {

namespace {

constexpr std::array<std::pair<std::string_view, ModelSrv::ModelPartStatus>, 3> accessNames{
    {{"read-write", ModelSrv::ModelPartStatus_ReadWrite},
     {"read-only", ModelSrv::ModelPartStatus_ReadOnly},
     {"protected", ModelSrv::ModelPartStatus_Protected}}};

}  // namespace

Keys DescriptionReader::allowedKeys(Kind kind) {
  switch (kind) {
    case Kind::root:
      return bit(Key::name) | bit(Key::children);
    case Kind::element:
      return bit(Key::name) | bit(Key::value);
    default:
      return bit(Key::none) - 1;
  }
}

std::string DescriptionReader::path() const {
  std::string path;
  for (const Level& level : levels_) {
    if (level.kind >= Kind::childArray) {
      path += '/' + std::to_string(level.index);
    } else if (level.key != Key::none) {
      path += '/';
      path += nameOf(level.key);
    }
  }
  return path;
}

Error DescriptionReader::errorAt(std::string_view text, std::string_view below) const {
  std::string line = path();
  line += below;
  return {(line.empty() ? "/" : line) + ": " + std::string(text)};
}

Error DescriptionReader::unexpected(std::string_view given) const {
  const bool isChoice = !levels_.empty() && levels_.back().kind == Kind::choiceArray;
  const Key key = levels_.empty() ? Key::none : levels_.back().key;
  return errorAt("expected " + std::string(expectedFor(isChoice ? Key::value : key)) + ", got " +
                 std::string(given));
}

std::size_t DescriptionReader::depth() const {
  // The root's object and array, then an object and an array for each level.
  return levels_.size() / 2;
}

std::optional<Error> DescriptionReader::startObject() {
  if (levels_.empty()) {
    levels_.emplace_back();
    return std::nullopt;
  }
  switch (levels_.back().kind) {
    case Kind::childArray:
      return startEntry();
    case Kind::elementArray:
      return startElement();
    default:
      return unexpected("an object");
  }
}

std::optional<Error> DescriptionReader::startEntry() {
  if (depth() > ModelSrv::ModelDepth_Max) {
    return errorAt("deeper than " + std::to_string(ModelSrv::ModelDepth_Max) + " levels");
  }
  Level level;
  level.kind = Kind::entry;
  level.entry = description_.entries.size();
  Entry entry;
  entry.parent = levels_.back().entry;
  description_.entries.push_back(std::move(entry));
  levels_.push_back(std::move(level));
  return std::nullopt;
}

std::optional<Error> DescriptionReader::startElement() {
  if (levels_.back().index >= ModelSrv::ModelPartElements_Max) {
    return errorAt("more than " + std::to_string(ModelSrv::ModelPartElements_Max) + " elements");
  }
  Level level;
  level.kind = Kind::element;
  levels_.push_back(std::move(level));
  return std::nullopt;
}

std::optional<Error> DescriptionReader::key(std::string_view name) {
  Level& level = levels_.back();
  level.key = Key::none;
  const Key key = findKey(name);
  if (key == Key::none || (allowedKeys(level.kind) & bit(key)) == 0) {
    constexpr std::size_t maxShownBytes = 80;
    return errorAt("unknown key", '/' + oneLine(name.substr(0, maxShownBytes)));
  }
  level.key = key;
  if (has(level, key)) {
    return errorAt("duplicate key");
  }
  level.seen |= bit(key);
  return std::nullopt;
}

std::optional<Error> DescriptionReader::scalar(Scalar value) {
  if (levels_.empty()) {
    return unexpected(toJson(value));
  }
  Level& level = levels_.back();
  if (level.kind == Kind::choiceArray) {
    return addChoice(std::move(value));
  }
  if (isDetail(level.key)) {
    level.raw.scalars.emplace(level.key, std::move(value));
    return std::nullopt;
  }
  switch (level.key) {
    case Key::id:
      return setId(value);
    case Key::name:
      return setName(value);
    case Key::type:
      return setType(value);
    case Key::access:
      return setAccess(value);
    case Key::subscribable:
      return setSubscribable(value);
    case Key::value:
      level.value = std::move(value);
      return std::nullopt;
    default:
      return unexpected(toJson(value));
  }
}

std::optional<Error> DescriptionReader::setId(const Scalar& value) {
  const auto* number = std::get_if<std::uint64_t>(&value);
  if (number == nullptr || *number > ModelSrv::ModelPartId_Max) {
    return unexpected(toJson(value));
  }
  levels_.back().id = static_cast<ModelSrv::ModelPartId>(*number);
  return std::nullopt;
}

std::optional<Error> DescriptionReader::setName(Scalar& value) {
  auto* name = std::get_if<std::string>(&value);
  if (name == nullptr) {
    return unexpected(toJson(value));
  }
  if (name->size() > ModelSrv::ModelName_Max) {
    return errorAt("longer than " + std::to_string(ModelSrv::ModelName_Max) + " bytes");
  }
  Level& level = levels_.back();
  switch (level.kind) {
    case Kind::root:
      description_.name = std::move(*name);
      break;
    case Kind::element:
      level.name = std::move(*name);
      break;
    default:
      entryOf(level).name = std::move(*name);
      break;
  }
  return std::nullopt;
}

std::optional<Error> DescriptionReader::setType(const Scalar& value) {
  const auto* name = std::get_if<std::string>(&value);
  if (name == nullptr) {
    return unexpected(toJson(value));
  }
  const auto type = findEntryType(*name);
  if (!type) {
    return errorAt("unknown type " + toJson(value));
  }
  entryOf(levels_.back()).type = *type;
  return std::nullopt;
}

std::optional<Error> DescriptionReader::setAccess(const Scalar& value) {
  const auto* name = std::get_if<std::string>(&value);
  const auto found =
      std::find_if(accessNames.begin(), accessNames.end(),
                   [name](const auto& access) { return name && access.first == *name; });
  if (found == accessNames.end()) {
    return unexpected(toJson(value));
  }
  entryOf(levels_.back()).access = found->second;
  return std::nullopt;
}

std::optional<Error> DescriptionReader::setSubscribable(const Scalar& value) {
  const auto* flag = std::get_if<bool>(&value);
  if (flag == nullptr) {
    return unexpected(toJson(value));
  }
  entryOf(levels_.back()).subscribable = *flag;
  return std::nullopt;
}

DescriptionReader::Kind DescriptionReader::kindOfArray(Key key) {
  switch (key) {
    case Key::children:
      return Kind::childArray;
    case Key::elements:
      return Kind::elementArray;
    default:
      return Kind::choiceArray;
  }
}

std::optional<Error> DescriptionReader::addChoice(Scalar value) {
  Level& level = levels_.back();
  if (level.index >= ModelSrv::ModelChoices_Max) {
    return errorAt("more than " + std::to_string(ModelSrv::ModelChoices_Max) + " choices");
  }
  level.raw.choices.push_back(std::move(value));
  ++level.index;
  return std::nullopt;
}

std::optional<Error> DescriptionReader::startArray() {
  const Key key = levels_.empty() ? Key::none : levels_.back().key;
  if (key != Key::children && key != Key::elements && key != Key::choices) {
    return unexpected("an array");
  }
  Level level;
  level.kind = kindOfArray(key);
  level.entry = levels_.back().entry;
  levels_.push_back(std::move(level));
  return std::nullopt;
}

std::optional<Error> DescriptionReader::endArray() {
  Level closed = std::move(levels_.back());
  levels_.pop_back();
  if (closed.kind == Kind::elementArray) {
    if (closed.raw.elements.empty()) {
      return errorAt("expected at least one element, got none");
    }
    Level& entry = levels_.back();
    entry.raw.elements = std::move(closed.raw.elements);
    if (closed.elementsNamed) {
      entryOf(entry).elementNames = std::move(closed.elementNames);
    }
  } else if (closed.kind == Kind::choiceArray) {
    if (closed.raw.choices.empty()) {
      return errorAt("expected at least one choice, got none");
    }
    levels_.back().raw.choices = std::move(closed.raw.choices);
  }
  return std::nullopt;
}

std::optional<Error> DescriptionReader::endObject() {
  Level& level = levels_.back();
  level.key = Key::none;
  switch (level.kind) {
    case Kind::element:
      return endElement();
    case Kind::entry:
      return endEntry();
    default:
      return endRoot();
  }
}

std::optional<Error> DescriptionReader::endRoot() {
  if (!has(levels_.back(), Key::children)) {
    return errorAt("missing \"children\"");
  }
  levels_.pop_back();
  return std::nullopt;
}

std::optional<Error> DescriptionReader::endElement() {
  Level& element = levels_.back();
  if (!has(element, Key::value)) {
    return errorAt("missing \"value\"");
  }
  Level& array = levels_[levels_.size() - 2];
  array.elementsNamed = array.elementsNamed || has(element, Key::name);
  array.raw.elements.push_back(std::move(element.value));
  array.elementNames.push_back(std::move(element.name));
  ++array.index;
  levels_.pop_back();
  return std::nullopt;
}

std::optional<Error> DescriptionReader::endEntry() {
  Level& level = levels_.back();
  Level& siblings = levels_[levels_.size() - 2];
  auto error = checkKeys(level);
  if (!error) {
    error = assignId(level, siblings);
  }
  if (!error) {
    error = convert(level);
  }
  if (!error) {
    ++siblings.index;
    levels_.pop_back();
  }
  return error;
}

std::optional<Error> DescriptionReader::checkKeys(const Level& level) const {
  if (has(level, Key::children)) {
    for (Key key = Key::type; key != Key::none; key = static_cast<Key>(static_cast<int>(key) + 1)) {
      if (key == Key::children || key == Key::text) {
        continue;
      }
      if (has(level, key)) {
        return errorAt("not allowed together with \"children\"", '/' + std::string(nameOf(key)));
      }
    }
    return std::nullopt;
  }
  if (has(level, Key::value) && has(level, Key::elements)) {
    return errorAt("not allowed together with \"value\"", "/elements");
  }
  const bool hasSource = has(level, Key::file) || has(level, Key::simulate);
  if (!has(level, Key::value) && !has(level, Key::elements) && !hasSource) {
    return errorAt(
        has(level, Key::type)
            ? R"(missing "value", "elements", "file" or "simulate")"
            : R"(missing "children", or "type" with "value", "elements", "file" or "simulate")");
  }
  if (!has(level, Key::type)) {
    return errorAt("missing \"type\"");
  }
  return std::nullopt;
}

std::optional<Error> DescriptionReader::assignId(const Level& level, Level& siblings) {
  const unsigned id = level.id ? *level.id : siblings.nextId;
  if (id > ModelSrv::ModelPartId_Max) {
    return errorAt("no id left after the previous sibling's " + std::to_string(id - 1));
  }
  if (siblings.ids.size() <= id) {
    siblings.ids.resize(std::size_t{id} + 1);
  }
  if (siblings.ids[id]) {
    return errorAt("duplicate id " + std::to_string(id), level.id ? "/id" : "");
  }
  siblings.ids[id] = true;
  entryOf(level).id = static_cast<ModelSrv::ModelPartId>(id);
  entryOf(level).hasStatedId = level.id.has_value();
  siblings.nextId = id + 1;
  return std::nullopt;
}

std::optional<Error> DescriptionReader::convert(const Level& level) {
  Entry& entry = entryOf(level);
  std::optional<EntryError> error;
  if (has(level, Key::value)) {
    error = convertValue(level.value, entry);
  } else if (has(level, Key::elements)) {
    error = convertElements(level.raw, entry);
  }
  if (!error) {
    error = convertDetails(level.raw, entry);
  }
  return error ? std::optional(errorAt(error->text, error->below)) : std::nullopt;
}

}  // namespace modelsrvd
