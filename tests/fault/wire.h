#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// An independent codec of the protocol, so that the library is checked against the
/// description (platform/PROTOCOL.md) and not against itself.
namespace fault::wire {

/// The byte order, with the values of the flag in a frame.
enum class Order : std::uint8_t { leastFirst = 0, mostFirst = 1 };

enum Kind : std::uint8_t { request = 1, reply = 2, event = 3, welcome = 4 };

enum Operation : std::uint16_t {
  childIds = 1,
  childNames = 2,
  elementSum = 3,
  elementNames = 4,
  save = 5,
  load = 6,
  subscribe = 7,
  unsubscribe = 8,
  prefetch = 9,
  describe = 10,
  renew = 11,
  watch = 12,
  unwatch = 13,
  readTree = 14,
};

inline constexpr std::size_t headerSize = 16;
inline constexpr std::uint32_t maxPayload = 16U * 1024 * 1024 + 64U * 1024;
inline constexpr std::uint16_t wholeValue = 0xFFFE;
/// The result of an operation that the server does not know.
inline constexpr std::uint16_t badRequest = 14;

std::string u16(std::uint16_t value, Order order = Order::leastFirst);
std::string u32(std::uint32_t value, Order order = Order::leastFirst);
std::uint32_t readNumber(std::string_view bytes, Order order);

struct Frame {
  Order order = Order::leastFirst;
  std::uint8_t kind = request;
  std::uint16_t code = 0;
  std::uint32_t sequence = 0;
  std::uint32_t length = 0;
  std::string payload;
};

/// A frame. `length` is the length in the header; by default the payload's size.
std::string frame(std::uint8_t kind, std::uint16_t code, std::uint32_t sequence,
                  std::string_view payload, std::optional<std::uint32_t> length = std::nullopt,
                  Order order = Order::leastFirst);

/// The header of a frame from its 16 bytes.
Frame parseHeader(std::string_view bytes);

/// A chain: depth and ids of a part below the root.
std::string chain(std::initializer_list<std::uint16_t> ids, Order order = Order::leastFirst);

/// The hello of a client with that `token` (16 bytes).
std::string hello(std::string_view token, Order order = Order::leastFirst,
                  std::uint32_t behaviour = 1);
inline constexpr std::size_t helloSize = 36;

/// "/tmp/.krv-<token in hexadecimal>" and `suffix`.
std::string privatePipePath(std::string_view token, std::string_view suffix);

/// 16 random bytes.
std::string newToken();

}  // namespace fault::wire
