#include "evtsrv/source/hello.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace EvtSrv::internal {
namespace {

using HelloBytes = std::vector<std::uint8_t>;

HelloBytes helloOf(std::uint8_t id) {
  Hello hello;
  hello.token.fill(id);
  hello.behaviour = id;
  const auto bytes = encodeHello(hello);
  return {bytes.begin(), bytes.end()};
}

HelloBytes operator+(HelloBytes left, const HelloBytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

/// The ids of the hellos that the scanner finds in `bytes`, fed in two parts.
std::string scan(const HelloBytes& bytes, std::size_t cut) {
  HelloScanner scanner;
  std::string ids;
  const std::span<const std::uint8_t> all(bytes);
  for (const auto part : {all.first(cut), all.subspan(cut)}) {
    scanner.feed(part);
    while (const auto hello = scanner.next()) {
      EXPECT_EQ(hello->behaviour, hello->token[15]);
      ids.push_back(static_cast<char>(hello->token[0]));
    }
  }
  return ids;
}

TEST(Hello, HasTheStandardChecksum) {
  const std::string_view text = "123456789";
  EXPECT_EQ(crc32({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}), 0xCBF43926U);
}

TEST(Hello, IsFoundAmongGarbageThatIsCutAnywhere) {
  const HelloBytes magicPrefix{0x9E, 'K', 'R', 'V', 'h'};
  const HelloBytes magic{0x9E, 'K', 'R', 'V', 'h', 'e', 'l', 'o'};
  const HelloBytes noise{0, 1, 2, 0xFF, 'K', 'R', 'V'};
  HelloBytes badChecksum = helloOf('X');
  badChecksum[20] ^= 1U;
  HelloBytes badVersion = helloOf('X');
  badVersion[9] = 2;
  const HelloBytes truncated(badChecksum.begin(), badChecksum.begin() + 20);
  struct Case {
    HelloBytes bytes;
    std::string ids;
  };
  const std::vector<Case> cases{
      {helloOf('a'), "a"},
      {helloOf('a') + helloOf('b'), "ab"},
      {noise + helloOf('a'), "a"},
      {helloOf('a') + noise + helloOf('b') + noise, "ab"},
      {magicPrefix + helloOf('a'), "a"},
      {magic + helloOf('a'), "a"},
      {magicPrefix + magicPrefix + magic + helloOf('a') + magicPrefix + helloOf('b'), "ab"},
      {badChecksum + helloOf('a'), "a"},
      {badVersion + helloOf('a'), "a"},
      {truncated + helloOf('a'), "a"},
      {badChecksum, ""},
      {noise, ""},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    for (std::size_t cut = 0; cut <= cases[i].bytes.size(); ++cut) {
      ASSERT_EQ(scan(cases[i].bytes, cut), cases[i].ids) << "case " << i << " cut at " << cut;
    }
  }
}

TEST(Hello, IsRejectedWithAnyByteChanged) {
  const HelloBytes good = helloOf('a');
  for (std::size_t i = 0; i < good.size(); ++i) {
    HelloBytes bad = good;
    bad[i] ^= 0x40U;
    EXPECT_EQ(scan(bad + helloOf('b'), 0), "b") << i;
  }
}

TEST(Hello, IsDecodedInTheOtherByteOrder) {
  HelloBytes bytes = helloOf('a');
  bytes[8] = bytes[8] == 0 ? 1 : 0;
  std::swap(bytes[10], bytes[11]);
  std::reverse(bytes.begin() + 28, bytes.begin() + 32);
  const std::uint32_t checksum = crc32(std::span(bytes).first(32));
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t shift = bytes[8] == 1 ? 8 * (3 - i) : 8 * i;
    bytes[32 + i] = static_cast<std::uint8_t>(checksum >> shift);
  }
  EXPECT_EQ(scan(bytes, 0), "a");
}

}  // namespace
}  // namespace EvtSrv::internal
