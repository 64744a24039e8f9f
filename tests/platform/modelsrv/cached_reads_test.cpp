#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/platform/modelsrv/served_tree.h"

// Requests that a client serves from its cache, and changes that must invalidate it.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;

class CachedReads : public ConnectedClient {};

TEST_F(CachedReads, SeeEveryKindOfChangeAtTheServerAtOnce) {
  const auto load = [](ModelPart& part, const std::string& text) {
    std::istringstream stream(text);
    return part.load(stream, false, all);
  };
  struct Case {
    std::string what;
    std::function<ModelRes()> change;
    std::string speed;
    std::string gains;
  };
  const Case cases[] = {
      {"nothing", [] { return ModelRes_Success; }, "42", "1.5\n0.25"},
      {"a value", [&] { return server_.speed.setValue(1); }, "1", "1.5\n0.25"},
      {"a value from text", [&] { return load(server_.speed, "2"); }, "2", "1.5\n0.25"},
      {"an element", [&] { return server_.gains.setValue(1, 3); }, "2", "1.5\n3"},
      {"all elements",
       [&] {
         return server_.gains.setValues({4, 5});
       },
       "2", "4\n5"},
      {"one element of all",
       [&] {
         return server_.gains.setValues({4, 6});
       },
       "2", "4\n6"},
      {"all elements from text", [&] { return load(server_.gains, "7\n8"); }, "2", "7\n8"},
  };
  for (const Case& test : cases) {
    ASSERT_EQ(test.change(), ModelRes_Success) << test.what;
    // The last requests are served from the reply to the first ones.
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(client_.text(gainsChain), test.gains) << test.what;
      EXPECT_EQ(client_.text(speedChain), test.speed) << test.what;
    }
    EXPECT_EQ(client_.text(gainsChain), test.gains) << test.what;
  }
}

TEST_F(CachedReads, UseTheCachedStructureAfterChangesOfValues) {
  ASSERT_EQ(client_.text(gainsChain), "1.5\n0.25");
  server_.pump.reset();
  ASSERT_EQ(server_.gains.setValue(1, 3), ModelRes_Success);
  unsigned short sum = 99;
  EXPECT_EQ(client_.elementSum(gainsChain, sum), ModelRes_Success);
  EXPECT_EQ(sum, 2);
  std::vector<std::string> names{"before"};
  EXPECT_EQ(client_.childNames(gainsChain, names), ModelRes_Success);
  EXPECT_TRUE(names.empty());
  std::vector<unsigned short> ids{7};
  EXPECT_EQ(client_.childIds(gainsChain, ids), ModelRes_Success);
  EXPECT_TRUE(ids.empty());
  EXPECT_EQ(client_.elementNames(gainsChain, names), ModelRes_Success);
  EXPECT_EQ(names, (std::vector<std::string>{"p", "i"}));
  server_.pump.emplace(server_.manager);
  EXPECT_EQ(client_.text(gainsChain), "1.5\n3");
}

// A server that reads its tree again replaces all getters.
TEST_F(CachedReads, UseTheCacheAfterAGetterElsewhereWasReplaced) {
  const auto seven = [](std::int32_t& value) {
    value = 7;
    return ModelRes_Success;
  };
  server_.speed.setGetter(seven);
  ASSERT_EQ(client_.text(speedChain), "7");
  ASSERT_EQ(client_.text(gainsChain), "1.5\n0.25");
  server_.pump.reset();
  server_.speed.setGetter({});
  server_.speed.setGetter(seven);
  EXPECT_EQ(client_.text(gainsChain), "1.5\n0.25");
  server_.pump.emplace(server_.manager);
  EXPECT_EQ(client_.text(speedChain), "7");
}

TEST_F(CachedReads, SeeAChangeOfTheStructureAfterOneOfAValue) {
  std::vector<unsigned short> ids;
  const auto children = [&] {
    EXPECT_EQ(client_.childIds(driveChain, ids), ModelRes_Success);
    return ids;
  };
  const std::vector<unsigned short> before = children();
  ValuePart<std::int32_t> late(20, "late", 1);
  ASSERT_EQ(server_.speed.setValue(1), ModelRes_Success);
  ASSERT_EQ(server_.drive.add(&late), ModelRes_Success);
  EXPECT_EQ(children().size(), before.size() + 1);
  ASSERT_EQ(server_.speed.setValue(2), ModelRes_Success);
  ASSERT_EQ(server_.drive.remove(&late), ModelRes_Success);
  EXPECT_EQ(children(), before);
}

/// A part of a class of the program, with a growing number of elements.
class GrowingPart : public ModelPart {
 public:
  GrowingPart(ModelPartId id, EvtSrv::EventPortManager& manager)
      : ModelPart(id, "growing"), mutex_(manager.clientMutex) {}
  ~GrowingPart() override { detach(); }

  void grow() {
    const std::lock_guard lock(mutex_);
    invalidate();
    ++count_;
  }
  void changeText() {
    const std::lock_guard lock(mutex_);
    invalidateValue();
    ++text_;
  }

 protected:
  [[nodiscard]] bool isCacheable() const override { return true; }
  unsigned elementCount() const override { return count_; }
  ModelRes appendText(std::string& out, ModelPartIndex /*index*/) const override {
    out += std::to_string(text_);
    return ModelRes_Success;
  }

 private:
  KSTD::KThreadMutex& mutex_;
  unsigned count_ = 1;
  int text_ = 0;
};

TEST_F(CachedReads, SeeTheStructureOfADerivedPartChangeAfterItsText) {
  GrowingPart part(30, server_.manager);
  ASSERT_EQ(server_.drive.add(&part), ModelRes_Success);
  unsigned short sum = 0;
  for (unsigned short count = 1; count < 30; ++count) {
    EXPECT_EQ(client_.elementSum({1, 30}, sum), ModelRes_Success);
    EXPECT_EQ(sum, count);
    EXPECT_EQ(client_.text({1, 30}, 0), std::to_string(2 * (count - 1)));
    part.changeText();
    // A request about another part in between is served in an epoch of its own.
    if (count % 3 == 0) {
      EXPECT_EQ(client_.text(speedChain), "42");
    }
    part.changeText();
    part.grow();
  }
}

}  // namespace
