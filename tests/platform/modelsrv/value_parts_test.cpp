#include "modelsrv/value_parts.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "modelsrv/source/part_access.h"

namespace {

using namespace ModelSrv;
using namespace std::string_literals;
using internal::PartAccess;

ModelRes load(ModelPart& part, const std::string& text, ModelPartIndex index = ModelPartIndex_All) {
  std::istringstream stream(text);
  return part.load(stream, false, index);
}

ModelRes storeFromClient(ModelPart& part, std::string_view text, bool flag, ModelPartIndex index) {
  std::string reason;
  return PartAccess::storeFromClient(part, text, flag, index, reason);
}

std::string save(ModelPart& part, ModelPartIndex index = ModelPartIndex_All) {
  std::ostringstream stream;
  EXPECT_EQ(part.save(stream, index), ModelRes_Success);
  return stream.str();
}

TEST(ValuePart, IsSmall) {
  EXPECT_LT(sizeof(ValuePart<double>), 200U);
  EXPECT_LT(sizeof(ValuePart<std::int64_t>), 200U);
}

TEST(ValuePart, HasTheValuesGivenAtConstruction) {
  ValuePart<std::int32_t> part(7, "speed", 42, ModelPartStatus_ReadOnly);
  EXPECT_EQ(part.id(), 7);
  EXPECT_EQ(part.name(), "speed");
  EXPECT_EQ(part.status(), ModelPartStatus_ReadOnly);
  EXPECT_EQ(part.value(), 42);
  EXPECT_EQ(save(part), "42");
}

TEST(ValuePart, TruncatesANameThatIsTooLong) {
  ValuePart<bool> part(1, std::string(ModelName_Max + 1, 'n'));
  EXPECT_EQ(part.name().size(), ModelName_Max);
}

TEST(ValuePart, LoadsTheRestOfTheStream) {
  ValuePart<std::int32_t> part(1, "", 0);
  std::istringstream stream("skipped 12");
  std::string word;
  stream >> word;
  EXPECT_EQ(part.load(stream, false, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(part.value(), 12);
  EXPECT_EQ(stream.peek(), std::istringstream::traits_type::eof());
}

TEST(ValuePart, LoadsFromAStreamThatWasReadToItsEnd) {
  ValuePart<std::string> part(1, "", "before");
  std::istringstream stream("word");
  std::string word;
  stream >> word;
  EXPECT_EQ(part.load(stream, false, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(part.value(), "");
}

TEST(ValuePart, AppendsToTheStream) {
  ValuePart<bool> part(1, "", true);
  std::ostringstream stream;
  stream << "value=";
  EXPECT_EQ(part.save(stream, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(stream.str(), "value=true");
}

TEST(ValuePart, RejectsAnIndexAndChangesNothing) {
  ValuePart<std::int32_t> part(1, "", 5);
  EXPECT_EQ(load(part, "6", 0), ModelRes_NoSuchIndex);
  EXPECT_EQ(part.value(), 5);
  std::ostringstream stream;
  EXPECT_EQ(part.save(stream, 0), ModelRes_NoSuchIndex);
  EXPECT_EQ(stream.str(), "");
}

TEST(ValuePart, ReturnsWhyATextWasRejected) {
  ValuePart<std::uint8_t> part(1, "", 5);
  EXPECT_EQ(load(part, "x"), ModelRes_BadText);
  EXPECT_EQ(load(part, "256"), ModelRes_OutOfRange);
  EXPECT_EQ(part.value(), 5);
}

TEST(ValuePart, RejectsATextThatIsTooLarge) {
  ValuePart<std::string> part(1, "", "before");
  EXPECT_EQ(part.setValue(std::string(ModelValueText_Max + 1, 'x')), ModelRes_TooLarge);
  EXPECT_EQ(part.value(), "before");
  EXPECT_EQ(part.setValue(std::string(ModelValueText_Max, 'x')), ModelRes_Success);
  ValuePart<std::string> truncated(1, "", std::string(ModelValueText_Max + 1, 'x'));
  EXPECT_EQ(truncated.value().size(), ModelValueText_Max);
}

TEST(PartAccess, AllowsClientsToStoreAsTheStatusSays) {
  const struct {
    ModelPartStatus status;
    bool flag;
    ModelRes result;
  } cases[] = {
      {ModelPartStatus_ReadWrite, false, ModelRes_Success},
      {ModelPartStatus_ReadWrite, true, ModelRes_Success},
      {ModelPartStatus_ReadOnly, false, ModelRes_ReadOnly},
      {ModelPartStatus_ReadOnly, true, ModelRes_ReadOnly},
      {ModelPartStatus_Protected, false, ModelRes_Protected},
      {ModelPartStatus_Protected, true, ModelRes_Success},
  };
  for (const auto& c : cases) {
    ValuePart<std::int32_t> value(1, "", 1, c.status);
    EXPECT_EQ(storeFromClient(value, "2", c.flag, ModelPartIndex_All), c.result);
    EXPECT_EQ(value.value(), c.result == ModelRes_Success ? 2 : 1);
    ArrayPart<std::int32_t> array(1, "", {1, 1}, {}, c.status);
    EXPECT_EQ(storeFromClient(array, "2", c.flag, 1), c.result);
    EXPECT_EQ(array.value(1), c.result == ModelRes_Success ? 2 : 1);
    EXPECT_EQ(load(value, "3"), ModelRes_Success) << "the program's own store has no access check";
  }
}

TEST(StoreCheck, SeesAndVetoesClientsStores) {
  ValuePart<std::int32_t> part(1, "", 1);
  std::vector<std::int32_t> seen;
  part.setStoreCheck([&](const std::int32_t& value, ModelPartIndex index) {
    EXPECT_EQ(index, ModelPartIndex_All);
    EXPECT_EQ(part.value(), 1) << "called before the value is applied";
    seen.push_back(value);
    return value > 10 ? ModelRes_Vetoed : ModelRes_Success;
  });
  EXPECT_EQ(storeFromClient(part, "11", false, ModelPartIndex_All), ModelRes_Vetoed);
  EXPECT_EQ(part.value(), 1);
  EXPECT_EQ(storeFromClient(part, "10", false, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(part.value(), 10);
  EXPECT_EQ(part.setValue(99), ModelRes_Success);
  EXPECT_EQ(seen, (std::vector<std::int32_t>{11, 10}));
  part.setStoreCheck({});
  EXPECT_EQ(storeFromClient(part, "11", false, ModelPartIndex_All), ModelRes_Success);
}

TEST(StoreCheck, MayReturnAnyResultExceptThoseOfTheConnection) {
  ValuePart<std::int32_t> part(1, "", 1);
  part.setStoreCheck([](const std::int32_t&, ModelPartIndex) { return ModelRes_OutOfRange; });
  EXPECT_EQ(storeFromClient(part, "2", false, ModelPartIndex_All), ModelRes_OutOfRange);
  part.setStoreCheck([](const std::int32_t&, ModelPartIndex) { return ModelRes_Timeout; });
  EXPECT_EQ(storeFromClient(part, "2", false, ModelPartIndex_All), ModelRes_Vetoed);
}

TEST(StoreCheck, MayReplaceItselfWhileItRuns) {
  ValuePart<std::int32_t> part(1, "", 1);
  const std::string keptAlive(100, 'x');
  part.setStoreCheck([&part, keptAlive](const std::int32_t&, ModelPartIndex) {
    part.setStoreCheck({});
    return keptAlive.size() == 100 ? ModelRes_Success : ModelRes_Vetoed;
  });
  EXPECT_EQ(storeFromClient(part, "2", false, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(part.value(), 2);
}

TEST(StoreCheck, IsCalledForEveryElementBeforeAnyIsApplied) {
  ArrayPart<std::int32_t> part(1, "", {1, 2, 3});
  std::vector<ModelPartIndex> indices;
  part.setStoreCheck([&](const std::int32_t& value, ModelPartIndex index) {
    indices.push_back(index);
    return value == 6 ? ModelRes_Vetoed : ModelRes_Success;
  });
  EXPECT_EQ(storeFromClient(part, "4\n5\n6", false, ModelPartIndex_All), ModelRes_Vetoed);
  EXPECT_EQ(part.values(), (std::vector<std::int32_t>{1, 2, 3}));
  EXPECT_EQ(indices, (std::vector<ModelPartIndex>{0, 1, 2}));
}

TEST(ArrayPart, SavesElementsAndTheWholeValue) {
  ArrayPart<double> part(1, "gains", {1.5, 0.25}, {"p", "i"});
  EXPECT_EQ(save(part), "1.5\n0.25");
  EXPECT_EQ(save(part, 1), "0.25");
  std::ostringstream stream;
  EXPECT_EQ(part.save(stream, 2), ModelRes_NoSuchIndex);
  EXPECT_EQ(part.save(stream, ModelPartIndex_Void), ModelRes_NoSuchIndex);
  EXPECT_EQ(stream.str(), "");
}

TEST(ArrayPart, StoresTheWholeValueOrNothing) {
  ArrayPart<std::uint8_t> part(1, "", {1, 2, 3});
  EXPECT_EQ(load(part, "4\n 5 \n6"), ModelRes_Success);
  EXPECT_EQ(part.values(), (std::vector<std::uint8_t>{4, 5, 6}));
  const struct {
    std::string text;
    ModelRes result;
  } rejected[] = {
      {"7\n8", ModelRes_BadText},      {"7\n8\n9\n10", ModelRes_BadText},
      {"7\n8\n9\n", ModelRes_BadText}, {"7\n8\n256", ModelRes_OutOfRange},
      {"7\n\n9", ModelRes_BadText},    {"", ModelRes_BadText},
      {"7\n8\nx", ModelRes_BadText},
  };
  for (const auto& c : rejected) {
    EXPECT_EQ(load(part, c.text), c.result) << c.text;
    EXPECT_EQ(part.values(), (std::vector<std::uint8_t>{4, 5, 6})) << c.text;
  }
}

TEST(ArrayPart, StoresOneElement) {
  ArrayPart<std::int16_t> part(1, "", {1, 2, 3});
  EXPECT_EQ(load(part, "-9", 2), ModelRes_Success);
  EXPECT_EQ(load(part, "-9", 3), ModelRes_NoSuchIndex);
  EXPECT_EQ(load(part, "1\n2", 0), ModelRes_BadText);
  EXPECT_EQ(part.setValue(3, 1), ModelRes_NoSuchIndex);
  EXPECT_EQ(part.value(3), 0);
  EXPECT_EQ(part.values(), (std::vector<std::int16_t>{1, 2, -9}));
}

TEST(ArrayPart, ReadsOneTextForEachLine) {
  ArrayPart<std::string> part(1, "", {"a", "b", "c"});
  EXPECT_EQ(load(part, " x\n\ny z"), ModelRes_Success);
  EXPECT_EQ(part.values(), (std::vector<std::string>{" x", "", "y z"}));
  EXPECT_EQ(save(part), " x\n\ny z");
  EXPECT_EQ(load(part, "3\na\nb", 1), ModelRes_Success);
  EXPECT_EQ(part.value(1), "a\nb");
}

TEST(ArrayPart, ReadsTheWholeTextForASingleElement) {
  ArrayPart<std::string> part(1, "", {"a"});
  EXPECT_EQ(load(part, "x\ny"), ModelRes_Success);
  EXPECT_EQ(part.value(0), "x\ny");
  EXPECT_EQ(load(part, "3\nx\0z"s), ModelRes_Success);
  EXPECT_EQ(part.value(0), "x\0z"s);
  ArrayPart<std::int32_t> number(1, "", {1});
  EXPECT_EQ(load(number, "1\n2"), ModelRes_BadText);
}

TEST(ArrayPart, SetsAllValuesOrNone) {
  ArrayPart<std::int32_t> part(1, "", {1, 2});
  EXPECT_EQ(part.setValues({3}), ModelRes_BadArgument);
  EXPECT_EQ(part.setValues({3, 4, 5}), ModelRes_BadArgument);
  EXPECT_EQ(part.values(), (std::vector<std::int32_t>{1, 2}));
  EXPECT_EQ(part.setValues({3, 4}), ModelRes_Success);
  EXPECT_EQ(part.values(), (std::vector<std::int32_t>{3, 4}));
  ArrayPart<std::string> texts(1, "", {"a", "b"});
  EXPECT_EQ(texts.setValues({"c", std::string(ModelValueText_Max + 1, 'x')}), ModelRes_TooLarge);
  EXPECT_EQ(texts.values(), (std::vector<std::string>{"a", "b"}));
}

TEST(ArrayPart, RejectsASaveOfTheWholeValueAboveTheLimit) {
  ArrayPart<std::string> part(1, "", {std::string(ModelValueText_Max, 'x'), "y"});
  std::ostringstream stream;
  EXPECT_EQ(part.save(stream, ModelPartIndex_All), ModelRes_TooLarge);
  EXPECT_EQ(stream.str(), "");
  EXPECT_EQ(save(part, 1), "y");
}

TEST(ArrayPart, TruncatesOrFillsUpItsArguments) {
  ArrayPart<std::int32_t> none(1, "", {});
  EXPECT_EQ(none.values(), (std::vector<std::int32_t>{0}));
  ArrayPart<bool> many(1, "", std::vector<bool>(70000, true), {"first"});
  EXPECT_EQ(many.values().size(), ModelPartElements_Max);
  EXPECT_EQ(PartAccess::elementNames(many).size(), ModelPartElements_Max);
  EXPECT_EQ(PartAccess::elementNames(many)[0], "first");
  ArrayPart<std::int32_t> named(1, "", {1}, {"a", "b"});
  EXPECT_EQ(PartAccess::elementNames(named), std::vector<std::string>{"a"});
}

template <typename T>
class EveryType : public testing::Test {};

TYPED_TEST_SUITE(EveryType, ValueTypes::into<testing::Types>);

TYPED_TEST(EveryType, IsStoredAndReadAsAValueAndAsAnArray) {
  const std::string one = std::is_same_v<TypeParam, bool> ? "true" : "1";
  const std::string zero = std::is_same_v<TypeParam, bool> ? "false" : "0";
  ValuePart<TypeParam> value(1, "");
  EXPECT_EQ(load(value, "1"), ModelRes_Success);
  EXPECT_EQ(load(value, "1"), ModelRes_Success);
  ArrayPart<TypeParam> array(1, "", std::vector<TypeParam>(3));
  EXPECT_EQ(load(array, "0\n1\n0"), ModelRes_Success);
  if constexpr (!std::is_same_v<TypeParam, std::string>) {
    EXPECT_EQ(save(value), one);
    EXPECT_EQ(save(array), zero + "\n" + one + "\n" + zero);
  } else {
    EXPECT_EQ(save(value), "1");
    EXPECT_EQ(save(array), "0\n1\n0");
  }
}

TEST(ModelPart, HasNoValue) {
  ModelPart part(1, "part");
  EXPECT_EQ(load(part, "1"), ModelRes_NoValue);
  std::ostringstream stream;
  EXPECT_EQ(part.save(stream, ModelPartIndex_All), ModelRes_NoValue);
  EXPECT_EQ(part.update(nullptr, 0), ModelRes_DoNothing);
}

TEST(ModelPart, IsSubscribableByDefault) {
  ValuePart<bool> part(1, "");
  EXPECT_TRUE(part.subscribable());
  part.setSubscribable(false);
  EXPECT_FALSE(part.subscribable());
}

}  // namespace
