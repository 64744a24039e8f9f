#include <gmock/gmock.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/tree_session.h"
#include "modelsrv/value_parts.h"
#include "tests/platform/modelsrv/foreign_bytes.h"
#include "tests/platform/modelsrv/watch_log.h"
#include "tests/platform/modelsrv/watched_session.h"

// The watches of one session in a server, byte by byte.

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using EvtSrv::internal::nativeOrder;
using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::PayloadWriter;
using modelsrv_tests::ForeignBytes;
using modelsrv_tests::foreignOrder;
using modelsrv_tests::WatchedSession;
using testing::ElementsAre;

using Bytes = std::vector<std::uint8_t>;
using Chain = std::vector<ModelPartId>;

class WatchSessions : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(root_.add(&drive_), ModelRes_Success);
    ASSERT_EQ(drive_.add(&speed_), ModelRes_Success);
  }

  /// Takes all events as lines.
  std::vector<std::string> takeAll() {
    modelsrv_tests::WatchLog log;
    DecodedWatchEvent decoded;
    while (session_.take()) {
      EXPECT_TRUE(
          decodeWatchEvent(session_.type, PayloadReader(session_.payload, nativeOrder), decoded));
      log.add(decoded.event);
    }
    return log.lines;
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ModelNode drive_{3, "drive"};
  ValuePart<std::int32_t> speed_{9, "speed", 42};
  std::shared_ptr<SessionShare> share_ = std::make_shared<SessionShare>(root_);
  WatchedSession session_{share_};
  const std::lock_guard<KSTD::KThreadMutex> lock_{manager_.clientMutex};
};

/// What follows the time in an event, and the time itself replaced by zeros.
Bytes withoutTime(Bytes bytes, std::size_t at) {
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), 8, std::uint8_t{0});
  return bytes;
}

TEST_F(WatchSessions, HaveTheDocumentedBytes) {
  ForeignBytes request;
  // chain, number, index, flags, period
  request.u16(2).u16(3).u16(9).u16(0).u16(7).u16(ModelPartIndex_All).u8(0).u16(0).u16(0);
  if constexpr (foreignOrder == EvtSrv::internal::ByteOrder::leastFirst) {
    GTEST_SKIP() << "the halves of 32 bits are written most significant first";
  }
  ASSERT_EQ(session_.handle(12, request.get(), foreignOrder), ModelRes_Success);
  EXPECT_TRUE(session_.reply.empty());
  Bytes mark;
  PayloadWriter begin(mark);
  begin.u32(7);
  begin.u16(1);
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.type, 5);
  EXPECT_EQ(session_.payload, mark);
  Bytes added;
  PayloadWriter part(added);
  part.u32(7);
  part.u16(3);
  part.u16(0);
  part.u32(0);
  part.u32(0);
  part.u16(65534);
  part.u16(0);
  part.u16s(Chain{2, 3, 9});
  part.u16(5);
  part.bytes("speed42");
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.type, 5);
  EXPECT_EQ(withoutTime(session_.payload, 8), added);
  mark[4] = 2;
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.payload, mark);
  EXPECT_FALSE(session_.take());

  ASSERT_EQ(speed_.setValue(-5), ModelRes_Success);
  ASSERT_EQ(speed_.setValue(-6), ModelRes_Success);
  Bytes changed;
  PayloadWriter value(changed);
  value.u32(7);
  value.u32(2);
  value.u32(0);
  value.u32(0);
  value.u16(65534);
  value.u16(0);
  value.u16s(Chain{2, 3, 9});
  value.bytes("-6");
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.type, 4);
  EXPECT_EQ(withoutTime(session_.payload, 8), changed);

  ASSERT_EQ(drive_.remove(&speed_), ModelRes_Success);
  Bytes removed;
  PayloadWriter gone(removed);
  gone.u32(7);
  gone.u16(4);
  gone.u16s(Chain{2, 3, 9});
  ASSERT_TRUE(session_.take());
  EXPECT_EQ(session_.type, 5);
  EXPECT_EQ(session_.payload, removed);
  EXPECT_EQ(session_.handle(13, ForeignBytes().u16(0).u16(0).u16(7).get(), foreignOrder),
            ModelRes_Success);
  EXPECT_EQ(session_.handle(13, ForeignBytes().u16(0).u16(0).u16(7).get(), foreignOrder),
            ModelRes_NotSubscribed);
}

TEST_F(WatchSessions, RefuseWhatIsNotDefined) {
  EXPECT_EQ(session_.watch(1, {3, 9}, 4), ModelRes_BadRequest);
  EXPECT_EQ(session_.watch(1, {3, 8}), ModelRes_NoSuchPart);
  EXPECT_EQ(session_.watch(1, {3, 8}, watchMayBeAbsent), ModelRes_Success);
  EXPECT_EQ(session_.watch(1, {3, 9}), ModelRes_BadArgument) << "the number is in use";
  EXPECT_EQ(session_.watch(2, {3, 65535}, watchMayBeAbsent), ModelRes_NoSuchPart);
  EXPECT_THAT(takeAll(), ElementsAre("begin", "complete"));
}

TEST_F(WatchSessions, ReadClassesOfTheProgramInADispatchOnly) {
  int calls = 0;
  speed_.setGetter([&calls](std::int32_t& value) {
    value = ++calls;
    return ModelRes_Success;
  });
  ASSERT_EQ(session_.watch(1, {3, 9}), ModelRes_Success);
  EXPECT_THAT(takeAll(), ElementsAre("begin", "added 3.9 speed", "complete"));
  EXPECT_EQ(calls, 1);
  speed_.notifyChange();
  EXPECT_FALSE(session_.take(false));
  EXPECT_TRUE(session_.isPaused());
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(session_.take(true));
  EXPECT_EQ(calls, 2);
  EXPECT_FALSE(session_.isPaused());
}

TEST_F(WatchSessions, BeginAgainIfTooMuchOfTheStructureIsPending) {
  ASSERT_EQ(session_.watch(1, {3}, watchSubtree), ModelRes_Success);
  takeAll();
  for (int i = 0; i < 2000; ++i) {
    ASSERT_EQ(drive_.remove(&speed_), ModelRes_Success);
    ASSERT_EQ(drive_.add(&speed_), ModelRes_Success);
  }
  EXPECT_THAT(takeAll(), ElementsAre("removed 3.9", "added 3.9 speed"));
  std::deque<ModelPart> parts;
  for (ModelPartId id = 1000; id < 3000; ++id) {
    ASSERT_EQ(drive_.add(&parts.emplace_back(id, "part")), ModelRes_Success);
  }
  const std::vector<std::string> lines = takeAll();
  EXPECT_EQ(lines.size(), 2U + 2U + 2000U);
  EXPECT_EQ(lines.front(), "begin");
  EXPECT_EQ(lines.back(), "complete");
  EXPECT_EQ(session_.connection.closeCalls, 0);
}

}  // namespace
