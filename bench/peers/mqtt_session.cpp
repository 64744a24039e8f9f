#include "bench/peers/mqtt_session.h"

namespace bench::peers {

namespace {

void appendText(std::string& packet, std::string_view text) {
  packet += static_cast<char>(text.size() >> 8);
  packet += static_cast<char>(text.size() & 0xFF);
  packet += text;
}

/// A packet of that first byte; what follows is shorter than 16 KiB.
std::string packetOf(unsigned char first, std::string_view rest) {
  std::string packet(1, static_cast<char>(first));
  if (rest.size() < 128) {
    packet += static_cast<char>(rest.size());
  } else {
    packet += static_cast<char>(rest.size() % 128 + 128);
    packet += static_cast<char>(rest.size() / 128);
  }
  packet += rest;
  return packet;
}

}  // namespace

MqttSession::MqttSession(const std::string& socket, std::string_view clientId) : stream_(socket) {
  std::string rest;
  appendText(rest, "MQTT");
  rest += '\x04';                       // 3.1.1
  rest += '\x02';                       // a clean session
  rest += std::string_view("\0\0", 2);  // no keep-alive
  appendText(rest, clientId);
  stream_.send(packetOf(0x10, rest));
  stream_.skip(4);
}

std::string MqttSession::publication(std::string_view topic, std::string_view payload,
                                     bool retained, std::uint16_t packetId) {
  std::string rest;
  appendText(rest, topic);
  if (packetId != 0) {
    rest += static_cast<char>(packetId >> 8);
    rest += static_cast<char>(packetId & 0xFF);
  }
  rest += payload;
  return packetOf(static_cast<unsigned char>(0x30 | (packetId != 0 ? 2 : 0) | (retained ? 1 : 0)),
                  rest);
}

void MqttSession::awaitTaken() {
  stream_.send(std::string_view("\xC0\0", 2));
  stream_.skip(2);
}

void MqttSession::subscribe(std::string_view topic) {
  std::string rest("\0\1", 2);
  appendText(rest, topic);
  rest += '\0';
  stream_.send(packetOf(0x82, rest));
  stream_.skip(5);
}

}  // namespace bench::peers
