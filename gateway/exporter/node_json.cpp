#include "gateway/exporter/node_json.h"

#include <nlohmann/json.hpp>
#include <unordered_set>
#include <vector>

#include "gateway/wire/limits.h"

namespace modelgate {

using ModelSrv::ModelPartIndex_All;

namespace {

std::string jsonText(std::string_view text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool isJsonNumber(std::string_view text) {
  return text.find_first_not_of("0123456789+-.eE") == std::string_view::npos &&
         nlohmann::json::accept(text);
}

/// `text` as JSON.
std::string jsonOf(ValueKind kind, const Value& value, std::string_view text) {
  if (value.result != ModelSrv::ModelRes_Success) {
    return "null";
  }
  const bool isBoolean = kind == ValueKind::boolean && (text == "true" || text == "false");
  const bool isNumber = kind == ValueKind::number && isJsonNumber(text);
  if (isBoolean || isNumber) {
    return std::string(text);
  }
  return kind == ValueKind::number ? "null" : jsonText(text);
}

/// Writes the members of an object.
class ObjectWriter {
 public:
  void add(std::string name, std::string_view json) {
    const auto [added, isNew] = names_.insert(std::move(name));
    if (!isNew) {
      return;
    }
    const std::string quoted = jsonText(*added);
    // Also for the characters around them.
    const std::size_t size = text_.size() + quoted.size() + 3;
    if (size + json.size() > maxPayload) {
      json = "null";
    }
    if (size + json.size() <= maxPayload) {
      text_ += text_.empty() ? "{" : ",";
      text_ += quoted;
      text_ += ':';
      text_ += json;
    }
  }

  [[nodiscard]] std::string finish() { return text_.empty() ? "{}" : std::move(text_) + '}'; }

 private:
  std::string text_;
  std::unordered_set<std::string> names_;
};

std::string memberName(const TreeIndex& index, Position part, std::string_view single) {
  if (!single.empty()) {
    return std::string(single);
  }
  const std::string_view name = index.name(part);
  return name.empty() ? '#' + std::to_string(index.id(part)) : std::string(name);
}

std::string elementName(const TreeIndex& index, Position part, unsigned element) {
  const auto names = index.elementNames(part);
  return element < names.size() && !names[element].empty() ? names[element]
                                                           : std::to_string(element);
}

/// `single` is the name of the member if it is not that of the part.
void addPart(ObjectWriter& object, const TreeIndex& index, const ValueTable& values, Position part,
             std::string_view single) {
  std::vector<PositionedValue> read;
  values.read({part, ModelPartIndex_All}, read);
  const std::string name = memberName(index, part, single);
  const ValueKind kind = index.kind(part);
  const unsigned elements = index.elements(part);
  const Value& first = read.front().value;
  if (elements == 0 || first.result != ModelSrv::ModelRes_Success) {
    object.add(name, jsonOf(kind, first, first.text));
    return;
  }
  if (read.size() == elements && read.front().index != ModelPartIndex_All) {
    for (const PositionedValue& element : read) {
      object.add(name + '_' + elementName(index, part, element.index),
                 jsonOf(kind, element.value, element.value.text));
    }
    return;
  }
  std::string_view rest = first.text;
  for (unsigned i = 0; i < elements; ++i) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    object.add(name + '_' + elementName(index, part, i), jsonOf(kind, first, line));
  }
}

}  // namespace

std::string nodeJson(const TreeIndex& index, const ValueTable& values, Position position) {
  ObjectWriter object;
  if (position != rootPosition && !index.isNode(position)) {
    addPart(object, index, values, position, "value");
    return object.finish();
  }
  const Position last = index.end(position);
  for (Position child = position == rootPosition ? 0 : position + 1; child < last;
       child = index.end(child)) {
    if (!index.isNode(child)) {
      addPart(object, index, values, child, {});
    }
  }
  return object.finish();
}

}  // namespace modelgate
