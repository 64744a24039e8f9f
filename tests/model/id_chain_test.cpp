#include "model/id_chain.h"

#include <gmock/gmock.h>

#include "modelsrv/model_part.h"

namespace treescope {
namespace {

TEST(ChildName, IsTheServersNameIfThereIsOne) {
  EXPECT_EQ(childName("speed", 4), "speed");
  EXPECT_EQ(childName(std::string("a\0b", 3), 4), std::string("a\0b", 3));
}

TEST(ChildName, NamesAnUnnamedChildByItsId) {
  EXPECT_EQ(childName("", 12), "noname-12");
  EXPECT_EQ(childName("", 0), "noname-0");
  EXPECT_EQ(childName("", 65533), "noname-65533");
}

TEST(NamedChain, GrowsAndShrinksInBothVectors) {
  NamedChain chain;
  chain.append(1, "a");
  chain.append(7, "b");
  EXPECT_EQ(chain, (NamedChain{{1, 7}, {"a", "b"}}));
  chain.removeLast();
  EXPECT_EQ(chain, (NamedChain{{1}, {"a"}}));
}

constexpr std::uint16_t noElement = ModelSrv::ModelPartIndex_Void;

struct IndexCase {
  const char* text;
  std::uint16_t index;
};

TEST(ElementIndex, ReadsANumberLikeAStream) {
  const IndexCase cases[] = {
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
  for (const IndexCase& test : cases) {
    EXPECT_EQ(elementIndex({test.text}), test.index) << test.text;
  }
}

}  // namespace
}  // namespace treescope
