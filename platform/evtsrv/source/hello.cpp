#include "evtsrv/source/hello.h"

#include <algorithm>
#include <cstring>

#include "evtsrv/source/frame.h"

namespace EvtSrv::internal {

namespace {

// The first byte occurs only once. So garbage that ends with the beginning of a magic
// cannot hide the magic that follows it.
constexpr std::array<std::uint8_t, 8> magic{0x9E, 'K', 'R', 'V', 'h', 'e', 'l', 'o'};
constexpr std::uint8_t version = 1;

constexpr std::size_t orderAt = 8;
constexpr std::size_t versionAt = 9;
constexpr std::size_t sizeAt = 10;
constexpr std::size_t tokenAt = 12;
constexpr std::size_t behaviourAt = 28;
constexpr std::size_t checksumAt = 32;

constexpr std::array<std::uint32_t, 256> makeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) {
      value = (value & 1U) != 0 ? (value >> 1U) ^ 0xEDB88320U : value >> 1U;
    }
    table[i] = value;
  }
  return table;
}

constexpr auto crcTable = makeCrcTable();

std::optional<Hello> decodeHello(std::span<const std::uint8_t> bytes) {
  const std::uint8_t order = bytes[orderAt];
  if (order > static_cast<std::uint8_t>(ByteOrder::mostFirst) || bytes[versionAt] != version) {
    return std::nullopt;
  }
  PayloadReader reader(bytes.subspan(sizeAt), static_cast<ByteOrder>(order));
  const std::uint16_t size = reader.u16();
  Hello hello;
  std::memcpy(hello.token.data(), reader.bytes(hello.token.size()).data(), hello.token.size());
  hello.behaviour = reader.u32();
  const std::uint32_t checksum = reader.u32();
  if (size != helloSize || checksum != crc32(bytes.first(checksumAt))) {
    return std::nullopt;
  }
  return hello;
}

}  // namespace

std::array<std::uint8_t, helloSize> encodeHello(const Hello& hello) {
  std::array<std::uint8_t, helloSize> out{};
  const auto size = static_cast<std::uint16_t>(helloSize);
  std::memcpy(out.data(), magic.data(), magic.size());
  out[orderAt] = static_cast<std::uint8_t>(nativeOrder);
  out[versionAt] = version;
  std::memcpy(out.data() + sizeAt, &size, sizeof size);
  std::memcpy(out.data() + tokenAt, hello.token.data(), hello.token.size());
  std::memcpy(out.data() + behaviourAt, &hello.behaviour, sizeof hello.behaviour);
  const std::uint32_t checksum = crc32(std::span(out).first(checksumAt));
  std::memcpy(out.data() + checksumAt, &checksum, sizeof checksum);
  return out;
}

std::uint32_t crc32(std::span<const std::uint8_t> bytes) {
  std::uint32_t value = 0xFFFFFFFFU;
  for (const std::uint8_t byte : bytes) {
    value = crcTable[(value ^ byte) & 0xFFU] ^ (value >> 8U);
  }
  return ~value;
}

void HelloScanner::feed(std::span<const std::uint8_t> bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

std::optional<Hello> HelloScanner::next() {
  const std::span<const std::uint8_t> all(bytes_);
  while (position_ < all.size()) {
    const auto found =
        std::find(all.begin() + static_cast<std::ptrdiff_t>(position_), all.end(), magic.front());
    position_ = static_cast<std::size_t>(found - all.begin());
    const auto candidate = all.subspan(position_);
    const std::size_t compared = std::min(candidate.size(), magic.size());
    if (!std::equal(magic.begin(), magic.begin() + static_cast<std::ptrdiff_t>(compared),
                    candidate.begin())) {
      ++position_;
      continue;
    }
    if (candidate.size() < helloSize) {
      break;
    }
    if (const auto hello = decodeHello(candidate.first(helloSize))) {
      position_ += helloSize;
      return hello;
    }
    ++position_;
  }
  bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(position_));
  bytes_.shrink_to_fit();
  position_ = 0;
  return std::nullopt;
}

}  // namespace EvtSrv::internal
