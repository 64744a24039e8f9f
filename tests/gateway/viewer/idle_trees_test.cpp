#include "gateway/viewer/idle_trees.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using modelgate::IdleTrees;
using namespace std::chrono_literals;

constexpr IdleTrees::Time start{};

/// Mirrors whose trees are unused.
struct IdleTreesTest : testing::Test {
  /// The trees that were given back, in that order.
  std::string given;
  IdleTrees trees;

  struct Mirror {
    std::optional<IdleTrees::Entry> entry;
  };
  std::unique_ptr<Mirror> add(char name, std::size_t bytes, std::optional<IdleTrees::Time> due) {
    auto mirror = std::make_unique<Mirror>();
    trees.add(mirror->entry, bytes, due, [this, name, at = mirror.get()] {
      given += name;
      at->entry.reset();
    });
    return mirror;
  }
};

TEST_F(IdleTreesTest, AreGivenBackOnceWhenTheyAreDue) {
  const auto a = add('a', 1, start + 10s);
  const auto b = add('b', 1, start + 5s);
  const auto c = add('c', 1, std::nullopt);
  EXPECT_FALSE(trees.trim(start + 4s));
  EXPECT_TRUE(trees.trim(start + 5s));
  EXPECT_EQ(given, "b");
  EXPECT_TRUE(trees.trim(start + 1h));
  EXPECT_FALSE(trees.trim(start + 2h));
  EXPECT_EQ(given, "ba");
  EXPECT_EQ(trees.bytes(), 1U);
}

TEST_F(IdleTreesTest, AreKeptWhileTheyAreUsed) {
  auto a = add('a', 7, start + 1s);
  a.reset();
  EXPECT_EQ(trees.bytes(), 0U);
  EXPECT_FALSE(trees.trim(start + 1h));
  EXPECT_EQ(given, "");
}

TEST_F(IdleTreesTest, CountTheBytesThatTheyTakeNow) {
  const auto a = add('a', 1, std::nullopt);
  a->entry->resize(IdleTrees::maxBytes + 1);
  EXPECT_TRUE(trees.areTooLarge());
  a->entry->resize(5);
  EXPECT_FALSE(trees.trim(start));
  EXPECT_EQ(trees.bytes(), 5U);
}

TEST_F(IdleTreesTest, AreGivenBackInTheOrderInWhichTheyBecameUnusedIfTheyTakeTooMuch) {
  const auto a = add('a', IdleTrees::maxBytes / 2, std::nullopt);
  const auto b = add('b', IdleTrees::maxBytes / 2, start + 1h);
  EXPECT_FALSE(trees.areTooLarge());
  const auto c = add('c', IdleTrees::maxBytes / 2, start + 1h);
  EXPECT_TRUE(trees.areTooLarge());
  EXPECT_TRUE(trees.trim(start));
  EXPECT_EQ(given, "a");
  const auto d = add('d', IdleTrees::maxBytes + 1, start + 1h);
  EXPECT_TRUE(trees.trim(start));
  EXPECT_EQ(given, "abcd") << "one that is too large alone is not kept, either";
  EXPECT_EQ(trees.bytes(), 0U);
}

}  // namespace
