#include "gateway/exporter/value_table.h"

#include <gtest/gtest.h>

#include "gateway/wire/limits.h"
#include "tests/gateway/exporter/trees.h"

namespace {

using modelgate::PositionedValue;
using modelgate::ValueMark;
using modelgate::ValueTable;
using ModelSrv::ModelPartIndex_All;
using ModelSrv::ModelRes_Success;
using Marks = std::vector<ValueMark>;
using Values = std::vector<PositionedValue>;

struct ValueTableTest : testing::Test {
  void set(modelgate::Position position, std::string_view text) {
    table.set(position, ModelRes_Success, text);
  }
  Values read(modelgate::Position position, ModelSrv::ModelPartIndex element = ModelPartIndex_All) {
    Values values;
    table.read({position, element}, values);
    return values;
  }
  static PositionedValue whole(modelgate::Position position, std::string text) {
    return {position, ModelPartIndex_All, {ModelRes_Success, std::move(text)}};
  }
  static PositionedValue element(modelgate::Position position, ModelSrv::ModelPartIndex index,
                                 std::string text) {
    return {position, index, {ModelRes_Success, std::move(text)}};
  }

  modelgate::TreeIndex index{gateway_test::sampleShape()};
  ValueTable table{index};
};

TEST_F(ValueTableTest, HasNoValuesAtFirst) {
  EXPECT_EQ(read(1).front().value.result, ModelSrv::ModelRes_NoValue);
  EXPECT_EQ(table.takeMarks(), Marks{});
}

TEST_F(ValueTableTest, MarksAChangedPartOnce) {
  set(5, "a");
  set(1, "1");
  set(5, "b");
  EXPECT_EQ(table.takeMarks(), (Marks{{5, ModelPartIndex_All}, {1, ModelPartIndex_All}}));
  EXPECT_EQ(read(5), Values{whole(5, "b")});
  set(5, "b");
  EXPECT_EQ(table.takeMarks(), Marks{});
}

TEST_F(ValueTableTest, CallsItsHandlerForTheFirstMarkOnly) {
  int calls = 0;
  table.setHandler([&] { ++calls; });
  set(5, "a");
  set(5, "b");
  set(1, "1");
  EXPECT_EQ(calls, 1);
  static_cast<void>(table.takeMarks());
  set(1, "1");
  EXPECT_EQ(calls, 1);
  set(1, "2");
  EXPECT_EQ(calls, 2);
}

TEST_F(ValueTableTest, ChangesElementsWithinTheWholeValue) {
  set(2, "1\n2\n3");
  static_cast<void>(table.takeMarks());
  EXPECT_TRUE(table.setElement(2, 1, "22"));
  EXPECT_EQ(table.takeMarks(), (Marks{{2, 1}}));
  EXPECT_EQ(read(2), Values{whole(2, "1\n22\n3")});
  EXPECT_EQ(read(2, 1), Values{element(2, 1, "22")});
  EXPECT_TRUE(table.setElement(2, 0, ""));
  EXPECT_TRUE(table.setElement(2, 2, "333"));
  EXPECT_EQ(table.takeMarks(), (Marks{{2, ModelPartIndex_All}}));
  EXPECT_EQ(read(2), Values{whole(2, "\n22\n333")});
  EXPECT_TRUE(table.setElement(2, 2, "333"));
  EXPECT_EQ(table.takeMarks(), Marks{});
}

TEST_F(ValueTableTest, RejectsElementsOfWhatIsNotKnown) {
  EXPECT_FALSE(table.setElement(2, 0, "1"));
  set(2, "1\n2\n3");
  EXPECT_FALSE(table.setElement(2, 3, "1"));
  EXPECT_FALSE(table.setElement(1, 0, "1"));
}

TEST_F(ValueTableTest, KeepsElementsWithLineFeedsApart) {
  EXPECT_FALSE(table.isWhole(7, "a\nb\nc"));
  EXPECT_TRUE(table.isWhole(7, "a\nb"));
  EXPECT_TRUE(table.isWhole(5, "a\nb\nc"));
  table.setElements(7, {"a\nb", "c"});
  EXPECT_EQ(table.takeMarks(), (Marks{{7, ModelPartIndex_All}}));
  EXPECT_EQ(read(7), (Values{element(7, 0, "a\nb"), element(7, 1, "c")}));
  table.setElements(7, {"a\nb", "c"});
  EXPECT_EQ(table.takeMarks(), Marks{});
  EXPECT_TRUE(table.setElement(7, 1, "d"));
  EXPECT_EQ(read(7, 1), Values{element(7, 1, "d")});
  set(7, "x\ny");
  EXPECT_EQ(read(7), Values{whole(7, "x\ny")});
  EXPECT_TRUE(table.setElement(7, 0, "1\n2"));
  EXPECT_EQ(read(7), (Values{element(7, 0, "1\n2"), element(7, 1, "y")}));
}

TEST_F(ValueTableTest, KeepsWhyThereIsNoValue) {
  set(5, "a");
  table.set(5, ModelSrv::ModelRes_Unreachable, "ignored");
  const Values expected{{5, ModelPartIndex_All, {ModelSrv::ModelRes_Unreachable, {}}}};
  EXPECT_EQ(read(5), expected);
}

TEST_F(ValueTableTest, HasNoTextsThatNoMessageHolds) {
  const std::string large(modelgate::maxPayload, 'x');
  set(5, large);
  EXPECT_EQ(read(5).front().value.result, ModelSrv::ModelRes_TooLarge);
  table.setElements(7, {large, "a"});
  EXPECT_EQ(read(7).front().value.result, ModelSrv::ModelRes_TooLarge);
  set(7, "a\nb");
  EXPECT_FALSE(table.setElement(7, 0, large));
  EXPECT_EQ(read(7), Values{whole(7, "a\nb")});
}

}  // namespace
