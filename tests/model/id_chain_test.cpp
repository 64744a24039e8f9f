#include "model/id_chain.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

TEST(ChildName, IsTheServedNameWhereThereIsOne) {
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

}  // namespace
}  // namespace treescope
