#include "servers/state_text.h"

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "servers/entry_values.h"

namespace modelsrvd {

namespace {

using Json = nlohmann::json;

std::string hexOf(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const char character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    hex += digits[byte >> 4U];
    hex += digits[byte & 0xFU];
  }
  return hex;
}

std::optional<unsigned> digitOf(char character) {
  if (character >= '0' && character <= '9') {
    return character - '0';
  }
  if (character >= 'a' && character <= 'f') {
    return character - 'a' + 10;
  }
  return std::nullopt;
}

std::optional<std::string> bytesOf(std::string_view hex) {
  std::string bytes;
  bytes.reserve(hex.size() / 2);
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    const auto high = digitOf(hex[i]);
    const auto low = digitOf(hex[i + 1]);
    if (!high || !low) {
      return std::nullopt;
    }
    bytes += static_cast<char>(*high << 4U | *low);
  }
  return hex.size() % 2 == 0 ? std::optional(std::move(bytes)) : std::nullopt;
}

/// `text` as a JSON string; nothing if it is not valid UTF-8.
std::optional<std::string> quoted(const std::string& text) {
  try {
    return Json(text).dump();
  } catch (const Json::type_error&) {
    return std::nullopt;
  }
}

/// A name comes from a tree whose names are UTF-8.
std::string quotedName(const std::string& name) {
  return Json(name).dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// Whether a value text is a JSON number that a parser returns as it is written. It makes an
/// integer of "-0".
bool isJsonNumber(const std::string& text) {
  return text.find_first_not_of("+-.0123456789Ee") == std::string::npos && text != "-0";
}

std::string valueOf(const StoredPart& part, const std::string& text) {
  const bool isText = part.type == nameOf(EntryType::text);
  if (!isText && (text == "true" || text == "false" || isJsonNumber(text))) {
    return "\"value\":" + text;
  }
  if (const auto string = quoted(text)) {
    return "\"value\":" + *string;
  }
  return "\"hex\":\"" + hexOf(text) + '"';
}

/// Builds the parts from the events of a JSON parser, which it stops at the first error.
class StateReader final : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return wrong("null"); }
  bool boolean(bool value) override { return valueText(value ? "true" : "false"); }
  bool number_integer(std::int64_t value) override { return valueText(std::to_string(value)); }
  bool number_unsigned(std::uint64_t value) override;
  bool number_float(double, const std::string& text) override { return valueText(text); }
  bool string(std::string& text) override;
  bool binary(Json::binary_t&) override { return wrong("binary data"); }
  bool start_object(std::size_t) override;
  bool key(std::string& name) override;
  bool end_object() override;
  bool start_array(std::size_t) override;
  bool end_array() override;
  bool parse_error(std::size_t charactersRead, const std::string&,
                   const nlohmann::detail::exception&) override {
    return fail("no JSON at byte " + std::to_string(charactersRead));
  }

  Result<std::vector<StoredPart>> take();

 private:
  enum class Level { start, file, parts, part, path, ids, elements, element, end };

  bool fail(const std::string& what);
  bool wrong(const std::string& found);
  bool valueText(std::string text);
  bool hexText(const std::string& text);
  StoredPart& part() { return parts_.back(); }
  bool addValue(std::string text);
  bool endPart();

  Level level_ = Level::start;
  std::string key_;
  std::string elementName_;
  std::vector<StoredPart> parts_;
  std::vector<std::string> names_;
  std::vector<ModelSrv::ModelPartId> ids_;
  bool hasVersion_ = false;
  std::size_t values_ = 0;  ///< of the part or, in an array, of the element
  std::optional<Error> error_;
};

bool StateReader::fail(const std::string& what) {
  std::string where;
  if (level_ != Level::start && level_ != Level::file && level_ != Level::end && !parts_.empty()) {
    where = "/parts/" + std::to_string(parts_.size() - 1) + ": ";
  }
  error_ = Error{where + what};
  return false;
}

bool StateReader::wrong(const std::string& found) {
  return fail("unexpected " + found + (key_.empty() ? "" : " after \"" + oneLine(key_) + '"'));
}

bool StateReader::number_unsigned(std::uint64_t value) {
  constexpr std::uint64_t version = 1;
  if (level_ == Level::file && key_ == "state") {
    hasVersion_ = value == version;
    return hasVersion_ || fail("expected version 1, got " + std::to_string(value));
  }
  if (level_ == Level::ids) {
    ids_.push_back(static_cast<ModelSrv::ModelPartId>(value));
    return value <= ModelSrv::ModelPartId_Max || wrong("id");
  }
  return valueText(std::to_string(value));
}

bool StateReader::string(std::string& text) {
  if (level_ == Level::path) {
    names_.push_back(std::move(text));
    return true;
  }
  if (level_ == Level::part && key_ == "type") {
    part().type = std::move(text);
    return true;
  }
  if (level_ == Level::element && key_ == "name") {
    elementName_ = std::move(text);
    return true;
  }
  return key_ == "hex" ? hexText(text) : valueText(std::move(text));
}

bool StateReader::valueText(std::string text) {
  return key_ == "value" ? addValue(std::move(text)) : wrong("value");
}

bool StateReader::hexText(const std::string& text) {
  auto bytes = bytesOf(text);
  return bytes ? addValue(std::move(*bytes)) : wrong("text that is not hexadecimal");
}

bool StateReader::addValue(std::string text) {
  const bool isElement = level_ == Level::element;
  if ((level_ != Level::part && !isElement) || part().array != isElement || ++values_ != 1) {
    return wrong("value");
  }
  part().elements.push_back({{}, std::move(text)});
  return true;
}

bool StateReader::start_object(std::size_t) {
  key_.clear();
  values_ = 0;
  switch (level_) {
    case Level::start:
      level_ = Level::file;
      return true;
    case Level::parts:
      level_ = Level::part;
      parts_.emplace_back();
      names_.clear();
      ids_.clear();
      return true;
    case Level::elements:
      level_ = Level::element;
      elementName_.clear();
      return true;
    default:
      return wrong("object");
  }
}

bool StateReader::key(std::string& name) {
  key_ = std::move(name);
  return true;
}

bool StateReader::end_object() {
  key_.clear();
  switch (level_) {
    case Level::file:
      level_ = Level::end;
      return hasVersion_ || fail("missing \"state\"");
    case Level::part:
      level_ = Level::parts;
      return endPart();
    default:
      level_ = Level::elements;
      if (values_ != 1) {
        return wrong("element without a value");
      }
      part().elements.back().name = std::move(elementName_);
      return true;
  }
}

bool StateReader::start_array(std::size_t) {
  if (level_ == Level::file && key_ == "parts") {
    level_ = Level::parts;
  } else if (level_ == Level::part && key_ == "path") {
    level_ = Level::path;
  } else if (level_ == Level::part && key_ == "ids") {
    level_ = Level::ids;
  } else if (level_ == Level::part && key_ == "elements" && part().elements.empty()) {
    level_ = Level::elements;
    part().array = true;
  } else {
    return wrong("array");
  }
  key_.clear();
  return true;
}

bool StateReader::end_array() {
  level_ = level_ == Level::parts ? Level::file : Level::part;
  return true;
}

bool StateReader::endPart() {
  if (names_.empty() || names_.size() != ids_.size()) {
    return fail("expected a path and as many ids");
  }
  if (part().elements.empty() || part().elements.size() > ModelSrv::ModelPartElements_Max) {
    return fail("expected a value or elements");
  }
  for (std::size_t i = 0; i < names_.size(); ++i) {
    part().levels.push_back({ids_[i], std::move(names_[i])});
  }
  return true;
}

Result<std::vector<StoredPart>> StateReader::take() {
  if (error_) {
    return std::move(*error_);
  }
  return std::move(parts_);
}

}  // namespace

std::string pathOf(const StoredPart& part) {
  std::string path;
  for (const StoredPart::Level& level : part.levels) {
    path += '/' + level.name;
  }
  return oneLine(path);
}

std::string stateLine(const StoredPart& part) {
  std::string names;
  std::string ids;
  for (const StoredPart::Level& level : part.levels) {
    names += (names.empty() ? "" : ",") + quotedName(level.name);
    ids += (ids.empty() ? "" : ",") + std::to_string(level.id);
  }
  std::string line =
      "{\"path\":[" + names + "],\"ids\":[" + ids + "],\"type\":\"" + part.type + "\",";
  if (!part.array) {
    return line + valueOf(part, part.elements.front().text) + '}';
  }
  line += "\"elements\":[";
  for (std::size_t i = 0; i < part.elements.size(); ++i) {
    const StoredPart::Element& element = part.elements[i];
    line += i == 0 ? "{" : ",{";
    line += element.name.empty() ? "" : "\"name\":" + quotedName(element.name) + ',';
    line += valueOf(part, element.text) + '}';
  }
  return line + "]}";
}

Result<std::vector<StoredPart>> parseState(std::string_view text) {
  StateReader reader;
  static_cast<void>(Json::sax_parse(text.begin(), text.end(), &reader));
  return reader.take();
}

}  // namespace modelsrvd
