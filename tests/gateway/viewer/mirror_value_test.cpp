#include "gateway/viewer/mirror_value.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>

namespace {

using modelgate::MirrorValue;
using modelgate::Value;

static_assert(sizeof(MirrorValue) == 16);

TEST(MirrorValue, HasATextOfAnyLength) {
  for (const unsigned length : {0U, 1U, 14U, 15U, 16U, 17U, 1'000U, 100'000U}) {
    std::string text(length, 'x');
    if (length > 0) {
      text.front() = '\0';
      text.back() = '\xFF';
    }
    const MirrorValue value(text);
    EXPECT_EQ(value.text(), text);
    EXPECT_EQ(value.result(), ModelSrv::ModelRes_Success);
    EXPECT_EQ(value.heapSize(), length > 15 ? length : 0);
  }
}

TEST(MirrorValue, HasEachResultOfAServer) {
  for (unsigned number = 1; number < 64; ++number) {
    const auto result = static_cast<ModelSrv::ModelRes>(number);
    const MirrorValue value(Value{result, {}});
    EXPECT_EQ(value.result(), result);
    EXPECT_TRUE(value.text().empty());
  }
}

TEST(MirrorValue, HasNoResultOfAConnection) {
  EXPECT_EQ(MirrorValue(ModelSrv::ModelRes_Timeout).result(), ModelSrv::ModelRes_Unreachable);
  EXPECT_EQ(MirrorValue(static_cast<ModelSrv::ModelRes>(4'000'000)).result(),
            ModelSrv::ModelRes_Unreachable);
  EXPECT_EQ(MirrorValue().result(), ModelSrv::ModelRes_Unreachable);
}

TEST(MirrorValue, ComparesTextsAndResults) {
  const std::string large(100, 'a');
  EXPECT_EQ(MirrorValue(large), MirrorValue(large));
  EXPECT_FALSE(MirrorValue(large) == MirrorValue(std::string(100, 'b')));
  EXPECT_FALSE(MirrorValue("") == MirrorValue(ModelSrv::ModelRes_NoValue));
  EXPECT_EQ(MirrorValue(ModelSrv::ModelRes_NoValue), MirrorValue(ModelSrv::ModelRes_NoValue));
}

TEST(MirrorValue, Moves) {
  MirrorValue from(std::string(100, 'a'));
  MirrorValue to(std::string(50, 'b'));
  to = std::move(from);
  EXPECT_EQ(to.text(), std::string(100, 'a'));
  MirrorValue third(std::move(to));
  EXPECT_EQ(third.text(), std::string(100, 'a'));
}

TEST(MirrorValue, TakesNoTextAboveTheLimit) {
  EXPECT_EQ(MirrorValue(std::string(ModelSrv::ModelValueText_Max + 1, 'x')).result(),
            ModelSrv::ModelRes_TooLarge);
}

}  // namespace
