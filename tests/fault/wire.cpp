#include "tests/fault/wire.h"

#include <random>

namespace fault::wire {

namespace {

constexpr std::string_view magic = "\x9EKRVhelo";
constexpr char version = 1;

std::string bytesOf(std::uint32_t value, std::size_t count, Order order) {
  std::string bytes;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t position = order == Order::leastFirst ? i : count - 1 - i;
    bytes.push_back(static_cast<char>(value >> (8U * position) & 0xFFU));
  }
  return bytes;
}

/// CRC-32 of IEEE 802.3, bit by bit.
std::uint32_t checksum(std::string_view bytes) {
  std::uint32_t rest = 0xFFFFFFFFU;
  for (const char byte : bytes) {
    rest ^= static_cast<std::uint8_t>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      const bool odd = (rest & 1U) != 0;
      rest >>= 1U;
      rest ^= odd ? 0xEDB88320U : 0U;
    }
  }
  return ~rest;
}

}  // namespace

std::string u16(std::uint16_t value, Order order) {
  return bytesOf(value, 2, order);
}

std::string u32(std::uint32_t value, Order order) {
  return bytesOf(value, 4, order);
}

std::uint32_t readNumber(std::string_view bytes, Order order) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::size_t position = order == Order::leastFirst ? bytes.size() - 1 - i : i;
    value = value << 8U | static_cast<std::uint8_t>(bytes[position]);
  }
  return value;
}

std::string frame(std::uint8_t kind, std::uint16_t code, std::uint32_t sequence,
                  std::string_view payload, std::optional<std::uint32_t> length, Order order) {
  std::string bytes{static_cast<char>(order), static_cast<char>(kind)};
  bytes += u16(code, order) + u32(sequence, order) + u32(0, order);
  bytes += u32(length.value_or(static_cast<std::uint32_t>(payload.size())), order);
  return bytes.append(payload);
}

Frame parseHeader(std::string_view bytes) {
  Frame result;
  result.order = static_cast<Order>(bytes[0]);
  result.kind = static_cast<std::uint8_t>(bytes[1]);
  result.code = static_cast<std::uint16_t>(readNumber(bytes.substr(2, 2), result.order));
  result.sequence = readNumber(bytes.substr(4, 4), result.order);
  result.length = readNumber(bytes.substr(12, 4), result.order);
  return result;
}

std::string chain(std::initializer_list<std::uint16_t> ids, Order order) {
  std::string bytes = u16(static_cast<std::uint16_t>(ids.size()), order);
  for (const std::uint16_t id : ids) {
    bytes += u16(id, order);
  }
  return bytes;
}

std::string hello(std::string_view token, Order order, std::uint32_t behaviour) {
  std::string bytes(magic);
  bytes += static_cast<char>(order);
  bytes += version;
  bytes += u16(helloSize, order);
  bytes.append(token) += u32(behaviour, order);
  return bytes + u32(checksum(bytes), order);
}

std::string privatePipePath(std::string_view token, std::string_view suffix) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string path = "/tmp/.krv-";
  for (const char byte : token) {
    path += digits[static_cast<std::uint8_t>(byte) >> 4U];
    path += digits[static_cast<std::uint8_t>(byte) & 0xFU];
  }
  return path.append(suffix);
}

std::string newToken() {
  std::random_device random;
  std::string token(16, '\0');
  for (char& byte : token) {
    byte = static_cast<char>(random() & 0xFFU);
  }
  return token;
}

}  // namespace fault::wire
