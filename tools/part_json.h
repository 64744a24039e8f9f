#pragma once

#include <string>
#include <vector>

#include "tools/json_object.h"

namespace treectl {

/// Adds what only descriptions have: "subscribable", "elements", "element_names", "minimum",
/// "maximum", "choices" and "text". `out` is the text that `object` is appended to.
inline void addDetails(JsonObject& object, std::string& out,
                       const ModelSrv::PartDescription& description) {
  const auto addTexts = [&](const char* key, const std::vector<std::string>& texts) {
    if (!texts.empty()) {
      Value names{texts, true};
      object.addKey(key);
      for (std::string& name : names.texts) {
        if (!isUtf8(Value{{name}, false})) {
          std::string escaped;
          appendEscapedName(escaped, name);
          name = escaped;
        }
      }
      appendJsonValue(out, names, "text");
    }
  };
  const ModelSrv::PartAttributes& attributes = description.attributes;
  if (description.type != "node") {
    object.addRaw("subscribable", description.subscribable ? "true" : "false");
  }
  if (description.elements != 0) {
    object.addRaw("elements", std::to_string(description.elements));
  }
  addTexts("element_names", description.elementNames);
  const auto addLimit = [&](const char* key, const std::string& text) {
    if (!text.empty()) {
      object.addKey(key);
      appendJsonValue(out, Value{{text}, false}, description.type);
    }
  };
  addLimit("minimum", attributes.minimum);
  addLimit("maximum", attributes.maximum);
  if (!attributes.choices.empty()) {
    object.addKey("choices");
    appendJsonValue(out, Value{attributes.choices, true}, description.type);
  }
  object.addTextIfAny("text", attributes.text);
}

}  // namespace treectl
