#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/link/link_options.h"

struct mqtt5__property;

namespace modelgate {

/// Properties of an MQTT 5 packet that is sent. Adding throws std::bad_alloc; what MQTT does not
/// allow is left out.
class PropertyList {
 public:
  PropertyList() = default;
  ~PropertyList();
  PropertyList(PropertyList&& other) noexcept;
  PropertyList(const PropertyList&) = delete;
  PropertyList& operator=(const PropertyList&) = delete;
  PropertyList& operator=(PropertyList&&) = delete;

  void addNumber(int identifier, long long value);  ///< of four bytes
  void addText(int identifier, const std::string& value);
  void addBytes(int identifier, const std::string& value);

  [[nodiscard]] mqtt5__property* get() const { return list_; }
  /// Another owner frees them.
  void release() { list_ = nullptr; }

 private:
  mqtt5__property* list_ = nullptr;
};

/// Those that `publication` asks for.
[[nodiscard]] PropertyList publicationProperties(const Publication& publication);

/// Those of a message that has arrived.
class MessageProperties {
 public:
  explicit MessageProperties(const mqtt5__property* properties);
  ~MessageProperties();
  MessageProperties(const MessageProperties&) = delete;
  MessageProperties& operator=(const MessageProperties&) = delete;

  [[nodiscard]] std::optional<std::chrono::seconds> expiry() const { return expiry_; }
  [[nodiscard]] std::string_view contentType() const { return view(contentType_); }
  [[nodiscard]] std::string_view responseTopic() const { return view(responseTopic_); }
  [[nodiscard]] std::string_view correlation() const {
    return {static_cast<const char*>(correlation_), correlationSize_};
  }

 private:
  static std::string_view view(const char* text) {
    return text != nullptr ? std::string_view(text) : std::string_view();
  }

  std::optional<std::chrono::seconds> expiry_;
  char* contentType_ = nullptr;
  char* responseTopic_ = nullptr;
  void* correlation_ = nullptr;
  std::uint16_t correlationSize_ = 0;
};

}  // namespace modelgate
