#include <gtest/gtest.h>

#include "gateway/wire/cbor_reader.h"
#include "gateway/wire/cbor_writer.h"
#include "tests/gateway/wire/hex.h"

// Reading and writing of CBOR, with the examples of RFC 8949, appendix A.

namespace {

using modelgate::CborItems;
using modelgate::CborReader;
using modelgate::CborWriter;
using wire_tests::fromHex;
using wire_tests::toHex;
using Kind = CborReader::Kind;

std::string numberInHex(std::int64_t number) {
  std::string out;
  CborWriter(out).signedNumber(number);
  return toHex(out);
}

TEST(WireCbor, NumbersHaveTheirShortestForm) {
  EXPECT_EQ(numberInHex(0), "00");
  EXPECT_EQ(numberInHex(23), "17");
  EXPECT_EQ(numberInHex(24), "1818");
  EXPECT_EQ(numberInHex(1000), "1903e8");
  EXPECT_EQ(numberInHex(1000000), "1a000f4240");
  EXPECT_EQ(numberInHex(1000000000000), "1b000000e8d4a51000");
  EXPECT_EQ(numberInHex(-1), "20");
  EXPECT_EQ(numberInHex(-1000), "3903e7");
  EXPECT_EQ(numberInHex(INT64_MIN), "3b7fffffffffffffff");
}

TEST(WireCbor, HeadSizesAreThoseOfTheWriter) {
  for (const std::uint64_t number : std::initializer_list<std::uint64_t>{
           0, 23, 24, 255, 256, 65535, 65536, 0xFFFFFFFF, 0x100000000, UINT64_MAX}) {
    std::string out;
    CborWriter(out).number(number);
    EXPECT_EQ(CborWriter::headSize(number), out.size()) << number;
  }
}

TEST(WireCbor, StringsAreTextIfTheyCanBe) {
  std::string out;
  CborWriter writer(out);
  writer.string("\xC3\xBC");
  writer.string("\xFC");
  EXPECT_EQ(toHex(out), "62c3bc41fc");
}

TEST(WireCbor, ReadsWhatIsWritten) {
  std::string out;
  CborWriter writer(out);
  writer.map(1);
  writer.text("key");
  writer.array(4);
  writer.signedNumber(-5);
  writer.number(UINT64_MAX);
  writer.bytes("b");
  writer.boolean(true);
  CborReader reader(out);
  CborItems pairs;
  CborItems items;
  std::string_view text;
  std::int64_t negative = 0;
  std::uint64_t number = 0;
  bool value = false;
  EXPECT_TRUE(reader.enterMap(pairs) && reader.next(pairs) && reader.readText(text, 3));
  EXPECT_EQ(text, "key");
  EXPECT_TRUE(reader.enterArray(items) && reader.next(items) && reader.readSigned(negative, 5));
  EXPECT_EQ(negative, -5);
  EXPECT_TRUE(reader.next(items) && reader.readUnsigned(number, UINT64_MAX));
  EXPECT_EQ(number, UINT64_MAX);
  EXPECT_TRUE(reader.next(items) && reader.readString(text, 1));
  EXPECT_EQ(text, "b");
  EXPECT_TRUE(reader.next(items) && reader.readBoolean(value) && value);
  EXPECT_FALSE(reader.next(items) || reader.next(pairs));
  EXPECT_TRUE(reader.isAtEnd());
}

/// Whether skipping reads all of `hex` as one item.
bool isOneItem(std::string_view hex) {
  const std::string bytes = fromHex(hex);
  CborReader reader(bytes);
  return reader.skip() && reader.isAtEnd();
}

TEST(WireCbor, SkipsEveryWellFormedItem) {
  for (const char* const item : {"1bffffffffffffffff",
                                 "3bffffffffffffffff",
                                 "f90000",
                                 "fa47c35000",
                                 "fb3ff199999999999a",
                                 "f4",
                                 "f6",
                                 "f7",
                                 "c074323031332d30332d32315432303a30343a30305a",
                                 "d9d9f7a0",
                                 "4401020304",
                                 "6449455446",
                                 "80",
                                 "83010203",
                                 "8301820203820405",
                                 "a201020304",
                                 "a26161016162820203",
                                 "9fff",
                                 "9f018202039f0405ffff",
                                 "bf61610161629f0203ffff",
                                 "c1c2c301"}) {
    EXPECT_TRUE(isOneItem(item)) << item;
    EXPECT_TRUE(wire_tests::refusesEachCut(fromHex(item), [](const std::string& bytes) {
      return isOneItem(toHex(bytes));
    })) << item;
  }
}

TEST(WireCbor, RefusesWhatIsMalformed) {
  for (const char* const item : {"",
                                 "ff",
                                 "1c",
                                 "3d",
                                 "5e",
                                 "7f657374726561646d696e67ff",
                                 "5f42010243030405ff",
                                 "81ff",
                                 "a161",
                                 "a1ff",
                                 "9f",
                                 "bf",
                                 "c1",
                                 "9fc1ff",
                                 "c1ff",
                                 "f820",
                                 "e0",
                                 "8200",
                                 "9bffffffffffffffff",
                                 "bbffffffffffffffff",
                                 "5bffffffffffffffff",
                                 "7bffffffffffffffff",
                                 "7f",
                                 "0000"}) {
    EXPECT_FALSE(isOneItem(item)) << item;
  }
}

TEST(WireCbor, SkipsNestingUpToItsLimit) {
  std::string nested(CborReader::maxNesting, '\x81');
  EXPECT_TRUE(isOneItem(toHex(nested + '\0')));
  EXPECT_FALSE(isOneItem(toHex(nested + "\x81" + '\0')));
  EXPECT_FALSE(isOneItem(toHex(std::string(1'000'000, '\x81'))));
  EXPECT_FALSE(isOneItem(toHex(std::string(1'000'000, '\x9F'))));
  EXPECT_FALSE(isOneItem(toHex(std::string(1'000'000, '\xC1'))));
}

TEST(WireCbor, EachReadChecksItsKindAndItsLimit) {
  std::uint64_t number = 7;
  std::int64_t negative = 7;
  std::string_view text = "unchanged";
  CborItems items;
  bool value = false;
  EXPECT_FALSE(CborReader(fromHex("05")).readUnsigned(number, 4));
  EXPECT_FALSE(CborReader(fromHex("20")).readUnsigned(number, 4));
  EXPECT_FALSE(CborReader(fromHex("05")).readSigned(negative, 4));
  EXPECT_FALSE(CborReader(fromHex("24")).readSigned(negative, 4));
  EXPECT_FALSE(CborReader(fromHex("3bffffffffffffffff")).readSigned(negative, INT64_MAX));
  EXPECT_FALSE(CborReader(fromHex("f6")).readBoolean(value));
  EXPECT_FALSE(CborReader(fromHex("626161")).readText(text, 1));
  EXPECT_FALSE(CborReader(fromHex("61ff")).readText(text, 1));
  EXPECT_FALSE(CborReader(fromHex("4161")).readText(text, 1));
  EXPECT_FALSE(CborReader(fromHex("61ff")).readString(text, 1));
  EXPECT_FALSE(CborReader(fromHex("426161")).readString(text, 1));
  EXPECT_FALSE(CborReader(fromHex("6161")).readBytes(text, 1));
  EXPECT_FALSE(CborReader(fromHex("a0")).enterArray(items));
  EXPECT_FALSE(CborReader(fromHex("80")).enterMap(items));
  EXPECT_FALSE(CborReader("").enterMap(items));
  EXPECT_EQ(number, 7U);
  EXPECT_EQ(negative, 7);
  EXPECT_EQ(text, "unchanged");
}

TEST(WireCbor, NothingIsReadAfterAnError) {
  const std::string bytes = fromHex("f50101");
  CborReader reader(bytes);
  std::uint64_t number = 0;
  CborItems items{5, false};
  EXPECT_FALSE(reader.readUnsigned(number, 9));
  EXPECT_TRUE(reader.hasFailed());
  EXPECT_FALSE(reader.readUnsigned(number, 9) || reader.skip() || reader.next(items) ||
               reader.isAtEnd());
  EXPECT_EQ(reader.kind(), Kind::none);
}

}  // namespace
