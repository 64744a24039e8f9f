#pragma once

#include <string_view>

namespace modelgate {

/// How a request or a reply is encoded.
enum class Format { cbor, json };

/// The MQTT content type of a format, such as "application/cbor".
[[nodiscard]] constexpr std::string_view contentType(Format format) {
  return format == Format::cbor ? "application/cbor" : "application/json";
}

/// The format of a message: by its content type, or without a known one by its first byte.
[[nodiscard]] constexpr Format formatOf(std::string_view payload, std::string_view type) {
  if (type == contentType(Format::cbor)) {
    return Format::cbor;
  }
  const bool isObject = payload.find_first_not_of(" \t\r\n") != std::string_view::npos &&
                        payload[payload.find_first_not_of(" \t\r\n")] == '{';
  return type == contentType(Format::json) || isObject ? Format::json : Format::cbor;
}

}  // namespace modelgate
