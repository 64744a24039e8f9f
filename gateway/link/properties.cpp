#include "gateway/link/properties.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

namespace modelgate {

namespace {

void requireMemory(int result) {
  if (result == MOSQ_ERR_NOMEM) {
    throw std::bad_alloc();
  }
}

}  // namespace

PropertyList::~PropertyList() {
  mosquitto_property_free_all(&list_);
}

PropertyList::PropertyList(PropertyList&& other) noexcept
    : list_(std::exchange(other.list_, nullptr)) {}

void PropertyList::addNumber(int identifier, long long value) {
  const auto number = static_cast<std::uint32_t>(std::clamp<long long>(value, 0, UINT32_MAX));
  requireMemory(mosquitto_property_add_int32(&list_, identifier, number));
}

void PropertyList::addText(int identifier, const std::string& value) {
  requireMemory(mosquitto_property_add_string(&list_, identifier, value.c_str()));
}

void PropertyList::addBytes(int identifier, const std::string& value) {
  if (value.size() <= UINT16_MAX) {
    requireMemory(mosquitto_property_add_binary(&list_, identifier, value.data(),
                                                static_cast<std::uint16_t>(value.size())));
  }
}

PropertyList publicationProperties(const Publication& publication) {
  PropertyList properties;
  if (publication.expiry) {
    properties.addNumber(MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, publication.expiry->count());
  }
  if (!publication.contentType.empty()) {
    properties.addText(MQTT_PROP_CONTENT_TYPE, publication.contentType);
  }
  if (!publication.responseTopic.empty()) {
    properties.addText(MQTT_PROP_RESPONSE_TOPIC, publication.responseTopic);
  }
  if (!publication.correlation.empty()) {
    properties.addBytes(MQTT_PROP_CORRELATION_DATA, publication.correlation);
  }
  return properties;
}

MessageProperties::MessageProperties(const mqtt5__property* properties) {
  if (properties == nullptr) {
    return;
  }
  std::uint32_t seconds = 0;
  if (mosquitto_property_read_int32(properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &seconds,
                                    false) != nullptr) {
    expiry_ = std::chrono::seconds(seconds);
  }
  mosquitto_property_read_string(properties, MQTT_PROP_CONTENT_TYPE, &contentType_, false);
  mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &responseTopic_, false);
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation_,
                                 &correlationSize_, false);
}

MessageProperties::~MessageProperties() {
  std::free(contentType_);
  std::free(responseTopic_);
  std::free(correlation_);
}

}  // namespace modelgate
