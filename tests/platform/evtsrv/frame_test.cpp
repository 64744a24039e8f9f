#include "evtsrv/source/frame.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "evtsrv/source/frame_reader.h"

namespace EvtSrv::internal {
namespace {

using FrameBytes = std::vector<std::uint8_t>;

FrameBytes makeFrame(FrameKind kind, std::uint16_t code, const std::string& payload) {
  FrameHeader header;
  header.kind = kind;
  header.code = code;
  header.sequence = 0x01020304;
  header.length = static_cast<std::uint32_t>(payload.size());
  FrameBytes bytes(FrameHeader::size);
  encodeHeader(header, bytes.data());
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  return bytes;
}

TEST(Frame, HasTheSameLayoutInBothByteOrders) {
  const FrameBytes leastFirst{0, 2, 0x34, 0x12, 4, 3, 2, 1, 8, 7, 6, 5, 9, 0, 0, 0};
  const FrameBytes mostFirst{1, 2, 0x12, 0x34, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 9};
  for (const FrameBytes& bytes : {leastFirst, mostFirst}) {
    const auto header = decodeHeader(bytes.data());
    ASSERT_TRUE(header.has_value());
    EXPECT_EQ(header->kind, FrameKind::reply);
    EXPECT_EQ(header->code, 0x1234);
    EXPECT_EQ(header->sequence, 0x01020304U);
    EXPECT_EQ(header->length, 9U);
  }
}

TEST(Frame, IsDecodedAsItWasEncoded) {
  for (const FrameKind kind :
       {FrameKind::request, FrameKind::reply, FrameKind::event, FrameKind::welcome}) {
    const FrameBytes bytes = makeFrame(kind, 0xFFFF, "abc");
    const auto header = decodeHeader(bytes.data());
    ASSERT_TRUE(header.has_value());
    EXPECT_EQ(header->order, nativeOrder);
    EXPECT_EQ(header->kind, kind);
    EXPECT_EQ(header->code, 0xFFFF);
    EXPECT_EQ(header->sequence, 0x01020304U);
    EXPECT_EQ(header->length, 3U);
  }
}

TEST(Frame, IsRejectedWithAnInvalidByteOrderOrKind) {
  struct Case {
    std::size_t at;
    std::uint8_t value;
  };
  for (const Case& bad : {Case{0, 2}, Case{0, 255}, Case{1, 0}, Case{1, 6}, Case{1, 255}}) {
    FrameBytes bytes = makeFrame(FrameKind::request, 1, "");
    bytes[bad.at] = bad.value;
    EXPECT_FALSE(decodeHeader(bytes.data()).has_value()) << bad.at << " " << int{bad.value};
  }
}

TEST(Frame, IsRejectedWithALengthAboveTheLimit) {
  FrameHeader header;
  FrameBytes bytes(FrameHeader::size);
  header.length = maxPayload;
  encodeHeader(header, bytes.data());
  EXPECT_TRUE(decodeHeader(bytes.data()).has_value());
  for (const std::uint32_t length : {maxPayload + 1, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    header.length = length;
    encodeHeader(header, bytes.data());
    EXPECT_FALSE(decodeHeader(bytes.data()).has_value()) << length;
  }
}

TEST(PayloadReader, ReadsWhatTheWriterWrote) {
  FrameBytes bytes;
  PayloadWriter writer(bytes);
  const std::array<std::uint16_t, 2> ids{3, 0xFFFE};
  writer.u8(7);
  writer.u16(0x1234);
  writer.u32(0xDEADBEEF);
  writer.u16s(ids);
  writer.bytes("rest");
  PayloadReader reader(bytes, nativeOrder);
  EXPECT_EQ(reader.u8(), 7);
  EXPECT_EQ(reader.u16(), 0x1234);
  EXPECT_EQ(reader.u32(), 0xDEADBEEFU);
  EXPECT_EQ(reader.u16(), 3);
  EXPECT_EQ(reader.u16(), 0xFFFE);
  EXPECT_EQ(reader.bytes(2), "re");
  EXPECT_EQ(reader.rest(), "st");
  EXPECT_EQ(reader.rest(), "");
  EXPECT_TRUE(reader.ok());
}

TEST(PayloadReader, ConvertsTheOtherByteOrder) {
  const FrameBytes bytes{0x12, 0x34, 1, 2, 3, 4};
  PayloadReader most(bytes, ByteOrder::mostFirst);
  EXPECT_EQ(most.u16(), 0x1234);
  EXPECT_EQ(most.u32(), 0x01020304U);
  PayloadReader least(bytes, ByteOrder::leastFirst);
  EXPECT_EQ(least.u16(), 0x3412);
  EXPECT_EQ(least.u32(), 0x04030201U);
}

TEST(PayloadReader, StaysNotOkAfterAReadBeyondTheEnd) {
  const FrameBytes bytes{1, 2, 3};
  PayloadReader reader(bytes, nativeOrder);
  EXPECT_EQ(reader.u32(), 0U);
  EXPECT_FALSE(reader.ok());
  EXPECT_EQ(reader.left(), 0U);
  EXPECT_EQ(reader.u8(), 0);
  PayloadReader text(bytes, nativeOrder);
  EXPECT_EQ(text.bytes(SIZE_MAX), "");
  EXPECT_FALSE(text.ok());
}

TEST(FrameReader, AssemblesFramesThatAreCutAnywhere) {
  FrameBytes stream = makeFrame(FrameKind::reply, 1, "first");
  for (const std::string& payload : {std::string(), std::string(2000, 'x'), std::string("z")}) {
    const FrameBytes more = makeFrame(FrameKind::reply, 1, payload);
    stream.insert(stream.end(), more.begin(), more.end());
  }
  for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
    FrameReader reader;
    std::vector<std::string> payloads;
    for (const auto& part : {FrameBytes(stream.begin(), stream.begin() + static_cast<long>(cut)),
                             FrameBytes(stream.begin() + static_cast<long>(cut), stream.end())}) {
      reader.feed(part);
      Frame frame;
      while (reader.next(frame) == FrameReader::Status::frame) {
        payloads.emplace_back(frame.payload.begin(), frame.payload.end());
      }
    }
    ASSERT_EQ(payloads, (std::vector<std::string>{"first", "", std::string(2000, 'x'), "z"}))
        << cut;
  }
}

TEST(FrameReader, AssemblesFramesFromSingleBytes) {
  const FrameBytes stream = makeFrame(FrameKind::event, 9, "one by one");
  FrameReader reader;
  Frame frame;
  for (std::size_t i = 0; i < stream.size(); ++i) {
    const FrameBytes one{stream[i]};
    reader.feed(one);
    ASSERT_EQ(reader.next(frame),
              i + 1 < stream.size() ? FrameReader::Status::incomplete : FrameReader::Status::frame);
  }
  EXPECT_EQ(std::string(frame.payload.begin(), frame.payload.end()), "one by one");
}

TEST(FrameReader, BuffersTheRestOfTheFedBytes) {
  FrameBytes stream = makeFrame(FrameKind::request, 1, "a");
  const FrameBytes second = makeFrame(FrameKind::request, 2, "b");
  stream.insert(stream.end(), second.begin(), second.end());
  FrameReader reader;
  Frame frame;
  reader.feed(stream);
  ASSERT_EQ(reader.next(frame), FrameReader::Status::frame);
  reader.bufferRest();
  stream.assign(stream.size(), 0xEE);
  ASSERT_EQ(reader.next(frame), FrameReader::Status::frame);
  EXPECT_EQ(frame.header.code, 2);
  EXPECT_EQ(reader.next(frame), FrameReader::Status::incomplete);
}

TEST(FrameReader, DetectsAMalformedHeaderThatIsCutAnywhere) {
  FrameBytes stream = makeFrame(FrameKind::request, 1, "");
  stream[1] = 99;
  for (std::size_t cut = 0; cut < stream.size(); ++cut) {
    FrameReader reader;
    Frame frame;
    const FrameBytes head(stream.begin(), stream.begin() + static_cast<long>(cut));
    const FrameBytes rest(stream.begin() + static_cast<long>(cut), stream.end());
    reader.feed(head);
    EXPECT_EQ(reader.next(frame), FrameReader::Status::incomplete);
    reader.feed(rest);
    EXPECT_EQ(reader.next(frame), FrameReader::Status::malformed) << cut;
  }
}

/// A frame of 4 MiB in pieces of 64 KiB; `afterEach` is given how much has arrived.
template <typename Check>
void assembleLargeFrame(FrameReader& reader, Check afterEach) {
  constexpr std::size_t piece = std::size_t{64} * 1024;
  std::string payload(std::size_t{4} * 1024 * 1024, '\0');
  for (std::size_t i = 0; i < payload.size(); ++i) {
    payload[i] = static_cast<char>(i * 31 + i / 4096);
  }
  const FrameBytes stream = makeFrame(FrameKind::request, 1, payload);
  Frame frame;
  for (std::size_t at = 0; at < stream.size(); at += piece) {
    const auto bytes = std::span(stream).subspan(at, std::min(piece, stream.size() - at));
    reader.feed(bytes);
    const bool isLast = at + piece >= stream.size();
    ASSERT_EQ(reader.next(frame),
              isLast ? FrameReader::Status::frame : FrameReader::Status::incomplete);
    afterEach(at + bytes.size());
  }
  EXPECT_TRUE(std::equal(frame.payload.begin(), frame.payload.end(), payload.begin(), payload.end(),
                         [](std::uint8_t byte, char character) {
                           return byte == static_cast<std::uint8_t>(character);
                         }));
}

TEST(FrameReader, TakesLessThanTwiceTheMemoryOfWhatHasArrived) {
  FrameReader reader;
  assembleLargeFrame(reader,
                     [&](std::size_t arrived) { EXPECT_LE(reader.held(), 2 * arrived + 64); });
}

TEST(FrameReader, GivesTheMemoryOfALargeFrameAway) {
  FrameReader reader;
  const std::string payload(std::size_t{1024} * 1024, 'x');
  const FrameBytes stream = makeFrame(FrameKind::request, 1, payload);
  const FrameBytes second = makeFrame(FrameKind::request, 2, "y");
  FrameBytes rest(stream.begin() + 70000, stream.end());
  rest.insert(rest.end(), second.begin(), second.end());
  Frame frame;
  reader.feed(std::span(stream).first(70000));
  ASSERT_EQ(reader.next(frame), FrameReader::Status::incomplete);
  reader.feed(rest);
  ASSERT_EQ(reader.next(frame), FrameReader::Status::frame);
  const auto memory = reader.takeMemory();
  ASSERT_NE(memory, nullptr);
  EXPECT_GE(frame.payload.data(), memory.get());
  EXPECT_EQ(reader.held(), 0U);
  EXPECT_EQ(reader.takeMemory(), nullptr) << "once";

  Frame next;
  ASSERT_EQ(reader.next(next), FrameReader::Status::frame);
  EXPECT_EQ(next.header.code, 2);
  EXPECT_EQ(reader.takeMemory(), nullptr) << "it has none of its own";
  EXPECT_EQ(reader.next(next), FrameReader::Status::incomplete);
  EXPECT_EQ(std::string(frame.payload.begin(), frame.payload.end()), payload);
}

TEST(FrameReader, KeepsTheMemoryThatHasMoreThanTheFrame) {
  FrameReader reader;
  FrameBytes stream = makeFrame(FrameKind::request, 1, std::string(1000, 'x'));
  const FrameBytes second = makeFrame(FrameKind::request, 2, std::string(1000, 'y'));
  stream.insert(stream.end(), second.begin(), second.end());
  reader.feed(stream);
  reader.bufferRest();
  Frame frame;
  ASSERT_EQ(reader.next(frame), FrameReader::Status::frame);
  EXPECT_EQ(reader.takeMemory(), nullptr);
  ASSERT_EQ(reader.next(frame), FrameReader::Status::frame);
  EXPECT_EQ(reader.takeMemory(), nullptr);
  EXPECT_EQ(frame.payload[999], 'y');
}

// To copy what has arrived would keep the other clients waiting.
TEST(FrameReader, MovesALargeFrameLittleByLittle) {
  FrameReader reader;
  std::size_t before = 0;
  int growing = 0;
  assembleLargeFrame(reader, [&](std::size_t) {
    const std::size_t now = reader.held();
    growing += now > before && now - before < std::size_t{512} * 1024 ? 1 : 0;
    before = now;
  });
  EXPECT_GE(growing, 10) << "the memory of both blocks is used meanwhile";
}

}  // namespace
}  // namespace EvtSrv::internal
