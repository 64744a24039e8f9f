#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_part.h"

namespace treectl {

/// The forms in which values are printed. No system calls; any thread.

/// The value of a part or of an element: its text, or the texts of all elements.
struct Value {
  std::vector<std::string> texts;  ///< one, or one for each element
  bool isArray = false;
};

/// Appends a value text as plain output has it: `\n`, `\t`, `\\`, and `\xHH` for other control
/// bytes.
void appendPlainText(std::string& out, std::string_view text);

/// Appends the plain form of a value: the texts, joined by one space.
void appendPlain(std::string& out, const Value& value);

/// Whether the text of a value that is no text is a number of JSON: not a number, the infinities
/// and bool are none.
[[nodiscard]] bool isJsonNumber(std::string_view text);

/// Appends `text` in quotes. It must be UTF-8.
void appendJsonString(std::string& out, std::string_view text);

/// Appends the JSON form of the value of a part of type `type` ("int32"; empty: unknown): a
/// number, a bool, a string, or an array of these. A text must be UTF-8.
void appendJsonValue(std::string& out, const Value& value, std::string_view type);

/// Whether all texts are UTF-8.
[[nodiscard]] bool isUtf8(const Value& value);

/// Appends the texts in Base64, as a JSON string or an array of strings.
void appendBase64Value(std::string& out, const Value& value);

/// The bytes that `text` stands for in Base64. False if it is none.
[[nodiscard]] bool decodeBase64(std::string_view text, std::string& bytes);

/// The form of an access in output: "rw", "ro", "protected"; empty for none.
[[nodiscard]] std::string_view accessName(ModelSrv::ModelPartStatus access);

}  // namespace treectl
