#pragma once

#include <string>
#include <string_view>

#include "modelsrv/part_description.h"
#include "tools/values.h"

namespace treectl {

/// Whether `text` is a JSON string without a change: printable ASCII, no quotes, no backslashes.
[[nodiscard]] bool isPlainJson(std::string_view text);

/// Appends one JSON object to a text, key by key. Keys and raw values are JSON already.
class JsonObject {
 public:
  explicit JsonObject(std::string& out) : out_(out) { out_ += '{'; }
  JsonObject(const JsonObject&) = delete;
  JsonObject& operator=(const JsonObject&) = delete;

  /// Adds a string. Bytes that are no UTF-8 become `\xHH`.
  void addText(std::string_view key, std::string_view text);
  /// Adds it if it is not empty.
  void addTextIfAny(std::string_view key, std::string_view text);
  /// Adds a number, a bool or an object.
  void addRaw(std::string_view key, std::string_view json);
  /// Adds "value", or "value_base64" if it is no UTF-8.
  void addValue(const Value& value, std::string_view type);
  /// Begins a value that the caller appends to the text.
  void addKey(std::string_view key);

  /// Adds what a description says of every value: the type, the element's name if it is not empty,
  /// the access and the unit.
  void addPart(const ModelSrv::PartDescription& description, std::string_view elementName);

  /// Ends the object.
  void end() { out_ += '}'; }

 private:
  /// Adds a string that needs no escapes, in one step: a dump adds thousands.
  void addPlainText(std::string_view key, std::string_view text);

  std::string& out_;
  bool isFirst_ = true;
};

}  // namespace treectl
