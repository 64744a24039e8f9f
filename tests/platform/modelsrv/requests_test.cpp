#include "modelsrv/source/requests.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/platform/modelsrv/foreign_bytes.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::nativeOrder;
using EvtSrv::internal::PayloadReader;
using modelsrv_tests::ForeignBytes;
using modelsrv_tests::foreignOrder;

using Bytes = std::vector<std::uint8_t>;

const Request examples[] = {
    {Operation::childIds, {}, ModelPartIndex_All, false, {}},
    {Operation::childNames, {1, 2, 65533}, ModelPartIndex_All, false, {}},
    {Operation::elementSum, {7}, ModelPartIndex_All, false, {}},
    {Operation::elementNames, {7, 7}, ModelPartIndex_All, false, {}},
    {Operation::save, {1}, 65533, false, {}},
    {Operation::load, {1, 258}, 3, true, "some\ntext"},
    {Operation::load, {}, ModelPartIndex_All, false, ""},
    {Operation::subscribe, {1}, ModelPartIndex_All, false, {}},
    {Operation::unsubscribe, {1, 4}, 9, false, {}},
    {Operation::describe, {1, 4}, ModelPartIndex_All, false, {}},
    {Operation::watch, {1, 4}, 9, false, {}, 0x12345678, watchMayBeAbsent, 1000},
    {Operation::unwatch, {}, ModelPartIndex_All, false, {}, 7},
    {Operation::readTree, {1}, ModelPartIndex_All, false, {}},
    {Operation::readTree, {1}, ModelPartIndex_All, false, {}, 0, 0, 0, true, {2, 258}},
};

bool decode(std::uint16_t operation, const Bytes& bytes, Request& request,
            ByteOrder order = nativeOrder) {
  PayloadReader reader(bytes, order);
  return decodeRequest(operation, reader, request);
}

void expectEqual(const Request& read, const Request& written) {
  EXPECT_EQ(read.operation, written.operation);
  EXPECT_EQ(read.chain, written.chain);
  EXPECT_EQ(read.index, written.index);
  EXPECT_EQ(read.flag, written.flag);
  EXPECT_EQ(read.text, written.text);
  EXPECT_EQ(read.number, written.number);
  EXPECT_EQ(read.watchFlags, written.watchFlags);
  EXPECT_EQ(read.period, written.period);
  EXPECT_EQ(read.continues, written.continues);
  EXPECT_EQ(read.position, written.position);
}

TEST(Requests, AreDecodedAsTheyWereEncoded) {
  for (const Request& written : examples) {
    Bytes bytes;
    encodeRequest(written.view(), bytes);
    Request read;
    ASSERT_TRUE(decode(static_cast<std::uint16_t>(written.operation), bytes, read));
    expectEqual(read, written);
  }
}

TEST(Requests, AreRejectedIfTruncated) {
  for (const Request& written : examples) {
    Bytes bytes;
    encodeRequest(written.view(), bytes);
    const auto operation = static_cast<std::uint16_t>(written.operation);
    const std::size_t needed = bytes.size() - written.text.size();
    for (std::size_t size = 0; size < needed; ++size) {
      Request read;
      EXPECT_FALSE(
          decode(operation, Bytes(bytes.begin(), bytes.begin() + static_cast<int>(size)), read))
          << operation << " truncated to " << size;
    }
  }
}

TEST(Requests, AreRejectedWithBytesLeftOver) {
  for (const Request& written : examples) {
    if (written.operation == Operation::load) {
      continue;
    }
    Bytes bytes;
    encodeRequest(written.view(), bytes);
    bytes.push_back(0);
    Request read;
    EXPECT_FALSE(decode(static_cast<std::uint16_t>(written.operation), bytes, read));
  }
}

TEST(Requests, AreRejectedWithAWrongDepth) {
  for (const std::uint16_t depth : std::initializer_list<std::uint16_t>{2, 3, 4096, 4097, 65535}) {
    Bytes bytes;
    EvtSrv::internal::PayloadWriter writer(bytes);
    writer.u16(depth);
    writer.u16(1);
    Request read;
    EXPECT_FALSE(decode(1, bytes, read)) << depth;
  }
}

TEST(Requests, MayHaveAChainOfMaximumDepthAndNoDeeper) {
  for (const std::size_t depth : {ModelDepth_Max, ModelDepth_Max + 1}) {
    Bytes bytes;
    encodeRequest(Request{Operation::childIds, std::vector<ModelPartId>(depth, 1)}.view(), bytes);
    Request read;
    EXPECT_EQ(decode(1, bytes, read), depth == ModelDepth_Max);
  }
}

TEST(Requests, AreRejectedWithAnUnknownOperationOrFlag) {
  Bytes bytes;
  encodeRequest(Request{Operation::childIds, {}}.view(), bytes);
  Request read;
  for (const std::uint16_t operation : std::initializer_list<std::uint16_t>{0, 15, 255, 65535}) {
    EXPECT_FALSE(decode(operation, bytes, read));
  }
  bytes.clear();
  encodeRequest(Request{Operation::load, {}, 0, true, {}}.view(), bytes);
  EXPECT_TRUE(decode(6, bytes, read));
  bytes.back() = 2;
  EXPECT_FALSE(decode(6, bytes, read));
}

TEST(Requests, AreDecodedInTheSendersByteOrder) {
  ForeignBytes bytes;
  bytes.u16(2).u16(1).u16(258).u16(3).u8(1).text("value");
  Request read;
  ASSERT_TRUE(decode(6, bytes.get(), read, foreignOrder));
  expectEqual(read, Request{Operation::load, {1, 258}, 3, true, "value"});
}

TEST(Requests, OfRandomBytesAreDecodedOrRejected) {
  std::mt19937 random(5);
  std::size_t read = 0;
  for (int round = 0; round < 50000; ++round) {
    Bytes bytes(random() % 24);
    for (std::uint8_t& byte : bytes) {
      byte = static_cast<std::uint8_t>(random() % 4);
    }
    Request request;
    if (decode(static_cast<std::uint16_t>(random() % 15), bytes, request,
               ByteOrder(random() % 2))) {
      ++read;
      EXPECT_LE(request.chain.size() * 2 + request.text.size(), bytes.size());
    }
  }
  EXPECT_GT(read, 0U);
}

}  // namespace
