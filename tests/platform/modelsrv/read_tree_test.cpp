#include <gmock/gmock.h>

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "modelsrv/model_root.h"
#include "tests/platform/modelsrv/served_tree.h"
#include "tests/platform/modelsrv/watch_session.h"

// What a program gets when it reads a whole subtree.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;
using testing::ElementsAre;

class ReadTree : public ConnectedClient {
 protected:
  /// Reads the tree into lines: "CHAIN NAME TYPE ACCESS[ELEMENTS]=TEXT".
  ModelRes read(const Chain& chain) {
    ModelPart& part =
        chain.empty() ? static_cast<ModelPart&>(client_.root) : client_.part.at(chain);
    return client_.root.readTree(
        &part, [this](const TreePart& found) { return add(found); }, reading_);
  }

  bool add(const TreePart& part) {
    std::string line;
    for (const ModelPartId id : part.chain) {
      line += (line.empty() ? "" : ".") + std::to_string(id);
    }
    line += " " + std::string(part.name) + (part.isNode ? "/" : "") + " " + std::string(part.type) +
            " " + std::to_string(part.access) + (part.subscribable ? "" : "!");
    if (part.elements != 0) {
      line += "[" + std::to_string(part.elements);
      for (const std::string_view name : part.elementNames) {
        line += " " + std::string(name);
      }
      line += "]";
    }
    if (part.result == ModelRes_Success) {
      line += "=" + std::string(part.text);
    } else if (part.result != ModelRes_NoValue) {
      line += " (" + std::string(describe(part.result)) + ")";
    }
    lines_.push_back(line);
    return lines_.size() != wanted_;
  }

  std::vector<std::string> lines_;
  TreeReading reading_;
  std::size_t wanted_ = 0;
};

TEST_F(ReadTree, ReportsEachPartWithWhatItIs) {
  ASSERT_EQ(read(driveChain), ModelRes_Success);
  EXPECT_THAT(lines_,
              ElementsAre("1 drive/  0", "1.1 speed int32 1=42", "1.2 label text 1=two words",
                          "1.3 gains double 1[2 p i]=1.5\n0.25", "1.4 raw uint8 1[3]=1\n2\n3",
                          "1.5 serial text 2=A-17", "1.6 offset float 3=0",
                          "1.7 secret bool 1!=false", "1.8 limited int32 1=1", "1.12  uint16 1=7",
                          "1.13 speed int32 1=99", "1.14 inner/  0", "1.14.1 deep int32 1=5"));
  EXPECT_FALSE(reading_.structureChanged);
  lines_.clear();
  ASSERT_EQ(read({1, 3}), ModelRes_Success);
  EXPECT_THAT(lines_, ElementsAre("1.3 gains double 1[2 p i]=1.5\n0.25"));
  lines_.clear();
  ASSERT_EQ(read({}), ModelRes_Success);
  EXPECT_EQ(lines_.size(), 19U);
  EXPECT_EQ(lines_[0], " /  0");
  lines_.clear();
  EXPECT_EQ(read({9, 9}), ModelRes_NoSuchPart);
  EXPECT_TRUE(lines_.empty());
}

TEST_F(ReadTree, SaysWhetherTheOrderOfTheChildrenIsThatOfTheIds) {
  std::vector<ModelPart*> children(server_.drive.children());
  std::swap(children.front(), children.back());
  ASSERT_EQ(server_.drive.setChildren(children), ModelRes_Success);
  std::vector<bool> sorted;
  ASSERT_EQ(client_.root.readTree(&client_.part.at(driveChain),
                                  [&](const TreePart& part) {
                                    if (part.isNode) {
                                      sorted.push_back(part.childrenSorted);
                                    }
                                    return true;
                                  }),
            ModelRes_Success);
  EXPECT_THAT(sorted, ElementsAre(false, true));
}

TEST_F(ReadTree, EndsWhenTheVisitorDoes) {
  wanted_ = 3;
  ASSERT_EQ(read(driveChain), ModelRes_Success);
  EXPECT_EQ(lines_.size(), 3U);
}

TEST_F(ReadTree, FetchesWhatIsTooLargeForAPage) {
  const std::string large(100'000, 'x');
  std::vector<std::string> names(3000, std::string(100, 'n'));
  ArrayPart<std::uint8_t> named(20, "named", std::vector<std::uint8_t>(names.size(), 1), names);
  ASSERT_EQ(server_.label.setValue(large), ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&named), ModelRes_Success);
  ASSERT_EQ(read(driveChain), ModelRes_Success);
  EXPECT_EQ(lines_[2], "1.2 label text 1=" + large);
  EXPECT_EQ(lines_.size(), 14U);
  EXPECT_TRUE(lines_.back().starts_with("1.20 named uint8 1[3000 nnn"));
}

/// Very many parts below `/empty`.
class ReadManyParts : public ReadTree {
 protected:
  static constexpr unsigned count_ = 20'000;

  void SetUp() override {
    std::vector<ModelPart*> children;
    for (unsigned i = 0; i < count_; ++i) {
      children.push_back(&parts_.emplace_back(static_cast<ModelPartId>(i), "part", i));
    }
    ASSERT_EQ(server_.empty.setChildren(children), ModelRes_Success);
    ReadTree::SetUp();
  }
  void TearDown() override { EXPECT_EQ(server_.empty.setChildren({}), ModelRes_Success); }

  std::deque<ValuePart<std::uint32_t>> parts_;
};

TEST_F(ReadManyParts, InPages) {
  ASSERT_EQ(read({2}), ModelRes_Success);
  ASSERT_EQ(lines_.size(), count_ + 1);
  EXPECT_EQ(lines_.back(), "2.19999 part uint32 1=19999");
  EXPECT_FALSE(reading_.structureChanged);
}

TEST_F(ReadManyParts, AndSaysIfSomeCameOrWentMeanwhile) {
  ModelPart& part = client_.part.at({2});
  std::vector<ModelPartId> ids;
  const TreeVisitor visit = [&](const TreePart& found) {
    if (found.chain.size() == 2) {
      ids.push_back(found.chain.back());
    }
    if (ids.size() == 1) {
      EXPECT_EQ(server_.empty.remove(&parts_[5000]), ModelRes_Success);
      EXPECT_EQ(server_.empty.remove(&parts_[19'000]), ModelRes_Success);
    }
    return true;
  };
  ASSERT_EQ(client_.root.readTree(&part, visit, reading_), ModelRes_Success);
  EXPECT_TRUE(reading_.structureChanged);
  EXPECT_EQ(ids.size(), count_ - 1) << "the first was in the page that was there already";
}

/// Parts below `/empty` whose values take long.
class SlowParts {
 public:
  static constexpr unsigned count = 100;

  explicit SlowParts(Server& server) : server_(server) {
    for (unsigned i = 0; i < count; ++i) {
      auto& part = parts_.emplace_back(static_cast<ModelPartId>(i), "slow", 0);
      part.setGetter([this](std::int32_t& value) {
        using Clock = std::chrono::steady_clock;
        for (const auto end = Clock::now() + std::chrono::microseconds(100); Clock::now() < end;) {
        }
        value = 5;
        ++calls;
        return ModelRes_Success;
      });
      EXPECT_EQ(server_.empty.add(&part), ModelRes_Success);
    }
  }
  ~SlowParts() { EXPECT_EQ(server_.empty.setChildren({}), ModelRes_Success); }
  SlowParts(const SlowParts&) = delete;
  SlowParts& operator=(const SlowParts&) = delete;

  unsigned calls = 0;

 private:
  Server& server_;
  std::deque<ValuePart<std::int32_t>> parts_;
};

using ReadTreePage = WatchSession;

TEST_F(ReadTreePage, EndsSoonIfValuesTakeLong) {
  SlowParts slow(server_);
  ASSERT_EQ(session_.handle(14, payloadOf({ModelSrv::internal::Operation::readTree, {2}})),
            ModelRes_Success);
  EXPECT_LT(slow.calls, SlowParts::count / 2) << "the page delays other clients";
  constexpr std::size_t moreAt = 8;
  EXPECT_EQ(session_.reply.at(moreAt), 1);
}

TEST_F(ReadTree, ReportsEachPartOnceIfPagesEndSoon) {
  const SlowParts slow(server_);
  ASSERT_EQ(read({2}), ModelRes_Success);
  EXPECT_EQ(lines_.size(), SlowParts::count + 1U);
  EXPECT_EQ(lines_.back(), "2.99 slow int32 1=5");
}

}  // namespace
