#include "gateway/viewer/shape_collector.h"

#include <gmock/gmock.h>

#include "gateway/wire/limits.h"
#include "gateway/wire/shape.h"

namespace {

using modelgate::pageHash;
using modelgate::ShapeCollector;
using testing::ElementsAre;
using Result = ShapeCollector::Result;

TEST(ShapeCollector, TakesPagesInAnyOrder) {
  ShapeCollector collector({pageHash("one"), pageHash("two")});
  EXPECT_EQ(collector.take(1, "two"), Result::taken);
  EXPECT_EQ(collector.missing(), 1U);
  EXPECT_EQ(collector.take(0, "one"), Result::taken);
  EXPECT_TRUE(collector.isComplete());
  EXPECT_THAT(collector.pages(), ElementsAre("one", "two"));
}

TEST(ShapeCollector, TakesAPageOnceAndOnlyWhereItBelongs) {
  ShapeCollector collector({pageHash("one"), pageHash("two")});
  EXPECT_EQ(collector.take(0, "two"), Result::wrong);
  EXPECT_EQ(collector.take(2, "one"), Result::ignored);
  EXPECT_EQ(collector.take(0, "one"), Result::taken);
  EXPECT_EQ(collector.take(0, "one"), Result::ignored);
  EXPECT_FALSE(collector.isComplete());
}

TEST(ShapeCollector, KeepsNoPageAboveTheLimit) {
  const std::string large(modelgate::maxPage + 1, 'x');
  ShapeCollector collector({pageHash(large)});
  EXPECT_EQ(collector.take(0, large), Result::wrong);
  const std::string whole(modelgate::maxPage, 'x');
  ShapeCollector fits({pageHash(whole)});
  EXPECT_EQ(fits.take(0, whole), Result::taken);
}

TEST(ShapeCollector, HasAnEmptyPageWithoutAMessage) {
  const ShapeCollector collector({pageHash("")});
  EXPECT_TRUE(collector.isComplete());
  EXPECT_THAT(collector.pages(), ElementsAre(""));
}

TEST(ShapeCollector, IsNeverCompleteWithoutPagesOrWithTooMany) {
  EXPECT_FALSE(ShapeCollector({}).isComplete());
  ShapeCollector many(std::vector<std::string>(modelgate::maxPages + 1, pageHash("")));
  EXPECT_FALSE(many.isComplete());
  EXPECT_EQ(many.take(0, ""), Result::ignored);
}

}  // namespace
