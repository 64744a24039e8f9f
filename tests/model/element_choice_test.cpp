#include "model/element_choice.h"

#include <gmock/gmock.h>

#include "modelsrv/model_part.h"

namespace treescope {
namespace {

constexpr std::uint16_t noElement = ModelSrv::ModelPartIndex_Void;

struct Case {
  const char* text;
  std::uint16_t index;
};

TEST(ElementIndex, ReadsANumberTheWayStreamsDo) {
  const Case cases[] = {
      {"0", 0},
      {"3", 3},
      {"007", 7},
      {" 4", 4},
      {"5x", 5},
      {"abc", 0},
      {"x5", 0},
      {" ", 0},
      {"65533", 65533},
      {"65534", noElement},
      {"65535", noElement},
      {"65536", noElement},
      {"-2", noElement},
      {"-1", noElement},
      {"99999999999999999999999", noElement},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(elementIndex({test.text}), test.index) << test.text;
  }
}

}  // namespace
}  // namespace treescope
