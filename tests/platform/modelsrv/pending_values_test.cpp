#include "modelsrv/source/pending_values.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "modelsrv/value_parts.h"

// The pending changes of one watch, without a clock.

namespace {

using namespace ModelSrv;
using internal::PendingValues;
using testing::ElementsAre;
using testing::IsEmpty;

class PendingChanges : public testing::Test {
 protected:
  void add(ModelPart& part, ModelPartIndex index = ModelPartIndex_All) {
    values_.add(part, index, ++timeNs_);
  }

  /// Takes what is queued, each as "NAME[INDEX] xCHANGES".
  std::vector<std::string> take(std::int64_t restsUntil) {
    std::vector<std::string> lines;
    while (!values_.isEmpty()) {
      const PendingValues::Change change = values_.first();
      const bool isElement = change.index != ModelPartIndex_All;
      lines.push_back(std::string(change.part->name()) +
                      (isElement ? "[" + std::to_string(change.index) + "]" : "") + " x" +
                      std::to_string(change.count));
      values_.pop(restsUntil);
    }
    return lines;
  }

  PendingValues values_;
  std::int64_t timeNs_ = 0;
  ModelPart a_{1, "a"};
  ModelPart b_{2, "b"};
};

TEST_F(PendingChanges, OfAPartAreSentOncePeriod) {
  add(a_);
  EXPECT_THAT(take(100), ElementsAre("a x1"));
  EXPECT_EQ(values_.nextWake(), 100);
  add(a_, 3);
  add(a_);
  add(a_, 4);
  add(b_);
  EXPECT_THAT(take(110), ElementsAre("b x1")) << "another part does not rest";
  values_.wake(99);
  EXPECT_THAT(take(0), IsEmpty());
  values_.wake(100);
  EXPECT_THAT(take(200), ElementsAre("a x3"));
  values_.wake(200);
  EXPECT_EQ(values_.parts(), 0U);
  EXPECT_EQ(values_.nextWake(), 0);
}

TEST_F(PendingChanges, OfElementsRestWithTheirPart) {
  add(a_, 0);
  add(a_, 1);
  EXPECT_THAT(take(100), ElementsAre("a[0] x1"));
  values_.wake(100);
  EXPECT_THAT(take(200), ElementsAre("a[1] x1"));
  add(a_, 1);
  add(a_, 2);
  add(a_, 1);
  values_.wake(200);
  EXPECT_THAT(take(300), ElementsAre("a x3")) << "several elements are one update";
}

TEST_F(PendingChanges, WithoutAPeriodAreSentForEachElement) {
  add(a_, 0);
  add(a_, 1);
  add(a_, 0);
  EXPECT_THAT(take(0), ElementsAre("a[0] x2", "a[1] x1"));
  EXPECT_EQ(values_.bytes(), 0U);
}

TEST_F(PendingChanges, AreDroppedWhileTheyRest) {
  add(a_);
  add(b_);
  EXPECT_THAT(take(100), ElementsAre("a x1", "b x1"));
  add(a_, 1);
  values_.drop(a_);
  values_.wake(100);
  EXPECT_EQ(values_.parts(), 0U);
  add(a_);
  take(100);
  values_.clear();
  EXPECT_EQ(values_.nextWake(), 0);
}

}  // namespace
