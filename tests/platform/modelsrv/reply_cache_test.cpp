#include "modelsrv/source/cache/reply_cache.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/cache/prefetch_writer.h"
#include "modelsrv/value_parts.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using EvtSrv::internal::nativeOrder;

using Bytes = std::vector<std::uint8_t>;
using Chain = std::vector<ModelPartId>;
using Data = ReplyCache::Data;

/// A part whose class does not report its changes.
class SilentPart : public ModelPart {
 public:
  SilentPart() : ModelPart(30, "silent") {}
  ~SilentPart() override { detach(); }
};

/// Passes prefetch replies from a writer to a cache.
class ReplyCaching : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(page_.open(), EvtSrv::EvtRes_Success);
    for (ModelPart* part : std::initializer_list<ModelPart*>{&b_, &a_, &long_, &silent_}) {
      ASSERT_EQ(root_.add(part), ModelRes_Success);
    }
    for (ModelPart* part : std::initializer_list<ModelPart*>{&x_, &y_}) {
      ASSERT_EQ(b_.add(part), ModelRes_Success);
    }
  }

  Bytes prefetch(ModelPart& part, unsigned parts) {
    const std::lock_guard lock(manager_.clientMutex);
    Bytes reply;
    PrefetchWriter().write(root_, part, parts, page_, reply);
    return reply;
  }

  const ReplyCache::Part* replace(const Chain& chain, const Bytes& reply) {
    return cache_.replace(chain, reply, nativeOrder);
  }

  /// The cached value of the part, or "?" if it requires a request to the server.
  std::string value(const Chain& chain, ModelPartIndex index = ModelPartIndex_All) {
    const ReplyCache::Part* part = cache_.find(chain, Data::value);
    std::ostringstream text;
    ModelRes result = ModelRes_Success;
    if (part == nullptr || !cache_.save(*part, index, text, result)) {
      return "?";
    }
    return result == ModelRes_Success ? text.str() : describe(result);
  }

  EvtSrv::internal::PosixSystem system_;
  StatusPage page_{system_};
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  ModelNode b_{5, "b"};
  ValuePart<int> x_{2, "x", 7};
  ArrayPart<std::string> y_{1, "y", {"one", "", "three"}, {"p", "", "q"}};
  ValuePart<bool> a_{3, "a", true};
  ValuePart<std::string> long_{9, "long", std::string(40'000, 'l')};
  SilentPart silent_;
  ReplyCache cache_{system_};
};

TEST_F(ReplyCaching, CountsWhatAPrefetchHasReadAndLeftOut) {
  std::deque<ArrayPart<double>> arrays;
  for (int i = 0; i < 100; ++i) {
    const auto id = static_cast<ModelPartId>(10 + i);
    auto& array = arrays.emplace_back(id, "array", std::vector<double>(4000, 1.0 / 3));
    ASSERT_EQ(b_.add(&array), ModelRes_Success);
  }
  ASSERT_NE(replace({5}, prefetch(b_, 1000)), nullptr);
  EXPECT_NE(cache_.find(Chain{5, 10}, Data::structure), nullptr);
  EXPECT_EQ(cache_.find(Chain{5, 20}, Data::structure), nullptr);
}

TEST_F(ReplyCaching, HasAPartAndThePartsThatFollowIt) {
  ASSERT_NE(replace({5, 2}, prefetch(x_, 100)), nullptr);
  EXPECT_EQ(value({5, 2}), "7");
  EXPECT_EQ(value({5, 1}), "one\n\nthree");
  EXPECT_EQ(value({5, 1}, 1), "");
  EXPECT_EQ(value({5, 1}, 2), "three");
  EXPECT_EQ(value({3}), "true");
  // The parts before it are not in the reply.
  EXPECT_EQ(cache_.find(Chain{5}, Data::value), nullptr);
  EXPECT_EQ(cache_.find({}, Data::value), nullptr);
}

TEST_F(ReplyCaching, HasChildrenAndElements) {
  ASSERT_NE(replace({}, prefetch(root_, 100)), nullptr);
  Chain ids;
  std::vector<std::string> names;
  const ReplyCache::Part* root = cache_.find({}, Data::value);
  ASSERT_NE(root, nullptr);
  EXPECT_TRUE(cache_.childIds(*root, ids));
  EXPECT_EQ(ids, (Chain{5, 3, 9, 30}));
  EXPECT_TRUE(cache_.childNames(*root, names));
  EXPECT_EQ(names, (std::vector<std::string>{"b", "a", "long", "silent"}));
  const ReplyCache::Part* array = cache_.find(Chain{5, 1}, Data::value);
  ASSERT_NE(array, nullptr);
  std::uint16_t sum = 0;
  EXPECT_TRUE(cache_.elementSum(*array, sum));
  EXPECT_EQ(sum, 3);
  EXPECT_TRUE(cache_.elementNames(*array, names));
  EXPECT_EQ(names, (std::vector<std::string>{"p", "", "q"}));
  EXPECT_TRUE(cache_.childIds(*array, ids));
  EXPECT_TRUE(ids.empty());
  EXPECT_EQ(value({5}), describe(ModelRes_NoValue));
}

TEST_F(ReplyCaching, LacksLongValuesAndPartsThatAreNotInTheReply) {
  ASSERT_NE(replace({}, prefetch(root_, 100)), nullptr);
  EXPECT_EQ(value({9}), "?");
  EXPECT_EQ(value({30}), "?");
  EXPECT_EQ(value({5, 1}, 3), "?");
  EXPECT_EQ(value({5, 2}, 0), "?");
  EXPECT_EQ(value({77}), "?");
}

TEST_F(ReplyCaching, HasAsManyPartsAsWereRequested) {
  ASSERT_NE(replace({5}, prefetch(b_, 2)), nullptr);
  EXPECT_NE(cache_.find(Chain{5, 2}, Data::value), nullptr);
  EXPECT_EQ(cache_.find(Chain{5, 1}, Data::value), nullptr);
}

TEST_F(ReplyCaching, RequestsMorePartsTheMoreWereUsed) {
  EXPECT_EQ(cache_.partsToPrefetch(), 1);
  ASSERT_NE(replace({}, prefetch(root_, 6)), nullptr);
  EXPECT_EQ(cache_.partsToPrefetch(), 4);
  static_cast<void>(cache_.find(Chain{5}, Data::value));
  static_cast<void>(cache_.find(Chain{5}, Data::value));
  static_cast<void>(cache_.find(Chain{3}, Data::value));
  EXPECT_EQ(cache_.partsToPrefetch(), 12);
}

TEST_F(ReplyCaching, KeepsTheStructureWhenTheEpochEnds) {
  ASSERT_NE(replace({}, prefetch(root_, 100)), nullptr);
  page_.advance();
  EXPECT_EQ(value({5, 2}), "?");
  const ReplyCache::Part* part = cache_.find(Chain{5}, Data::structure);
  ASSERT_NE(part, nullptr);
  Chain ids;
  EXPECT_TRUE(cache_.childIds(*part, ids));
  EXPECT_EQ(ids, (Chain{2, 1}));
  page_.advanceStructure();
  EXPECT_EQ(cache_.find(Chain{5}, Data::structure), nullptr);
}

TEST_F(ReplyCaching, LosesTheValuesWhenTheEpochEnds) {
  const Bytes reply = prefetch(root_, 100);
  ASSERT_NE(replace({}, reply), nullptr);
  page_.advance();
  EXPECT_EQ(cache_.find(Chain{5}, Data::value), nullptr);
  // The request that caused the prefetch is served from its reply.
  const ReplyCache::Part* part = replace({}, reply);
  ASSERT_NE(part, nullptr);
  Chain ids;
  EXPECT_TRUE(cache_.childIds(*part, ids));
  EXPECT_EQ(cache_.find({}, Data::value), nullptr);
}

TEST_F(ReplyCaching, IsUnusableIfThePageCannotBeOpened) {
  Bytes reply = prefetch(root_, 100);
  reply[9] ^= 1;
  const ReplyCache::Part* part = replace({}, reply);
  ASSERT_NE(part, nullptr);
  Chain ids;
  EXPECT_TRUE(cache_.childIds(*part, ids));
  EXPECT_FALSE(cache_.isUsable());
  EXPECT_EQ(cache_.find({}, Data::value), nullptr);
}

TEST_F(ReplyCaching, RejectsAReplyThatIsTruncatedInAPart) {
  const Bytes whole = prefetch(root_, 100);
  const Bytes one = prefetch(root_, 1);
  for (std::size_t size = 0; size < one.size(); ++size) {
    EXPECT_EQ(replace({}, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))),
              nullptr)
        << size;
  }
  EXPECT_NE(replace({}, one), nullptr);
}

TEST_F(ReplyCaching, RejectsAReplyAboutAnotherPart) {
  EXPECT_EQ(replace({5}, prefetch(a_, 10)), nullptr);
  EXPECT_EQ(replace({5, 1}, prefetch(b_, 10)), nullptr);
  EXPECT_EQ(replace({}, prefetch(b_, 10)), nullptr);
  EXPECT_EQ(cache_.find(Chain{5}, Data::value), nullptr);
}

TEST_F(ReplyCaching, RejectsAReplyWithMorePartsThanAClientRequests) {
  Bytes reply = prefetch(x_, 1);
  const std::size_t start = sizeof(std::uint32_t) * 4 + 16;
  const Bytes part(reply.begin() + start, reply.end());
  const auto repeated = [&](std::size_t times) {
    Bytes bytes(reply.begin(), reply.begin() + start);
    for (std::size_t i = 0; i < times; ++i) {
      bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes;
  };
  EXPECT_NE(replace({5, 2}, repeated(4096)), nullptr);
  EXPECT_EQ(replace({5, 2}, repeated(4097)), nullptr);
  EXPECT_EQ(cache_.find(Chain{5, 2}, Data::value), nullptr);
}

TEST_F(ReplyCaching, RejectsAReplyLongerThanAServerWrites) {
  const Bytes reply = prefetch(x_, 1);
  const Bytes handle(reply.begin(), reply.begin() + sizeof(std::uint32_t) * 4 + 16);
  // A reply of that size with one part, whose value is all zeros.
  const auto replyOfSize = [&](std::size_t size) {
    constexpr std::size_t beforeText = 15;
    Bytes bytes = handle;
    EvtSrv::internal::PayloadWriter writer(bytes);
    writer.u16(2);
    writer.u16(2);
    writer.u8(prefetchElements | prefetchValue);
    writer.u16(0);
    writer.u16(0);
    writer.u16(ModelRes_Success);
    writer.u32(static_cast<std::uint32_t>(size - handle.size() - beforeText));
    bytes.resize(size);
    return bytes;
  };
  EXPECT_NE(replace({5, 2}, replyOfSize(256 * 1024)), nullptr);
  EXPECT_EQ(replace({5, 2}, replyOfSize(256 * 1024 + 1)), nullptr);
}

TEST_F(ReplyCaching, IsUnusableAfterTheServersThreadHasEnded) {
  auto page = std::make_unique<StatusPage>(system_);
  std::thread([&page] { ASSERT_EQ(page->open(), EvtSrv::EvtRes_Success); }).join();
  const std::lock_guard lock(manager_.clientMutex);
  Bytes reply;
  PrefetchWriter().write(root_, root_, 100, *page, reply);
  EXPECT_NE(replace({}, reply), nullptr);
  EXPECT_EQ(cache_.find({}, Data::value), nullptr);
  EXPECT_FALSE(cache_.isUsable());
}

/// A node that hides its children every other time.
class UnreliableNode : public ModelNode {
 public:
  UnreliableNode() : ModelNode(40, "unreliable") {}
  ~UnreliableNode() override { detach(); }

 protected:
  ModelNode* asNode() override { return ++calls_ % 2 == 0 ? nullptr : this; }

 private:
  int calls_ = 0;
};

TEST_F(ReplyCaching, LacksDescendantsOfAPartThatIsNotCacheable) {
  UnreliableNode unreliable;
  ValuePart<int> child{1, "child", 3};
  ValuePart<int> sibling{50, "sibling", 4};
  ASSERT_EQ(unreliable.add(&child), ModelRes_Success);
  ASSERT_EQ(root_.add(&unreliable), ModelRes_Success);
  ASSERT_EQ(root_.add(&sibling), ModelRes_Success);
  ASSERT_NE(replace({}, prefetch(root_, 100)), nullptr);
  const ReplyCache::Part* part = cache_.find(Chain{40}, Data::value);
  ASSERT_NE(part, nullptr);
  Chain ids;
  EXPECT_FALSE(cache_.childIds(*part, ids));
  EXPECT_EQ(cache_.find(Chain{40, 1}, Data::value), nullptr);
  EXPECT_EQ(value({50}), "4");
  ASSERT_NE(replace({40, 1}, prefetch(child, 100)), nullptr);
  EXPECT_EQ(value({40, 1}), "3");
  EXPECT_EQ(value({50}), "4");
}

/// A root with a hundred texts.
class PrefetchWriting : public testing::Test {
 protected:
  Bytes prefetchReplyOf(std::size_t textSize) {
    EXPECT_EQ(page_.open(), EvtSrv::EvtRes_Success);
    for (ModelPartId id = 0; id < 100; ++id) {
      texts_.push_back(
          std::make_unique<ValuePart<std::string>>(id, "p", std::string(textSize, 'v')));
      EXPECT_EQ(root_.add(texts_.back().get()), ModelRes_Success);
    }
    const std::lock_guard lock(manager_.clientMutex);
    Bytes reply;
    PrefetchWriter().write(root_, root_, 1000, page_, reply);
    EXPECT_NE(cache_.replace({}, reply, nativeOrder), nullptr);
    return reply;
  }

  /// Whether the reply has the value of the first text.
  bool hasFirstText(std::size_t textSize) {
    static_cast<void>(prefetchReplyOf(textSize));
    const ReplyCache::Part* part = cache_.find(Chain{0}, Data::value);
    std::uint16_t sum = 1;
    EXPECT_TRUE(part != nullptr && cache_.elementSum(*part, sum));
    EXPECT_EQ(sum, 0);
    std::ostringstream text;
    ModelRes result = ModelRes_NoValue;
    if (part == nullptr || !cache_.save(*part, ModelPartIndex_All, text, result)) {
      return false;
    }
    EXPECT_EQ(result, ModelRes_Success);
    EXPECT_EQ(text.view(), std::string(textSize, 'v'));
    return true;
  }

  /// The longest text whose section (result, length, text) is not left out.
  static constexpr std::size_t longestText = std::size_t{16} * 1024 - 6;

  EvtSrv::internal::PosixSystem system_;
  StatusPage page_{system_};
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelRoot root_{&manager_};
  std::vector<std::unique_ptr<ValuePart<std::string>>> texts_;
  ReplyCache cache_{system_};
};

TEST_F(PrefetchWriting, StopsWhenAPipeWouldBeFull) {
  const Bytes reply = prefetchReplyOf(2000);
  EXPECT_GT(reply.size(), prefetchSize / 2);
  EXPECT_LE(reply.size(), prefetchSize + 64);
  EXPECT_NE(cache_.find(Chain{20}, Data::value), nullptr);
  EXPECT_EQ(cache_.find(Chain{40}, Data::value), nullptr);
}

TEST_F(PrefetchWriting, StopsAfterReadingManyLongTexts) {
  const Bytes reply = prefetchReplyOf(30'000);
  EXPECT_LT(reply.size(), 2000U);
  EXPECT_NE(cache_.find(Chain{0}, Data::value), nullptr);
  EXPECT_EQ(cache_.find(Chain{5}, Data::value), nullptr);
}

TEST_F(PrefetchWriting, WritesATextOfMaximumLength) {
  EXPECT_TRUE(hasFirstText(longestText));
}

TEST_F(PrefetchWriting, LeavesOutALongerText) {
  EXPECT_FALSE(hasFirstText(longestText + 1));
}

TEST_F(PrefetchWriting, KeepsNoMemoryForALongText) {
  const Bytes reply = prefetchReplyOf(1'000'000);
  EXPECT_LT(reply.capacity(), 100'000U);
}

}  // namespace
