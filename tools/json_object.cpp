#include "tools/json_object.h"

#include "tools/name_pattern.h"
#include "tools/utf8.h"

namespace treectl {

void JsonObject::addKey(std::string_view key) {
  if (!isFirst_) {
    out_ += ',';
  }
  isFirst_ = false;
  out_ += '"';
  out_ += key;
  out_ += "\":";
}

void JsonObject::addText(std::string_view key, std::string_view text) {
  addKey(key);
  if (isUtf8(text)) {
    appendJsonString(out_, text);
    return;
  }
  std::string escaped;
  appendEscapedName(escaped, text);
  appendJsonString(out_, escaped);
}

void JsonObject::addTextIfAny(std::string_view key, std::string_view text) {
  if (!text.empty()) {
    addText(key, text);
  }
}

void JsonObject::addRaw(std::string_view key, std::string_view json) {
  addKey(key);
  out_ += json;
}

void JsonObject::addValue(const Value& value, std::string_view type) {
  if (isUtf8(value)) {
    addKey("value");
    appendJsonValue(out_, value, type);
  } else {
    addKey("value_base64");
    appendBase64Value(out_, value);
  }
}

void JsonObject::addPart(const ModelSrv::PartDescription& description,
                         std::string_view elementName) {
  addTextIfAny("type", description.type);
  addTextIfAny("element", elementName);
  addTextIfAny("access", accessName(description.access));
  // A server that says no type says no unit either.
  if (!description.type.empty() && description.type != "node") {
    addText("unit", description.attributes.unit);
  }
}

}  // namespace treectl
