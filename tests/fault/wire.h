#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The bytes of the protocol written and read by hand, so that what the library
/// sends and takes is checked against the description (platform/PROTOCOL.md) and
/// not against itself.
namespace fault::wire {

/// Whose least significant byte comes first, as the "order" byte of a frame has it.
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

/// A whole frame. `length` is what the header claims, the payload's size where not
/// given.
std::string frame(std::uint8_t kind, std::uint16_t code, std::uint32_t sequence,
                  std::string_view payload, std::optional<std::uint32_t> length = std::nullopt,
                  Order order = Order::leastFirst);

/// The header of a frame; `bytes` are its 16.
Frame parseHeader(std::string_view bytes);

/// Depth and ids of a part below the root.
std::string chain(std::initializer_list<std::uint16_t> ids, Order order = Order::leastFirst);

/// The hello of a client whose private pipes `token` (16 bytes) names.
std::string hello(std::string_view token, Order order = Order::leastFirst,
                  std::uint32_t behaviour = 1);
inline constexpr std::size_t helloSize = 36;

/// "/tmp/.krv-<token in hex>" and `ending`.
std::string privatePath(std::string_view token, std::string_view ending);

/// 16 bytes that nobody else has.
std::string newToken();

}  // namespace fault::wire
