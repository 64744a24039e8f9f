#include "model/update_display.h"

#include <gmock/gmock.h>

#include <bit>

namespace treescope {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct UpdateCase {
  const char* what;
  Bytes bytes;
  IdChain chain;
};

/// The chain in an event with these bytes; reading starts after the byte-order flag.
IdChain decoded(const Bytes& bytes) {
  EvtSrv::MemoryHolder holder(bytes, 1);
  return decodeUpdate(holder);
}

TEST(DecodeUpdate, ReadsTheMostSignificantByteFirstIfTheFlagIsOne) {
  const UpdateCase cases[] = {
      {"one id", {1, 0x00, 0x05, 0xff, 0xff, 0xff, 0xfe}, {5}},
      {"two ids", {1, 0x01, 0x02, 0x00, 0x0c, 0xff, 0xff}, {0x0102, 12}},
      {"the root", {1, 0xff, 0xff, 0x00, 0x05}, {}},
      {"no end mark", {1, 0x00, 0x05, 0x00, 0x06}, {5, 6}},
      {"an odd last byte", {1, 0x00, 0x05, 0x07}, {5}},
      {"half an end mark", {1, 0x00, 0x05, 0xff}, {5}},
      {"one byte", {1, 0x07}, {}},
      {"the flag alone", {1}, {}},
      {"nothing", {}, {}},
  };
  for (const UpdateCase& test : cases) {
    EXPECT_EQ(decoded(test.bytes), test.chain) << test.what;
  }
}

TEST(DecodeUpdate, ReadsThisMachinesByteOrderOtherwise) {
  const bool littleEndian = std::endian::native == std::endian::little;
  const std::uint16_t swapped = littleEndian ? 0x0500 : 0x0005;
  for (const int order : {0, 2, 255}) {
    const auto flag = static_cast<std::uint8_t>(order);
    EXPECT_EQ(decoded({flag, 0x00, 0x05, 0xff, 0xff, 0x01, 0x00}), IdChain{swapped}) << order;
  }
}

TEST(DecodeUpdate, StartsAtTheReadPosition) {
  EvtSrv::MemoryHolder holder({1, 0, 5, 0, 6, 0xff, 0xff}, 3);
  EXPECT_EQ(decodeUpdate(holder), IdChain{6});
}

TEST(DecodeUpdate, StopsAfterTheEndMark) {
  EvtSrv::MemoryHolder holder({1, 0, 5, 0xff, 0xff, 0, 2}, 1);
  EXPECT_EQ(decodeUpdate(holder), IdChain{5});
  EXPECT_EQ(holder.position(), 5U);
}

}  // namespace
}  // namespace treescope
