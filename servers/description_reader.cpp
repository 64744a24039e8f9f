#include "servers/description_reader.h"

#include <algorithm>
#include <array>
#include <utility>

namespace modelsrvd {

namespace {

constexpr std::array<std::string_view, 8> keyNames{
    "id", "name", "type", "value", "elements", "children", "access", "subscribable"};

constexpr std::array<std::pair<std::string_view, ModelSrv::ModelPartStatus>, 3> accessNames{
    {{"read-write", ModelSrv::ModelPartStatus_ReadWrite},
     {"read-only", ModelSrv::ModelPartStatus_ReadOnly},
     {"protected", ModelSrv::ModelPartStatus_Protected}}};

}  // namespace

std::string_view DescriptionReader::nameOf(Key key) {
  return keyNames[static_cast<std::size_t>(key)];
}

DescriptionReader::Key DescriptionReader::findKey(std::string_view name) {
  const auto found = std::find(keyNames.begin(), keyNames.end(), name);
  return static_cast<Key>(found - keyNames.begin());
}

std::string_view DescriptionReader::wanted(Key key) {
  switch (key) {
    case Key::id:
      return "a whole number from 0 to 65533";
    case Key::name:
      return "a text";
    case Key::type:
      return "the name of a type";
    case Key::value:
      return "a single value";
    case Key::elements:
      return "an array of elements";
    case Key::children:
      return "an array of entries";
    case Key::access:
      return "\"read-write\", \"read-only\" or \"protected\"";
    case Key::subscribable:
      return "true or false";
    case Key::none:
      break;
  }
  return "an object";
}

unsigned DescriptionReader::allowedKeys(Place place) {
  switch (place) {
    case Place::root:
      return bit(Key::name) | bit(Key::children);
    case Place::element:
      return bit(Key::name) | bit(Key::value);
    default:
      return bit(Key::none) - 1;
  }
}

std::string DescriptionReader::path() const {
  std::string path;
  for (const Level& level : levels_) {
    if (level.place == Place::childArray || level.place == Place::elementArray) {
      path += '/' + std::to_string(level.item);
    } else if (level.key != Key::none) {
      path += '/';
      path += nameOf(level.key);
    }
  }
  return path;
}

Error DescriptionReader::fail(std::string_view text, std::string_view below) const {
  std::string line = path();
  line += below;
  return {(line.empty() ? "/" : line) + ": " + std::string(text)};
}

Error DescriptionReader::wrongThing(std::string_view given) const {
  const Key key = levels_.empty() ? Key::none : levels_.back().key;
  return fail(std::string(given) + " stands where " + std::string(wanted(key)) + " is wanted");
}

std::size_t DescriptionReader::depth() const {
  // The root's object and array, then an object and an array a level.
  return levels_.size() / 2;
}

DescriptionReader::Fault DescriptionReader::startObject() {
  if (levels_.empty()) {
    levels_.emplace_back();
    return std::nullopt;
  }
  switch (levels_.back().place) {
    case Place::childArray:
      return startEntry();
    case Place::elementArray:
      return startElement();
    default:
      return wrongThing("an object");
  }
}

DescriptionReader::Fault DescriptionReader::startEntry() {
  if (depth() > ModelSrv::ModelDepth_Max) {
    return fail("deeper than " + std::to_string(ModelSrv::ModelDepth_Max) + " levels");
  }
  Level level;
  level.place = Place::entry;
  level.entry = description_.entries.size();
  Entry entry;
  entry.parent = levels_.back().entry;
  description_.entries.push_back(std::move(entry));
  levels_.push_back(std::move(level));
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::startElement() {
  if (levels_.back().item >= ModelSrv::ModelPartElements_Max) {
    return fail("more than " + std::to_string(ModelSrv::ModelPartElements_Max) + " elements");
  }
  Level level;
  level.place = Place::element;
  levels_.push_back(std::move(level));
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::key(std::string_view name) {
  Level& level = levels_.back();
  level.key = Key::none;
  const Key key = findKey(name);
  if (key == Key::none || (allowedKeys(level.place) & bit(key)) == 0) {
    constexpr std::size_t most = 80;
    return fail("unknown key", '/' + oneLine(name.substr(0, most)));
  }
  level.key = key;
  if (has(level, key)) {
    return fail("the key is there twice");
  }
  level.seen |= bit(key);
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::scalar(Scalar value) {
  if (levels_.empty()) {
    return wrongThing(kindOf(value));
  }
  Level& level = levels_.back();
  switch (level.key) {
    case Key::id:
      return takeId(value);
    case Key::name:
      return takeName(value);
    case Key::type:
      return takeType(value);
    case Key::access:
      return takeAccess(value);
    case Key::subscribable:
      return takeSubscribable(value);
    case Key::value:
      level.value = std::move(value);
      return std::nullopt;
    default:
      return wrongThing(kindOf(value));
  }
}

DescriptionReader::Fault DescriptionReader::takeId(const Scalar& value) {
  const auto* number = std::get_if<std::uint64_t>(&value);
  if (number == nullptr || *number > ModelSrv::ModelPartId_Max) {
    return fail("not " + std::string(wanted(Key::id)));
  }
  levels_.back().id = static_cast<ModelSrv::ModelPartId>(*number);
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::takeName(Scalar& value) {
  auto* name = std::get_if<std::string>(&value);
  if (name == nullptr) {
    return wrongThing(kindOf(value));
  }
  if (name->size() > ModelSrv::ModelName_Max) {
    return fail("longer than " + std::to_string(ModelSrv::ModelName_Max) + " bytes");
  }
  Level& level = levels_.back();
  switch (level.place) {
    case Place::root:
      description_.name = std::move(*name);
      break;
    case Place::element:
      level.name = std::move(*name);
      break;
    default:
      entryOf(level).name = std::move(*name);
      break;
  }
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::takeType(const Scalar& value) {
  const auto* name = std::get_if<std::string>(&value);
  if (name == nullptr) {
    return wrongThing(kindOf(value));
  }
  const auto type = findEntryType(*name);
  if (!type) {
    return fail("there is no such type");
  }
  entryOf(levels_.back()).type = *type;
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::takeAccess(const Scalar& value) {
  const auto* name = std::get_if<std::string>(&value);
  const auto found =
      std::find_if(accessNames.begin(), accessNames.end(),
                   [name](const auto& access) { return name && access.first == *name; });
  if (found == accessNames.end()) {
    return fail("not " + std::string(wanted(Key::access)));
  }
  entryOf(levels_.back()).access = found->second;
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::takeSubscribable(const Scalar& value) {
  const auto* flag = std::get_if<bool>(&value);
  if (flag == nullptr) {
    return wrongThing(kindOf(value));
  }
  entryOf(levels_.back()).subscribable = *flag;
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::startArray() {
  const Key key = levels_.empty() ? Key::none : levels_.back().key;
  if (key != Key::children && key != Key::elements) {
    return wrongThing("an array");
  }
  Level level;
  level.place = key == Key::children ? Place::childArray : Place::elementArray;
  level.entry = levels_.back().entry;
  levels_.push_back(std::move(level));
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::endArray() {
  Level closed = std::move(levels_.back());
  levels_.pop_back();
  if (closed.place == Place::elementArray) {
    if (closed.elementValues.empty()) {
      return fail("an array has at least one element");
    }
    Level& entry = levels_.back();
    entry.elementValues = std::move(closed.elementValues);
    if (closed.elementsNamed) {
      entryOf(entry).elementNames = std::move(closed.elementNames);
    }
  }
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::endObject() {
  Level& level = levels_.back();
  level.key = Key::none;
  switch (level.place) {
    case Place::element:
      return endElement();
    case Place::entry:
      return endEntry();
    default:
      return endRoot();
  }
}

DescriptionReader::Fault DescriptionReader::endRoot() {
  if (!has(levels_.back(), Key::children)) {
    return fail("\"children\" is missing");
  }
  levels_.pop_back();
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::endElement() {
  Level& element = levels_.back();
  if (!has(element, Key::value)) {
    return fail("\"value\" is missing");
  }
  Level& array = levels_[levels_.size() - 2];
  array.elementsNamed = array.elementsNamed || has(element, Key::name);
  array.elementValues.push_back(std::move(element.value));
  array.elementNames.push_back(std::move(element.name));
  ++array.item;
  levels_.pop_back();
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::endEntry() {
  Level& level = levels_.back();
  Level& siblings = levels_[levels_.size() - 2];
  Fault fault = settleKind(level);
  if (!fault) {
    fault = settleId(level, siblings);
  }
  if (!fault) {
    fault = has(level, Key::elements) ? settleElements(level) : settleValue(level);
  }
  if (!fault) {
    ++siblings.item;
    levels_.pop_back();
  }
  return fault;
}

DescriptionReader::Fault DescriptionReader::settleKind(Level& level) {
  if (has(level, Key::children)) {
    for (const Key key : {Key::type, Key::value, Key::elements, Key::access, Key::subscribable}) {
      if (has(level, key)) {
        return fail("not together with \"children\"", '/' + std::string(nameOf(key)));
      }
    }
    return std::nullopt;
  }
  if (has(level, Key::value) && has(level, Key::elements)) {
    return fail("not together with \"value\"", "/elements");
  }
  if (!has(level, Key::value) && !has(level, Key::elements)) {
    return fail(R"("children", "value" or "elements" is missing)");
  }
  if (!has(level, Key::type)) {
    return fail("\"type\" is missing");
  }
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::settleId(const Level& level, Level& siblings) {
  const unsigned id = level.id ? *level.id : siblings.nextId;
  if (id > ModelSrv::ModelPartId_Max) {
    return fail("no id is left behind its elder sibling's");
  }
  if (siblings.ids.size() <= id) {
    siblings.ids.resize(std::size_t{id} + 1);
  }
  if (siblings.ids[id]) {
    return fail("an elder sibling has the id " + std::to_string(id), level.id ? "/id" : "");
  }
  siblings.ids[id] = true;
  entryOf(level).id = static_cast<ModelSrv::ModelPartId>(id);
  siblings.nextId = id + 1;
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::settleValue(Level& level) {
  if (!has(level, Key::value)) {
    return std::nullopt;
  }
  Entry& entry = entryOf(level);
  auto value = toEntryValue(level.value, entry.type);
  if (const auto* error = std::get_if<Error>(&value)) {
    return fail(error->text, "/value");
  }
  entry.values.push_back(std::move(std::get<EntryValue>(value)));
  return std::nullopt;
}

DescriptionReader::Fault DescriptionReader::settleElements(Level& level) {
  Entry& entry = entryOf(level);
  entry.array = true;
  entry.values.reserve(level.elementValues.size());
  std::size_t bytes = level.elementValues.size() - 1;
  for (const Scalar& scalar : level.elementValues) {
    auto value = toEntryValue(scalar, entry.type);
    if (const auto* error = std::get_if<Error>(&value)) {
      return fail(error->text, "/elements/" + std::to_string(entry.values.size()) + "/value");
    }
    entry.values.push_back(std::move(std::get<EntryValue>(value)));
    if (const auto* text = std::get_if<std::string>(&entry.values.back())) {
      bytes += text->size();
    }
  }
  if (bytes > ModelSrv::ModelValueText_Max) {
    return fail("the texts have more than " + std::to_string(ModelSrv::ModelValueText_Max) +
                    " bytes altogether",
                "/elements");
  }
  return std::nullopt;
}

}  // namespace modelsrvd
