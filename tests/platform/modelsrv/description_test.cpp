#include "modelsrv/source/description.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "modelsrv/part_description.h"
#include "modelsrv/source/line_text.h"
#include "modelsrv/source/replies.h"
#include "tests/platform/modelsrv/foreign_bytes.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::nativeOrder;
using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::PayloadWriter;

using PayloadBytes = std::vector<std::uint8_t>;

PartDescription gainsDescription() {
  PartDescription description;
  description.type = "double";
  description.access = ModelPartStatus_Protected;
  description.subscribable = false;
  description.elements = 2;
  description.elementNames = {"p", "i"};
  description.attributes = {"1/s", "-1.5", "10", "gains of the controller", {"0", "1", "2.5"}};
  return description;
}

PayloadBytes encoded(const PartDescription& description) {
  PayloadBytes bytes;
  EXPECT_TRUE(encodeDescription(description, bytes));
  return bytes;
}

bool decode(const PayloadBytes& bytes, PartDescription& description,
            ByteOrder order = nativeOrder) {
  return decodeDescription(PayloadReader(bytes, order), description);
}

TEST(Descriptions, AreDecodedAsTheyWereEncoded) {
  for (const PartDescription& written : {PartDescription{}, gainsDescription()}) {
    PartDescription read;
    ASSERT_TRUE(decode(encoded(written), read));
    EXPECT_EQ(read, written);
  }
}

TEST(Descriptions, HaveTheDocumentedLayout) {
  PartDescription description;
  description.type = "int8";
  description.access = ModelPartStatus_ReadOnly;
  description.elements = 1;
  description.elementNames = {"ab"};
  description.attributes = {"s", "", "9", "", {"x"}};
  PayloadBytes expected;
  PayloadWriter writer(expected);
  writer.u16(4);
  writer.bytes("int8");
  writer.u16(2);  // read-only
  writer.u8(1);   // accepts subscriptions
  writer.u16(1);  // elements
  writer.u16(1);  // their names
  writer.u16(2);
  writer.bytes("ab");
  writer.u16(3);  // attributes
  for (const auto& [key, text] :
       std::initializer_list<std::pair<std::uint16_t, const char*>>{{1, "s"}, {3, "9"}, {5, "x"}}) {
    writer.u16(key);
    writer.u16(1);
    writer.bytes(text);
  }
  EXPECT_EQ(encoded(description), expected);
}

TEST(Descriptions, AreRejectedIfTruncatedOrWithBytesLeftOver) {
  PayloadBytes bytes = encoded(gainsDescription());
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    PartDescription read;
    EXPECT_FALSE(decode(PayloadBytes(bytes.begin(), bytes.begin() + static_cast<int>(size)), read));
    EXPECT_EQ(read, PartDescription{}) << size;
  }
  bytes.push_back(0);
  PartDescription read;
  EXPECT_FALSE(decode(bytes, read));
}

TEST(Descriptions, AreRejectedIfTheirElementNamesAreNotOneForEachElement) {
  PartDescription description = gainsDescription();
  for (const unsigned elements : {0U, 1U, 3U}) {
    description.elements = elements;
    PartDescription read;
    EXPECT_FALSE(decode(encoded(description), read)) << elements;
    EXPECT_EQ(read, PartDescription{});
  }
}

TEST(Descriptions, AreDecodedInTheSendersByteOrderWithoutWhatIsUnknown) {
  modelsrv_tests::ForeignBytes bytes;
  bytes.u16(5).text("int32").u16(3).u8(1).u16(0).u16(0);
  bytes.u16(3).u16(99).u16(4).text("next").u16(1).u16(1).text("V").u16(0).u16(0);
  PartDescription read;
  ASSERT_TRUE(decode(bytes.get(), read, modelsrv_tests::foreignOrder));
  EXPECT_EQ(read.type, "int32");
  EXPECT_EQ(read.access, ModelPartStatus_Protected);
  EXPECT_EQ(read.attributes, (PartAttributes{"V", "", "", "", {}}));
}

TEST(Descriptions, AreCleanedOfWhatNoServerShouldSend) {
  PartDescription hostile;
  hostile.type = "te\nxt";
  hostile.attributes.unit = "\x1b[2J";
  hostile.attributes.text = "\xff";
  hostile.attributes.text += std::string(60000, 'x');
  hostile.attributes.choices.assign(2000, "c\x07");
  PartDescription read;
  ASSERT_TRUE(decode(encoded(hostile), read));
  EXPECT_EQ(read.type, "te?xt");
  EXPECT_EQ(read.attributes.unit, "?[2J");
  EXPECT_EQ(read.attributes.text, "?" + std::string(ModelAttributeText_Max - 1, 'x'));
  EXPECT_EQ(read.attributes.choices, std::vector<std::string>(ModelChoices_Max, "c?"));
}

TEST(Descriptions, ThatDoNotFitIntoAFrameAreNotSent) {
  PartDescription large;
  large.elements = ModelPartElements_Max;
  large.elementNames.assign(large.elements, std::string(300, 'n'));
  PayloadBytes bytes;
  EXPECT_FALSE(encodeDescription(large, bytes));
}

TEST(Descriptions, OfRandomBytesAreDecodedOrRejected) {
  std::mt19937 random(3);
  for (int round = 0; round < 50000; ++round) {
    PayloadBytes bytes(random() % 40);
    for (std::uint8_t& byte : bytes) {
      byte = static_cast<std::uint8_t>(random() % 3);
    }
    PartDescription read;
    if (decode(bytes, read, ByteOrder(random() % 2))) {
      EXPECT_TRUE(hasValidTexts(read.attributes));
      EXPECT_TRUE(read.elementNames.empty() || read.elementNames.size() == read.elements);
    }
  }
}

TEST(LineText, IsUtf8WithoutControlCharacters) {
  for (const char* line : {"", "plain", "20 °C", "€", "𝄞", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(isLine(line)) << line;
    EXPECT_EQ(toLine(line, 100), line);
  }
  const struct {
    std::string text;
    std::string line;
  } cases[] = {{"a\nb", "a?b"},
               {std::string("\0x", 2), "?x"},
               {"\x7f", "?"},
               {"\xc2\x9b"
                "2J",
                "?2J"},
               {"\xc0\xaf", "??"},
               {"\xe2\x82", "??"},
               {"\xed\xa0\x80", "???"},
               {"\xf4\x90\x80\x80", "????"},
               {"\xff", "?"}};
  for (const auto& c : cases) {
    EXPECT_FALSE(isLine(c.text)) << c.line;
    EXPECT_EQ(toLine(c.text, 100), c.line);
  }
  EXPECT_EQ(toLine("1°2", 2), "1");
  EXPECT_EQ(toLine("1°2", 3), "1°");
}

}  // namespace
