#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "modelsrv/value_parts.h"
#include "modelsrv/value_types.h"
#include "servers/stored_values.h"
#include "tests/support/scratch_directory.h"

// Any value that a client can store is the same value after a restart.

namespace modelsrvd {
namespace {

using ModelSrv::ModelRes_Success;

constexpr std::size_t randomValues = 2000;

/// A process with a part of one value, and one of several.
template <typename T>
class ExactTree {
 public:
  ExactTree(const std::string& file, T value, std::vector<T> values)
      : single_(1, "single", std::move(value)), array_(2, "array", std::move(values)) {
    EXPECT_EQ(root_.add(&single_), ModelRes_Success);
    EXPECT_EQ(root_.add(&array_), ModelRes_Success);
    StoredValues::Hooks hooks{[](const Error& error) { ADD_FAILURE() << error.text; },
                              [](const ModelSrv::ModelPart&) { return true; }};
    state_.emplace(file, root_, std::move(hooks));
    EXPECT_FALSE(state_->restore());
  }
  /// As if clients had stored the present values.
  void store() {
    state_->stored(single_);
    state_->stored(array_);
    state_->finish();
  }
  [[nodiscard]] std::vector<T> values() const {
    std::vector<T> all = array_.values();
    all.push_back(single_.value());
    return all;
  }

 private:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  ModelSrv::ModelRoot root_{&manager_};
  ModelSrv::ValuePart<T> single_;
  ModelSrv::ArrayPart<T> array_;
  std::optional<StoredValues> state_;
};

/// Equal bit by bit: so is a zero without its sign, or another not-a-number, not the same.
template <typename T>
bool areEqual(const T& left, const T& right) {
  if constexpr (std::is_same_v<T, std::string>) {
    return left == right;
  } else {
    using Bytes = std::array<unsigned char, sizeof(T)>;
    return std::bit_cast<Bytes>(left) == std::bit_cast<Bytes>(right);
  }
}

template <typename T>
std::vector<T> specialValues() {
  if constexpr (std::is_same_v<T, bool>) {
    return {false, true};
  } else if constexpr (std::is_same_v<T, std::string>) {
    std::string allBytes;
    for (int byte = 0; byte < 256; ++byte) {
      allBytes += static_cast<char>(byte);
    }
    return {"",
            " ",
            "42",
            "true",
            "null",
            "nan",
            "5\nany",
            "\"\\/\b\f\n\r\t",
            "\x7f",
            "\xed\xa0\x80",
            "\xef\xbb\xbf",
            "\xf4\x8f\xbf\xbf",
            "\xc0\x80",
            allBytes};
  } else {
    using Limits = std::numeric_limits<T>;
    std::vector<T> values{Limits::min(), Limits::lowest(), Limits::max(), T{0}, T{1}};
    if constexpr (std::is_floating_point_v<T>) {
      values.insert(values.end(), {T{-0.0}, Limits::denorm_min(), -Limits::denorm_min(),
                                   Limits::min() - Limits::denorm_min(), Limits::infinity(),
                                   -Limits::infinity(), Limits::quiet_NaN(), -Limits::quiet_NaN(),
                                   static_cast<T>(1.2345678901234568e-300), static_cast<T>(1e23),
                                   static_cast<T>(18446744073709551616.0), static_cast<T>(0.1)});
    }
    return values;
  }
}

template <typename T>
T randomValue(std::mt19937_64& random) {
  if constexpr (std::is_same_v<T, bool>) {
    return random() % 2 == 0;
  } else if constexpr (std::is_same_v<T, std::string>) {
    std::string bytes(static_cast<std::size_t>(random() % 20), '\0');
    for (char& byte : bytes) {
      byte = static_cast<char>(random());
    }
    return bytes;
  } else {
    const std::uint64_t bits = random();
    T value{};
    std::memcpy(&value, &bits, sizeof(T));
    return value;
  }
}

template <typename T>
class ExactState : public testing::Test {};

TYPED_TEST_SUITE(ExactState, ModelSrv::ValueTypes::into<testing::Types>);

TYPED_TEST(ExactState, HasEachValueOfTheType) {
  const auto seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  std::vector<TypeParam> values = specialValues<TypeParam>();
  for (std::size_t i = 0; i < randomValues; ++i) {
    values.push_back(randomValue<TypeParam>(random));
  }
  const test_support::ScratchDirectory directory;
  const std::string file = directory.file("state.json");
  const TypeParam last = values.back();
  values.pop_back();
  ExactTree<TypeParam>(file, last, values).store();
  const std::vector<TypeParam> restored =
      ExactTree<TypeParam>(file, {}, std::vector<TypeParam>(values.size())).values();
  values.push_back(last);
  ASSERT_EQ(restored.size(), values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const TypeParam& stored = values[i];
    const TypeParam& value = restored[i];
    EXPECT_TRUE(areEqual(value, stored))
        << testing::PrintToString(stored) << " became " << testing::PrintToString(value);
  }
}

}  // namespace
}  // namespace modelsrvd
