#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "modelsrv/value_parts.h"
#include "tests/platform/modelsrv/foreign_bytes.h"
#include "tests/platform/modelsrv/watch_session.h"

// The watches of one session in a server, byte by byte.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;
using EvtSrv::internal::PayloadWriter;
using testing::ElementsAre;

using WatchSessions = WatchSession;
using Payload = std::vector<std::uint8_t>;

/// `bytes` with zeros instead of the time at that offset.
Payload withoutTime(Payload bytes, std::size_t at) {
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), 8, std::uint8_t{0});
  return bytes;
}

TEST_F(WatchSessions, HaveTheDocumentedBytes) {
  ForeignBytes request;
  // chain, number, index, flags, period
  request.u16(2).u16(1).u16(1).u32(7).u16(ModelPartIndex_All).u8(0).u32(0);
  ASSERT_EQ(session_.handle(12, request.get(), foreignOrder), ModelRes_Success);
  EXPECT_TRUE(session_.reply.empty());
  Payload begin;
  PayloadWriter first(begin);
  first.u32(7);
  first.u16(1);
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.type, 5);
  EXPECT_EQ(session_.payload, begin);
  Payload added;
  PayloadWriter part(added);
  part.u32(7);
  part.u16(3);
  part.u16(0);
  part.u32(0);
  part.u32(0);
  part.u16(65534);
  part.u16(0);
  part.u16s(Chain{2, 1, 1});
  part.u16(5);
  part.bytes("speed42");
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.type, 5);
  EXPECT_EQ(withoutTime(session_.payload, 8), added);
  Payload complete;
  PayloadWriter last(complete);
  last.u32(7);
  last.u16(2);
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.payload, complete);
  EXPECT_FALSE(session_.take());

  ASSERT_EQ(server_.speed.setValue(-5), ModelRes_Success);
  ASSERT_EQ(server_.speed.setValue(-6), ModelRes_Success);
  Payload changed;
  PayloadWriter value(changed);
  value.u32(7);
  value.u32(2);
  value.u32(0);
  value.u32(0);
  value.u16(65534);
  value.u16(0);
  value.u16s(Chain{2, 1, 1});
  value.bytes("-6");
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.type, 4);
  EXPECT_EQ(withoutTime(session_.payload, 8), changed);

  ASSERT_EQ(server_.drive.remove(&server_.speed), ModelRes_Success);
  Payload removed;
  PayloadWriter gone(removed);
  gone.u32(7);
  gone.u16(4);
  gone.u16s(Chain{2, 1, 1});
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.type, 5);
  EXPECT_EQ(session_.payload, removed);
  const std::vector<std::uint8_t> end = ForeignBytes().u16(0).u32(7).get();
  EXPECT_EQ(session_.handle(13, end, foreignOrder), ModelRes_Success);
  EXPECT_EQ(session_.handle(13, end, foreignOrder), ModelRes_NotSubscribed);
}

TEST_F(WatchSessions, RefuseWhatIsNotDefined) {
  EXPECT_EQ(session_.watch(1, speedChain, 4), ModelRes_BadRequest);
  EXPECT_EQ(session_.watch(1, {1, 99}), ModelRes_NoSuchPart);
  EXPECT_EQ(session_.watch(1, {1, 99}, mayBeAbsent), ModelRes_Success);
  EXPECT_EQ(session_.watch(1, speedChain), ModelRes_BadArgument) << "the number is in use";
  EXPECT_EQ(session_.watch(2, {1, 65535}, mayBeAbsent), ModelRes_NoSuchPart);
  EXPECT_THAT(session_.takeAll(), ElementsAre("begin", "complete"));
}

TEST_F(WatchSessions, ReadClassesOfTheProgramInADispatchOnly) {
  int calls = 0;
  server_.speed.setGetter([&calls](std::int32_t& value) {
    value = ++calls;
    return ModelRes_Success;
  });
  ASSERT_EQ(session_.watch(1, speedChain), ModelRes_Success);
  EXPECT_THAT(session_.takeAll(),
              ElementsAre("begin", "added 1.1 speed", "value 1.1 1 x0", "complete"));
  EXPECT_EQ(calls, 1);
  server_.speed.notifyChange();
  EXPECT_FALSE(session_.take(false));
  EXPECT_TRUE(session_.isPaused());
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(session_.take(true));
  EXPECT_EQ(calls, 2);
  EXPECT_FALSE(session_.isPaused());
  server_.speed.setGetter({});
}

TEST_F(WatchSessions, BeginAgainIfTooMuchOfTheStructureIsPending) {
  ValuePart<std::int32_t> first(9, "first", 42);
  ASSERT_EQ(server_.empty.add(&first), ModelRes_Success);
  ASSERT_EQ(session_.watch(1, {2}, subtree), ModelRes_Success);
  session_.takeAll();
  for (int i = 0; i < 2000; ++i) {
    ASSERT_EQ(server_.empty.remove(&first), ModelRes_Success);
    ASSERT_EQ(server_.empty.add(&first), ModelRes_Success);
  }
  EXPECT_THAT(session_.takeAll(), ElementsAre("removed 2.9", "added 2.9 first", "value 2.9 42 x0"));
  std::deque<ModelPart> parts;
  for (ModelPartId id = 1000; id < 3000; ++id) {
    ASSERT_EQ(server_.empty.add(&parts.emplace_back(id, "part")), ModelRes_Success);
  }
  const std::vector<std::string> lines = session_.takeAll();
  EXPECT_EQ(lines.size(), 2U + 3U + 2000U);
  EXPECT_EQ(lines.front(), "begin");
  EXPECT_EQ(lines.back(), "complete");
  EXPECT_EQ(session_.connection.closeCalls, 0);
}

}  // namespace
