#include "modelsrv/source/replies.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "modelsrv/model_node.h"
#include "modelsrv/source/port_result.h"
#include "modelsrv/source/updates.h"
#include "tests/platform/modelsrv/foreign_bytes.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using namespace std::string_literals;
using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::nativeOrder;
using EvtSrv::internal::PayloadReader;
using modelsrv_tests::ForeignBytes;
using modelsrv_tests::foreignOrder;

using Bytes = std::vector<std::uint8_t>;
using Names = std::vector<std::string>;
using Ids = std::vector<ModelPartId>;

PayloadReader reader(const Bytes& bytes, ByteOrder order = nativeOrder) {
  return PayloadReader(bytes, order);
}

Bytes namesReply(const Names& names) {
  Bytes bytes;
  CountedReply reply(bytes);
  for (const std::string& name : names) {
    reply.addName(name);
  }
  EXPECT_TRUE(reply.fits());
  return bytes;
}

TEST(Replies, CarryIds) {
  for (const Ids& written : {Ids{}, Ids{0}, Ids{3, 1, 65533}, Ids(65534, 7)}) {
    Bytes bytes;
    CountedReply reply(bytes);
    for (const ModelPartId id : written) {
      reply.addId(id);
    }
    Ids read{99};
    ASSERT_TRUE(decodeIds(reader(bytes), read));
    EXPECT_EQ(read, written);
  }
}

TEST(Replies, CarryNames) {
  for (const Names& written : {Names{}, Names{""}, Names{"a", "", "a", "two words", "\0\n\xFF"s},
                               Names{std::string(ModelName_Max, 'n')}, Names(65534, "x")}) {
    Names read{"before"};
    ASSERT_TRUE(decodeNames(reader(namesReply(written)), read));
    EXPECT_EQ(read, written);
  }
}

TEST(Replies, AreAppendedToThePayload) {
  Bytes bytes{1, 2, 3};
  CountedReply reply(bytes);
  reply.addName("ab");
  Names read;
  ASSERT_TRUE(decodeNames(reader(Bytes(bytes.begin() + 3, bytes.end())), read));
  EXPECT_EQ(read, Names{"ab"});
}

TEST(Replies, ReportThatNamesDoNotFitIntoAFrame) {
  Bytes bytes;
  CountedReply reply(bytes);
  const std::string name(ModelName_Max, 'n');
  std::size_t added = 0;
  while (reply.fits() && added < 1000) {
    reply.addName(name);
    ++added;
  }
  EXPECT_FALSE(reply.fits());
  EXPECT_LE(bytes.size(), EvtSrv::internal::maxPayload);
}

TEST(Replies, AreRejectedIfTruncatedOrWithBytesLeftOver) {
  const Names names{"first", "", "third"};
  Bytes bytes = namesReply(names);
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    const Bytes cut(bytes.begin(), bytes.begin() + static_cast<int>(size));
    Names read{"kept"};
    EXPECT_FALSE(decodeNames(reader(cut), read)) << size;
    EXPECT_EQ(read, Names{"kept"});
  }
  bytes.push_back(0);
  Names read{"kept"};
  EXPECT_FALSE(decodeNames(reader(bytes), read));

  for (const Bytes& wrong : {Bytes{}, Bytes{1}, Bytes{1, 0}, Bytes{1, 0, 5}, Bytes{1, 0, 5, 0, 0},
                             Bytes{0, 0, 0}, Bytes{255, 255, 1, 1}}) {
    Ids ids{5};
    EXPECT_FALSE(decodeIds(reader(wrong, ByteOrder::leastFirst), ids));
    EXPECT_EQ(ids, Ids{5});
  }
  for (const Bytes& wrong : {Bytes{}, Bytes{1}, Bytes{1, 0, 0}}) {
    std::uint16_t sum = 5;
    EXPECT_FALSE(decodeSum(reader(wrong), sum));
    EXPECT_EQ(sum, 5);
  }
}

TEST(Replies, AreRejectedWithAWrongCountOrLength) {
  for (const Bytes& wrong : {Bytes{255, 255}, Bytes{2, 0, 1, 0, 'a'}, Bytes{1, 0, 255, 255, 'a'},
                             Bytes{3, 0, 0, 0, 0, 0}, Bytes{0, 0, 1, 0, 'a'}}) {
    Names read{"kept"};
    EXPECT_FALSE(decodeNames(reader(wrong, ByteOrder::leastFirst), read));
    EXPECT_EQ(read, Names{"kept"});
  }
}

TEST(Replies, AreDecodedInTheSendersByteOrder) {
  ForeignBytes ids;
  ids.u16(2).u16(258).u16(7);
  Ids readIds;
  ASSERT_TRUE(decodeIds(reader(ids.get(), foreignOrder), readIds));
  EXPECT_EQ(readIds, (Ids{258, 7}));
  ForeignBytes names;
  names.u16(1).u16(3).text("abc");
  Names readNames;
  ASSERT_TRUE(decodeNames(reader(names.get(), foreignOrder), readNames));
  EXPECT_EQ(readNames, Names{"abc"});
  ForeignBytes sum;
  sum.u16(258);
  std::uint16_t readSum = 0;
  ASSERT_TRUE(decodeSum(reader(sum.get(), foreignOrder), readSum));
  EXPECT_EQ(readSum, 258);
}

TEST(Replies, HaveOnlyResultsThatAServerSends) {
  EXPECT_EQ(decodeResult(0), ModelRes_Success);
  EXPECT_EQ(decodeResult(9), ModelRes_Vetoed);
  EXPECT_EQ(decodeResult(16), ModelRes_BadArgument);
  EXPECT_EQ(decodeResult(17), ModelRes_Unreachable);
  EXPECT_EQ(decodeResult(18), ModelRes_Denied);
  for (const std::uint16_t code :
       std::initializer_list<std::uint16_t>{19, 20, 63, 64, 65, 74, 1000, 65535}) {
    EXPECT_EQ(decodeResult(code), ModelRes_Protocol) << code;
  }
}

TEST(Replies, OfStoresMaySayThatTheOutcomeIsUnknown) {
  EXPECT_EQ(decodeStoreResult(19), ModelRes_OutcomeUnknown);
  EXPECT_EQ(decodeStoreResult(9), ModelRes_Vetoed);
  EXPECT_EQ(decodeStoreResult(20), ModelRes_Protocol);
  EXPECT_EQ(decodeStoreResult(74), ModelRes_Protocol);
}

TEST(Replies, HaveACodeForEachResult) {
  EXPECT_EQ(encodeResult(ModelRes_Success), 0);
  EXPECT_EQ(encodeResult(ModelRes_Denied), 18);
  EXPECT_EQ(encodeResult(ModelRes_OutcomeUnknown), 19);
  for (const ModelRes result : {ModelRes_NotConnected, ModelRes_Timeout, ModelRes_NotSupported}) {
    EXPECT_EQ(encodeResult(result), ModelRes_Unreachable) << result;
  }
}

TEST(PortResults, HaveModelResults) {
  using namespace EvtSrv;
  const struct {
    EvtRes port;
    ModelRes model;
  } cases[] = {
      {EvtRes_Success, ModelRes_Success},
      {EvtRes_Timeout, ModelRes_Timeout},
      {EvtRes_NoServer, ModelRes_NotConnected},
      {EvtRes_NameInUse, ModelRes_NameInUse},
      {EvtRes_BadName, ModelRes_BadName},
      {EvtRes_NotPermitted, ModelRes_NotPermitted},
      {EvtRes_Refused, ModelRes_Refused},
      {EvtRes_Closed, ModelRes_NotConnected},
      {EvtRes_Stalled, ModelRes_Timeout},
      {EvtRes_Protocol, ModelRes_Protocol},
      {EvtRes_TooLarge, ModelRes_TooLarge},
      {EvtRes_NoDescriptors, ModelRes_NoDescriptors},
      {EvtRes_SystemError, ModelRes_SystemError},
      {EvtRes_Busy, ModelRes_Busy},
      {EvtRes_NoSpace, ModelRes_NoSpace},
      {EvtRes_NotWritable, ModelRes_NotWritable},
      {static_cast<EvtRes>(999), ModelRes_SystemError},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(fromPort(c.port), c.model) << c.port;
  }
}

TEST(ModelResults, AreDescribed) {
  for (const unsigned number : {0U, 1U, 16U, 64U, 73U, 74U, 75U, 76U}) {
    EXPECT_STRNE(describe(static_cast<ModelRes>(number)), "unknown result");
  }
  EXPECT_STREQ(describe(static_cast<ModelRes>(40)), "unknown result");
}

TEST(Updates, HaveTheChainFromTheRootDown) {
  ModelNode top(9);
  ModelNode middle(258);
  ModelPart part(4);
  ASSERT_EQ(top.add(&middle), ModelRes_Success);
  ASSERT_EQ(middle.add(&part), ModelRes_Success);
  Bytes bytes{77};
  encodeUpdate(part, 3, bytes);
  EXPECT_EQ(bytes[0], 77);
  bytes.erase(bytes.begin());
  Update update;
  ASSERT_TRUE(decodeUpdate(reader(bytes), update));
  EXPECT_EQ(update.chain, (Ids{258, 4}));
  EXPECT_EQ(update.index, 3);

  for (std::size_t size = 0; size < bytes.size(); ++size) {
    Update kept{{5}, 5};
    EXPECT_FALSE(
        decodeUpdate(reader(Bytes(bytes.begin(), bytes.begin() + static_cast<int>(size))), kept));
    EXPECT_EQ(kept.chain, Ids{5});
  }
  bytes.push_back(0);
  EXPECT_FALSE(decodeUpdate(reader(bytes), update));
}

TEST(Updates, OfTheRootHaveAnEmptyChain) {
  ModelNode top(9);
  Bytes bytes;
  encodeUpdate(top, ModelPartIndex_All, bytes);
  Update update{{5}, 5};
  ASSERT_TRUE(decodeUpdate(reader(bytes), update));
  EXPECT_TRUE(update.chain.empty());
  EXPECT_EQ(update.index, ModelPartIndex_All);
}

TEST(Updates, AreRejectedWithoutAnEndWithinTheDepthLimit) {
  Bytes bytes;
  EvtSrv::internal::PayloadWriter writer(bytes);
  for (std::size_t i = 0; i <= ModelDepth_Max; ++i) {
    writer.u16(1);
  }
  writer.u16(ModelPartIndex_Void);
  writer.u16(0);
  Update update;
  EXPECT_FALSE(decodeUpdate(reader(bytes), update));
}

TEST(UpdateHolder, BeginsWithTheByteOrder) {
  ForeignBytes foreign;
  foreign.u16(258).u16(ModelPartIndex_Void).u16(3);
  Bytes native;
  EvtSrv::internal::PayloadWriter writer(native);
  writer.u16(258);
  writer.u16(ModelPartIndex_Void);
  writer.u16(3);
  const struct {
    const Bytes& bytes;
    ByteOrder order;
  } cases[] = {{foreign.get(), foreignOrder}, {native, nativeOrder}};
  for (const auto& c : cases) {
    EvtSrv::MemoryHolder holder = makeHolder(c.bytes, c.order);
    EXPECT_EQ(holder.position(), 1U);
    EXPECT_EQ(holder.size(), 7U);
    EXPECT_EQ(holder.bytes()[0] == 1, c.order == ByteOrder::mostFirst);
    const std::size_t offset = holder.getCurrentOffset(2);
    if (holder.bytes()[0] == 1) {
      EXPECT_EQ(holder.bytes()[offset] * 256 + holder.bytes()[offset + 1], 258);
    }
    Update update;
    ASSERT_TRUE(readUpdate(holder, update)) << "whatever the position is";
    EXPECT_EQ(update.chain, Ids{258});
    EXPECT_EQ(update.index, 3);
  }
  Update update;
  EXPECT_FALSE(readUpdate(EvtSrv::MemoryHolder(), update));
  EXPECT_FALSE(readUpdate(EvtSrv::MemoryHolder({0}), update));
}

}  // namespace
