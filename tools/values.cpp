#include "tools/values.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "tools/name_pattern.h"
#include "tools/utf8.h"

namespace treectl {

namespace {

constexpr std::string_view base64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void appendBase64(std::string& out, std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8U | (i < count ? static_cast<unsigned char>(bytes[at + i]) : 0U);
    }
    for (unsigned digit = 0; digit < 4; ++digit) {
      out += digit <= count ? base64Digits[group >> (18U - 6U * digit) & 0x3FU] : '=';
    }
  }
}

void appendJsonText(std::string& out, std::string_view text, std::string_view type) {
  const bool mayBeBare = !type.empty() && type != "text";
  if (mayBeBare && (type == "bool" || isJsonNumber(text))) {
    out += text;
  } else {
    appendJsonString(out, mayBeBare && text == "-nan" ? text.substr(1) : text);
  }
}

/// Calls `append` for each text, and adds the brackets and commas of an array.
template <typename Append>
void appendTexts(std::string& out, const Value& value, Append append) {
  if (value.isArray) {
    out += '[';
  }
  for (std::size_t i = 0; i < value.texts.size(); ++i) {
    if (i > 0) {
      out += ',';
    }
    append(value.texts[i]);
  }
  if (value.isArray) {
    out += ']';
  }
}

}  // namespace

bool isJsonNumber(std::string_view text) {
  const std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
  return !digits.empty() && digits.front() >= '0' && digits.front() <= '9';
}

void appendPlainText(std::string& out, std::string_view text) {
  if (std::none_of(text.begin(), text.end(),
                   [](char byte) { return byte == '\\' || isControlByte(byte); })) {
    out += text;
    return;
  }
  for (const char byte : text) {
    switch (byte) {
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        if (isControlByte(byte)) {
          appendHexEscape(out, byte);
        } else {
          out += byte;
        }
    }
  }
}

void appendPlain(std::string& out, const Value& value) {
  for (std::size_t i = 0; i < value.texts.size(); ++i) {
    if (i > 0) {
      out += ' ';
    }
    appendPlainText(out, value.texts[i]);
  }
}

void appendJsonString(std::string& out, std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  out += '"';
  if (std::none_of(text.begin(), text.end(),
                   [](char byte) { return byte == '"' || byte == '\\' || isControlByte(byte); })) {
    out += text;
    out += '"';
    return;
  }
  for (const char byte : text) {
    if (byte == '"' || byte == '\\') {
      out += '\\';
      out += byte;
    } else if (byte == '\n') {
      out += "\\n";
    } else if (byte == '\t') {
      out += "\\t";
    } else if (isControlByte(byte)) {
      out += "\\u00";
      out += digits[static_cast<unsigned char>(byte) >> 4U];
      out += digits[static_cast<unsigned char>(byte) & 0xFU];
    } else {
      out += byte;
    }
  }
  out += '"';
}

void appendJsonValue(std::string& out, const Value& value, std::string_view type) {
  appendTexts(out, value, [&](const std::string& text) { appendJsonText(out, text, type); });
}

bool isUtf8(const Value& value) {
  return std::all_of(value.texts.begin(), value.texts.end(),
                     [](const std::string& text) { return isUtf8(std::string_view(text)); });
}

void appendBase64Value(std::string& out, const Value& value) {
  appendTexts(out, value, [&](const std::string& text) {
    out += '"';
    appendBase64(out, text);
    out += '"';
  });
}

bool decodeBase64(std::string_view text, std::string& bytes) {
  if (text.size() % 4 != 0) {
    return false;
  }
  std::string decoded;
  for (std::size_t at = 0; at < text.size(); at += 4) {
    const bool isLast = at + 4 == text.size();
    const std::size_t padding = !isLast                       ? 0
                                : text.substr(at + 2) == "==" ? 2
                                : text[at + 3] == '='         ? 1
                                                              : 0;
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      const std::size_t digit = i < 4 - padding ? base64Digits.find(text[at + i]) : 0;
      if (digit == std::string_view::npos) {
        return false;
      }
      group = group << 6U | static_cast<std::uint32_t>(digit);
    }
    for (std::size_t i = 0; i < 3 - padding; ++i) {
      decoded += static_cast<char>(group >> (16U - 8U * i) & 0xFFU);
    }
  }
  bytes = std::move(decoded);
  return true;
}

std::string_view accessName(ModelSrv::ModelPartStatus access) {
  switch (access) {
    case ModelSrv::ModelPartStatus_ReadWrite:
      return "rw";
    case ModelSrv::ModelPartStatus_ReadOnly:
      return "ro";
    case ModelSrv::ModelPartStatus_Protected:
      return "protected";
    default:
      return {};
  }
}

}  // namespace treectl
