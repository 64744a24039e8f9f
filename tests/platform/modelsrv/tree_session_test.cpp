#include "modelsrv/source/tree_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/cache/reply_cache.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/updates.h"
#include "modelsrv/value_parts.h"
#include "tests/platform/modelsrv/fake_connection.h"
#include "tests/platform/modelsrv/foreign_bytes.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using EvtSrv::internal::nativeOrder;
using EvtSrv::internal::PayloadReader;
using modelsrv_tests::payloadOf;

using Bytes = std::vector<std::uint8_t>;
using Chain = std::vector<ModelPartId>;
class TreeSessions : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(root_.add(&drive_), ModelRes_Success);
    ASSERT_EQ(drive_.add(&speed_), ModelRes_Success);
    ASSERT_EQ(drive_.add(&proxy_), ModelRes_Success);
    ASSERT_EQ(drive_.add(&gains_), ModelRes_Success);
    ASSERT_EQ(drive_.add(&secret_), ModelRes_Success);
    secret_.setSubscribable(false);
  }

  ModelRes handle(const Request& request) {
    return handleBytes(static_cast<std::uint16_t>(request.operation), payloadOf(request),
                       nativeOrder);
  }

  ModelRes handleBytes(std::uint16_t operation, const Bytes& payload,
                       EvtSrv::internal::ByteOrder order) {
    reply_ = {1, 2};
    PayloadReader reader(payload, order);
    const auto result = static_cast<ModelRes>(session_.handle(operation, reader, reply_));
    EXPECT_EQ((Bytes{reply_[0], reply_[1]}), (Bytes{1, 2})) << "earlier bytes are unchanged";
    reply_.erase(reply_.begin(), reply_.begin() + 2);
    if (result != ModelRes_Success) {
      EXPECT_TRUE(reply_.empty());
    }
    return result;
  }

  [[nodiscard]] PayloadReader reply() const { return PayloadReader(reply_, nativeOrder); }
  [[nodiscard]] std::string text() const { return std::string(reply().rest()); }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ModelNode drive_{3, "drive"};
  ValuePart<std::int32_t> speed_{9, "speed", 42};
  ModelPart proxy_;
  ArrayPart<double> gains_{2, "", {1.5, 0.25}, {"p", "i"}};
  ValuePart<bool> secret_{5, "secret", false, ModelPartStatus_Protected};
  modelsrv_tests::FakeConnection connection_;
  std::shared_ptr<SessionShare> share_ = std::make_shared<SessionShare>(root_);
  TreeSession session_{share_, connection_};
  const std::lock_guard<KSTD::KThreadMutex> lock_{manager_.clientMutex};
  Bytes reply_;
};

TEST_F(TreeSessions, ListsChildrenInTheirOrderWithoutProxies) {
  Chain ids;
  ASSERT_EQ(handle({Operation::childIds, {3}}), ModelRes_Success);
  ASSERT_TRUE(decodeIds(reply(), ids));
  EXPECT_EQ(ids, (Chain{9, 2, 5}));
  std::vector<std::string> names;
  ASSERT_EQ(handle({Operation::childNames, {3}}), ModelRes_Success);
  ASSERT_TRUE(decodeNames(reply(), names));
  EXPECT_EQ(names, (std::vector<std::string>{"speed", "", "secret"}));
  ASSERT_EQ(handle({Operation::childIds, {}}), ModelRes_Success);
  ASSERT_TRUE(decodeIds(reply(), ids));
  EXPECT_EQ(ids, Chain{3});
  ASSERT_EQ(handle({Operation::childIds, {3, 9}}), ModelRes_Success);
  ASSERT_TRUE(decodeIds(reply(), ids));
  EXPECT_TRUE(ids.empty());
}

TEST_F(TreeSessions, PrefetchesThePartItselfIfNoPartsAreRequested) {
  EXPECT_EQ(handle({Operation::prefetch, {3, 9}, 0}), ModelRes_DoNothing);
  share_->invalidator.open();
  ASSERT_EQ(handle({Operation::prefetch, {3, 9}, 0}), ModelRes_Success);
  ReplyCache cache(EvtSrv::internal::posixSystem());
  EXPECT_NE(cache.replace(std::vector<ModelPartId>{3, 9}, reply_, nativeOrder), nullptr);
}

TEST_F(TreeSessions, ReturnsElements) {
  const struct {
    Chain chain;
    std::uint16_t sum;
    std::vector<std::string> names;
  } cases[] = {{{3, 2}, 2, {"p", "i"}}, {{3, 9}, 0, {}}, {{3}, 0, {}}, {{}, 0, {}}};
  for (const auto& c : cases) {
    std::uint16_t sum = 99;
    ASSERT_EQ(handle({Operation::elementSum, c.chain}), ModelRes_Success);
    ASSERT_TRUE(decodeSum(reply(), sum));
    EXPECT_EQ(sum, c.sum);
    std::vector<std::string> names{"before"};
    ASSERT_EQ(handle({Operation::elementNames, c.chain}), ModelRes_Success);
    ASSERT_TRUE(decodeNames(reply(), names));
    EXPECT_EQ(names, c.names);
  }
}

TEST_F(TreeSessions, FindsNoPartForAnUnknownChain) {
  for (const Chain& chain : {Chain{1}, Chain{3, 1}, Chain{3, 9, 1}, Chain{65535}, Chain{3, 65535},
                             Chain{65534}, Chain(4096, 3)}) {
    for (std::uint16_t operation = 1; operation <= 10; ++operation) {
      EXPECT_EQ(handle({static_cast<Operation>(operation), chain}), ModelRes_NoSuchPart);
    }
  }
}

TEST_F(TreeSessions, SavesAndLoads) {
  ASSERT_EQ(handle({Operation::save, {3, 9}}), ModelRes_Success);
  EXPECT_EQ(text(), "42");
  ASSERT_EQ(handle({Operation::load, {3, 9}, ModelPartIndex_All, false, "-7"}), ModelRes_Success);
  EXPECT_EQ(text(), "");
  EXPECT_EQ(speed_.value(), -7);
  ASSERT_EQ(handle({Operation::save, {3, 2}}), ModelRes_Success);
  EXPECT_EQ(text(), "1.5\n0.25");
  ASSERT_EQ(handle({Operation::load, {3, 2}, 1, false, "4"}), ModelRes_Success);
  ASSERT_EQ(handle({Operation::save, {3, 2}, 1}), ModelRes_Success);
  EXPECT_EQ(text(), "4");
}

// To copy the largest text, into fresh memory, would keep the other clients waiting.
TEST_F(TreeSessions, ALargeTextStaysInTheMemoryOfItsRequest) {
  ValuePart<std::string> label(7, "label", "small");
  ASSERT_EQ(root_.add(&label), ModelRes_Success);
  const auto store = [&](const std::string& value, bool isTaken) {
    const Bytes payload = payloadOf({Operation::load, {7}, ModelPartIndex_All, false, value});
    connection_.requestMemory = std::make_unique<std::uint8_t[]>(payload.size());
    std::copy(payload.begin(), payload.end(), connection_.requestMemory.get());
    PayloadReader reader({connection_.requestMemory.get(), payload.size()}, nativeOrder);
    reply_.clear();
    EXPECT_EQ(session_.handle(static_cast<std::uint16_t>(Operation::load), reader, reply_), 0);
    EXPECT_EQ(connection_.requestMemory == nullptr, isTaken);
    connection_.requestMemory = nullptr;
    ASSERT_EQ(handle({Operation::save, {7}}), ModelRes_Success);
  };
  const std::string large(1000000, 'x');
  store(large, true);
  EXPECT_EQ(text(), large);
  store(large, false);
  EXPECT_EQ(text(), large) << "the same value changes nothing";
  store("1000000\n" + std::string(1000000, 'y'), true);
  EXPECT_EQ(text(), std::string(1000000, 'y'));
  EXPECT_EQ(label.value(), std::string(1000000, 'y'));
  EXPECT_EQ(label.setValue("set"), ModelRes_Success);
  EXPECT_EQ(label.value(), "set");
  store(large, true);
  store("small again", false);
  EXPECT_EQ(text(), "small again");
  std::string reason;
  EXPECT_EQ(label.store(large, true, ModelPartIndex_All, reason), ModelRes_Success)
      << "the server's own text is copied";
  EXPECT_EQ(label.value(), large);
}

TEST_F(TreeSessions, LetsNoOtherReplyWaitForAStoreOrManyParts) {
  const auto isShort = [this](Operation operation) {
    return session_.isShort(static_cast<std::uint16_t>(operation));
  };
  EXPECT_TRUE(isShort(Operation::save));
  EXPECT_TRUE(isShort(Operation::elementSum));
  for (const Operation operation :
       {Operation::load, Operation::prefetch, Operation::readTree, Operation::watch}) {
    EXPECT_FALSE(isShort(operation));
  }
  EXPECT_FALSE(session_.isShort(0));
}

TEST_F(TreeSessions, ReturnsWhyAStoreOrAReadFailed) {
  EXPECT_EQ(handle({Operation::load, {3, 9}, ModelPartIndex_All, false, "x"}), ModelRes_BadText);
  EXPECT_EQ(handle({Operation::load, {3, 9}, ModelPartIndex_All, false, "99999999999"}),
            ModelRes_OutOfRange);
  EXPECT_EQ(handle({Operation::load, {3, 9}, 0, false, "1"}), ModelRes_NoSuchIndex);
  EXPECT_EQ(handle({Operation::load, {3, 5}, ModelPartIndex_All, false, "true"}),
            ModelRes_Protected);
  EXPECT_EQ(handle({Operation::load, {3, 5}, ModelPartIndex_All, true, "true"}), ModelRes_Success);
  EXPECT_EQ(handle({Operation::load, {3}, ModelPartIndex_All, false, "1"}), ModelRes_NoValue);
  EXPECT_EQ(handle({Operation::load, {}, ModelPartIndex_All, false, "1"}), ModelRes_NoValue);
  EXPECT_EQ(handle({Operation::save, {3}}), ModelRes_NoValue);
  EXPECT_EQ(handle({Operation::save, {3, 2}, 2}), ModelRes_NoSuchIndex);
  EXPECT_EQ(handle({Operation::save, {3, 9}, ModelPartIndex_Void}), ModelRes_NoSuchIndex);
}

TEST_F(TreeSessions, RepliesToBadRequests) {
  EXPECT_EQ(handleBytes(0, {0, 0}, nativeOrder), ModelRes_BadRequest);
  EXPECT_EQ(handleBytes(9, {0, 0}, nativeOrder), ModelRes_BadRequest);
  EXPECT_EQ(handleBytes(11, {0, 0}, nativeOrder), ModelRes_BadRequest);
  EXPECT_EQ(handleBytes(1, {}, nativeOrder), ModelRes_BadRequest);
  EXPECT_EQ(handleBytes(1, {0, 0, 0}, nativeOrder), ModelRes_BadRequest);
  EXPECT_EQ(handleBytes(1, {255, 255}, nativeOrder), ModelRes_BadRequest);
}

TEST_F(TreeSessions, ServesAClientWithTheOtherByteOrder) {
  modelsrv_tests::ForeignBytes bytes;
  bytes.u16(2).u16(3).u16(9).u16(ModelPartIndex_All).u8(0).text("258");
  EXPECT_EQ(handleBytes(6, bytes.get(), modelsrv_tests::foreignOrder), ModelRes_Success);
  EXPECT_EQ(speed_.value(), 258);
}

TEST_F(TreeSessions, SubscribesToSubscribablePartsOnly) {
  EXPECT_EQ(handle({Operation::subscribe, {3, 5}}), ModelRes_NotSubscribable);
  EXPECT_EQ(handle({Operation::subscribe, {3, 9}, 0}), ModelRes_NoSuchIndex);
  EXPECT_EQ(handle({Operation::subscribe, {3, 2}, 2}), ModelRes_NoSuchIndex);
  EXPECT_EQ(handle({Operation::subscribe, {3, 2}, ModelPartIndex_Void}), ModelRes_NoSuchIndex);
  EXPECT_EQ(handle({Operation::subscribe, {3, 2}, 1}), ModelRes_Success);
  EXPECT_EQ(handle({Operation::unsubscribe, {3, 2}}), ModelRes_NotSubscribed);
  EXPECT_EQ(handle({Operation::unsubscribe, {3, 2}, 1}), ModelRes_Success);
  EXPECT_EQ(handle({Operation::unsubscribe, {3, 2}, 1}), ModelRes_NotSubscribed);
}

TEST_F(TreeSessions, NotifiesTheStoringClientToo) {
  ASSERT_EQ(handle({Operation::subscribe, {3, 9}}), ModelRes_Success);
  ASSERT_EQ(handle({Operation::load, {3, 9}, ModelPartIndex_All, false, "5"}), ModelRes_Success);
  EXPECT_EQ(connection_.pendingCalls, 1);
  std::uint16_t type = 0;
  Bytes payload{7};
  ASSERT_TRUE(session_.takeEvent(type, payload));
  EXPECT_EQ(type, ModelRoot::EvtTyp_Model_Update);
  EXPECT_EQ(payload.front(), 7);
  payload.erase(payload.begin());
  Update update;
  ASSERT_TRUE(decodeUpdate(PayloadReader(payload, nativeOrder), update));
  EXPECT_EQ(update.chain, (Chain{3, 9}));
  EXPECT_EQ(update.index, ModelPartIndex_All);
  EXPECT_FALSE(session_.takeEvent(type, payload));
}

TEST_F(TreeSessions, EndsItsSubscriptionsWhenDestroyed) {
  modelsrv_tests::FakeConnection connection;
  auto session = std::make_unique<TreeSession>(share_, connection);
  const Bytes payload = payloadOf({Operation::subscribe, {3, 9}});
  PayloadReader reader(payload, nativeOrder);
  Bytes reply;
  ASSERT_EQ(session->handle(7, reader, reply), ModelRes_Success);
  session.reset();
  EXPECT_EQ(speed_.setValue(1), ModelRes_Success);
  EXPECT_EQ(connection.pendingCalls, 0);
}

/// Calls a function of the test while its text is being written.
class InterruptedPart final : public ModelPart {
 public:
  explicit InterruptedPart(ModelPartId id) : ModelPart(id, "interrupted") {}
  ~InterruptedPart() override { detach(); }

  /// Called once.
  mutable std::function<void()> onText;
  ModelRes result = ModelRes_Success;

 protected:
  [[nodiscard]] bool isCacheable() const override { return true; }
  ModelRes appendText(std::string& out, ModelPartIndex /*index*/) const override {
    out += "text";
    if (const auto call = std::exchange(onText, nullptr)) {
      call();
    }
    return result;
  }
};

TEST_F(TreeSessions, ServesOneClientWhileItServesAnother) {
  InterruptedPart part(7);
  ASSERT_EQ(root_.add(&part), ModelRes_Success);
  share_->invalidator.open();
  for (const Operation operation : {Operation::prefetch, Operation::save}) {
    SCOPED_TRACE(static_cast<int>(operation));
    ASSERT_EQ(handle({operation, {7}, 1}), ModelRes_Success);
    const Bytes undisturbed = reply_;
    int nestedReplies = 0;
    part.onText = [&] {
      modelsrv_tests::FakeConnection connection;
      TreeSession other(share_, connection);
      for (const Operation nested : {Operation::prefetch, Operation::save}) {
        const ModelPartIndex index =
            nested == Operation::prefetch ? ModelPartIndex{4} : ModelPartIndex_All;
        const Bytes payload = payloadOf({nested, {3, 9}, index});
        PayloadReader reader(payload, nativeOrder);
        Bytes reply;
        EXPECT_EQ(other.handle(static_cast<std::uint16_t>(nested), reader, reply),
                  ModelRes_Success);
        ++nestedReplies;
      }
    };
    EXPECT_EQ(handle({operation, {7}, 1}), ModelRes_Success);
    EXPECT_EQ(nestedReplies, 2);
    EXPECT_EQ(reply_, undisturbed);
  }
}

TEST_F(TreeSessions, GivesTheReasonOfARefusedStoreToItsClientOnly) {
  ASSERT_EQ(speed_.setAttributes({"", "0", "9", "", {}}), ModelRes_Success);
  InterruptedPart part(7);
  part.result = ModelRes_Unreachable;
  ASSERT_EQ(root_.add(&part), ModelRes_Success);
  std::string nestedReason;
  part.onText = [&] {
    modelsrv_tests::FakeConnection connection;
    TreeSession other(share_, connection);
    const Bytes payload = payloadOf({Operation::load, {3, 9}, ModelPartIndex_All, false, "10"});
    PayloadReader reader(payload, nativeOrder);
    Bytes reply;
    EXPECT_EQ(other.handle(6, reader, reply), ModelRes_OutOfRange);
    nestedReason.assign(reply.begin(), reply.end());
  };
  EXPECT_EQ(handle({Operation::save, {7}}), ModelRes_Unreachable) << "its reply is empty";
  EXPECT_EQ(nestedReason, "speed 10 is not within 0 to 9");
}

TEST_F(TreeSessions, RejectsASaveAboveTheLimit) {
  ArrayPart<std::string> texts(8, "", {std::string(ModelValueText_Max, 'x'), "y"});
  ASSERT_EQ(root_.add(&texts), ModelRes_Success);
  EXPECT_EQ(handle({Operation::save, {8}}), ModelRes_TooLarge);
  EXPECT_EQ(handle({Operation::save, {8}, 0}), ModelRes_Success);
  EXPECT_EQ(reply_.size(), ModelValueText_Max);
}

}  // namespace
