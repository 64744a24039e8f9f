#pragma once

#include <cstddef>
#include <cstdint>

namespace modelgate {

// What a decoder accepts at most. Everything that comes from the broker may be hostile.

/// The largest page of a shape or of values, in bytes.
inline constexpr std::size_t maxPage = std::size_t{60} * 1024;
/// The most pages of one server. Together they may have 60 MiB.
inline constexpr std::size_t maxPages = 1024;
/// The most parts of one server.
inline constexpr std::size_t maxParts = 1'000'000;
/// The most names of elements and choices of one server, in all: each takes a byte in a page, but
/// more in memory.
inline constexpr std::size_t maxShapeTexts = 1'000'000;
/// The largest payload of any message, in bytes. A value that does not fit is
/// `ModelRes_TooLarge` on the other side.
inline constexpr std::size_t maxPayload = std::size_t{4} * 1024 * 1024;
/// The most servers of one device.
inline constexpr std::size_t maxServers = 256;
/// What a device's state may say of its times, in milliseconds.
inline constexpr std::uint64_t minHeartbeat = 100;
inline constexpr std::uint64_t maxHeartbeat = 3'600'000;
inline constexpr std::uint64_t maxInterval = 10'000;
/// The largest integer that every JSON reader keeps exact.
inline constexpr std::uint64_t maxExact = (std::uint64_t{1} << 53) - 1;

}  // namespace modelgate
