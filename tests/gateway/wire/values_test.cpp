#include "gateway/wire/values.h"

#include <gtest/gtest.h>

#include "gateway/wire/limits.h"
#include "tests/gateway/wire/hex.h"

namespace {

using namespace ModelSrv;
using modelgate::Batch;
using modelgate::decodeBatch;
using modelgate::decodeValuePage;
using modelgate::maxExact;
using modelgate::PositionedValue;
using modelgate::ValuePage;
using wire_tests::fromHex;
using wire_tests::toHex;

PositionedValue valueAt(std::uint32_t position, std::string text,
                        ModelPartIndex index = ModelPartIndex_All) {
  return {position, index, {ModelRes_Success, std::move(text)}};
}

Batch sampleBatch() {
  Batch batch{maxExact, 3, 1001, 1000, 1'700'000'000'123, 5000, {}};
  batch.values = {valueAt(0, "42"),
                  valueAt(7, std::string("\xFF\0", 2)),
                  valueAt(70'000, "", 65'533),
                  {8, ModelPartIndex_All, {ModelRes_TooLarge, ""}},
                  {9, 0, {ModelRes_OutcomeUnknown, ""}}};
  return batch;
}

// The parts of a batch with no values, whose count follows.
constexpr std::string_view headInHex =
    "a7 65 65706f6368 01 65 7368617065 02 63 736571 04 64 70726576 03 64 74696d65 05"
    "64 6d6f6e6f 06 66 76616c756573";

bool takesValues(std::string_view hex) {
  return decodeBatch(fromHex(headInHex) + fromHex(hex)).has_value();
}

TEST(WireBatch, ComesBackAsItWasEncoded) {
  const Batch batch = sampleBatch();
  EXPECT_EQ(decodeBatch(encodeBatch(batch)), batch);
}

TEST(WireBatch, HeartbeatHasTheseBytes) {
  const Batch batch{1, 2, 4, 3, 5, 6, {}};
  EXPECT_EQ(encodeBatch(batch), fromHex(headInHex) + "\x80");
  EXPECT_EQ(decodeBatch(fromHex(headInHex) + "\x80"), batch);
}

TEST(WireBatch, TimeBefore1970IsNegative) {
  Batch batch;
  batch.time = -1;
  EXPECT_EQ(decodeBatch(encodeBatch(batch)), batch);
}

TEST(WireBatch, RefusesEachCutAndWhatFollows) {
  const std::string whole = encodeBatch(sampleBatch());
  EXPECT_TRUE(wire_tests::refusesEachCut(
      whole, [](const std::string& bytes) { return decodeBatch(bytes).has_value(); }));
  EXPECT_FALSE(decodeBatch(whole + '\0'));
}

TEST(WireBatch, IgnoresUnknownKeysAndTrailingFields) {
  Batch batch{1, 2, 4, 3, 5, 6, {valueAt(1, "a"), valueAt(2, "b", 3)}};
  const std::string bytes = fromHex("a9 63 666f6f 83010282f6f4") + fromHex(headInHex).substr(1) +
                            fromHex("82 82 01 6161  85 02 6162 03 a16178f6 fb3ff199999999999a") +
                            fromHex("62 7a7a bf 6161 9f ff ff");
  EXPECT_EQ(decodeBatch(bytes), batch);
}

TEST(WireBatch, RequiresEachKeyOnce) {
  const std::string whole = fromHex(headInHex) + "\x80";
  EXPECT_TRUE(decodeBatch(whole));
  // "epoch" becomes "EPOCH", and so on.
  for (const char* const key : {"epoch", "shape", "seq", "prev", "time", "mono", "values"}) {
    std::string missing = whole;
    missing[missing.find(key)] = 'X';
    EXPECT_FALSE(decodeBatch(missing)) << key;
  }
  std::string twice = whole + fromHex("63 736571 04");
  twice[0] = '\xA8';
  EXPECT_FALSE(decodeBatch(twice));
}

TEST(WireBatch, RefusesWrongKinds) {
  EXPECT_TRUE(takesValues("80"));
  EXPECT_TRUE(takesValues("81 82 00 60"));
  for (const char* const values :
       {"a0", "00", "81 00", "81 80", "81 81 00", "81 82 00 f6", "81 82 00 20", "81 82 00 00",
        "81 82 20 60", "81 82 6130 60", "81 83 00 60 f6", "81 83 00 60 20", "81 82 00 61ff",
        "82 82 00 60", "9f 82 00 60"}) {
    EXPECT_FALSE(takesValues(values)) << values;
  }
  EXPECT_FALSE(decodeBatch(""));
  EXPECT_FALSE(decodeBatch("\x80"));
  EXPECT_FALSE(decodeBatch("{}"));
  EXPECT_FALSE(decodeBatch(fromHex("a1 01 02")));
}

TEST(WireBatch, ChecksEachLimit) {
  EXPECT_TRUE(takesValues("81 82 1a000f423f 60"));   // 999,999
  EXPECT_FALSE(takesValues("81 82 1a000f4240 60"));  // 1,000,000
  EXPECT_TRUE(takesValues("81 83 00 60 19fffd"));
  EXPECT_FALSE(takesValues("81 83 00 60 19fffe"));
  Batch batch;
  batch.epoch = batch.shape = batch.sequence = batch.previous = batch.monotonic = maxExact;
  batch.time = -static_cast<std::int64_t>(maxExact);
  EXPECT_TRUE(decodeBatch(encodeBatch(batch)));
  for (std::uint64_t* const number :
       {&batch.epoch, &batch.shape, &batch.sequence, &batch.previous, &batch.monotonic}) {
    ++*number;
    EXPECT_FALSE(decodeBatch(encodeBatch(batch)));
    --*number;
  }
  --batch.time;
  EXPECT_FALSE(decodeBatch(encodeBatch(batch)));
}

TEST(WireBatch, HasAtMostTheLargestPayload) {
  Batch batch;
  batch.values = {valueAt(0, "")};
  const std::size_t head = encodeBatch(batch).size();
  batch.values[0].value.text.assign(modelgate::maxPayload - head - 4, 'x');
  EXPECT_EQ(encodeBatch(batch).size(), modelgate::maxPayload);
  EXPECT_EQ(decodeBatch(encodeBatch(batch)), batch);
  batch.values[0].value.text += 'x';
  EXPECT_FALSE(decodeBatch(encodeBatch(batch)));
}

TEST(WireBatch, ResultsOfLaterVersionsAreErrorsOfTheSystem) {
  const auto batch = decodeBatch(fromHex(headInHex) + fromHex("83 8200 18c8 8201 04 8202 1820"));
  ASSERT_TRUE(batch);
  EXPECT_EQ(batch->values[0].value.result, ModelRes_SystemError);
  EXPECT_EQ(batch->values[1].value.result, ModelRes_NoValue);
  EXPECT_EQ(batch->values[2].value.result, ModelRes_SystemError);
}

TEST(WireBatch, SizesOfValuesAddUp) {
  Batch batch = sampleBatch();
  std::size_t size = 0;
  for (const PositionedValue& value : batch.values) {
    size += encodedSize(value);
  }
  const std::size_t whole = encodeBatch(batch).size();
  batch.values.clear();
  EXPECT_EQ(encodeBatch(batch).size() + size, whole);
  EXPECT_LT(encodeBatch(batch).size() + 4, 128U);
}

TEST(WireBatch, ClaimedCountsCostNoMemory) {
  EXPECT_FALSE(takesValues("9bffffffffffffffff"));
  EXPECT_FALSE(takesValues("9a7fffffff 8200 60"));
}

TEST(WireValuePage, ComesBackAsItWasEncoded) {
  const ValuePage page{1, 2, 3, sampleBatch().values};
  EXPECT_EQ(decodeValuePage(encodeValuePage(page)), page);
  EXPECT_TRUE(wire_tests::refusesEachCut(encodeValuePage(page), [](const std::string& bytes) {
    return decodeValuePage(bytes).has_value();
  }));
}

TEST(WireValuePage, HasTheseBytes) {
  const ValuePage page{1, 2, 3, {valueAt(4, "5")}};
  EXPECT_EQ(toHex(encodeValuePage(page)),
            toHex(fromHex("a4 65 65706f6368 01 65 7368617065 02 63 736571 03 66 76616c756573"
                          "81 82 04 61 35")));
}

TEST(WireValuePage, IgnoresTheOtherKeysOfABatch) {
  const Batch batch = sampleBatch();
  const ValuePage page{batch.epoch, batch.shape, batch.sequence, batch.values};
  EXPECT_EQ(decodeValuePage(encodeBatch(batch)), page);
  EXPECT_FALSE(decodeBatch(encodeValuePage(page)));
}

TEST(WireValuePage, HasAtMostTheSizeOfAPage) {
  ValuePage page{1, 2, 3, {valueAt(0, "")}};
  const std::size_t head = encodeValuePage(page).size();
  EXPECT_LT(head, 64U);
  page.values[0].value.text.assign(modelgate::maxPage - head - 2, 'x');
  EXPECT_EQ(encodeValuePage(page).size(), modelgate::maxPage);
  EXPECT_TRUE(decodeValuePage(encodeValuePage(page)));
  page.values[0].value.text += 'x';
  EXPECT_FALSE(decodeValuePage(encodeValuePage(page)));
}

}  // namespace
