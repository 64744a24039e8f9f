#include "tools/json_object.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "tools/name_pattern.h"
#include "tools/utf8.h"

namespace treectl {

namespace {

/// Whether eight bytes are printable ASCII that a JSON string has as it is. A byte after one that
/// is none may be mistaken for one that is none, too.
bool arePlain(std::uint64_t bytes) {
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t tops = 0x8080808080808080;
  // The top bit of each byte that is zero.
  const auto zeros = [](std::uint64_t of) { return (of - ones) & ~of; };
  const std::uint64_t aboveAscii = bytes;
  const std::uint64_t control = (bytes - ones * ' ') | zeros(bytes ^ (ones * 0x7F));
  const std::uint64_t escaped = zeros(bytes ^ (ones * '"')) | zeros(bytes ^ (ones * '\\'));
  return ((aboveAscii | control | escaped) & tops) == 0;
}

}  // namespace

// A dump has very many bytes.
bool isPlainJson(std::string_view text) {
  std::uint64_t bytes = 0;
  while (text.size() >= sizeof bytes) {
    std::memcpy(&bytes, text.data(), sizeof bytes);
    if (!arePlain(bytes)) {
      return false;
    }
    text.remove_prefix(sizeof bytes);
  }
  return std::all_of(text.begin(), text.end(), [](char byte) {
    return byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\';
  });
}

void JsonObject::addKey(std::string_view key) {
  if (!isFirst_) {
    out_ += ',';
  }
  isFirst_ = false;
  out_ += '"';
  out_ += key;
  out_ += "\":";
}

void JsonObject::addPlainText(std::string_view key, std::string_view text) {
  const std::size_t begin = out_.size();
  out_.resize(begin + key.size() + text.size() + 6);
  char* at = out_.data() + begin;
  if (!isFirst_) {
    *at++ = ',';
  }
  isFirst_ = false;
  *at++ = '"';
  at = std::copy(key.begin(), key.end(), at);
  *at++ = '"';
  *at++ = ':';
  *at++ = '"';
  at = std::copy(text.begin(), text.end(), at);
  *at++ = '"';
  out_.resize(static_cast<std::size_t>(at - out_.data()));
}

void JsonObject::addText(std::string_view key, std::string_view text) {
  if (isPlainJson(text)) {
    addPlainText(key, text);
    return;
  }
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
