#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <ostream>

#include "tests/support/port_name.h"
#include "tests/terminal/terminal_test.h"

// Listings that stop after each screenful.

namespace terminal_test {
namespace {

std::string item(int number) {
  const std::string digits = std::to_string(number);
  return "item_" + std::string(4 - digits.size(), '0') + digits;
}

/// A shell whose current node has 120 parts, item_0000 to item_0119.
class Paging : public TerminalTest {
 protected:
  void startIn(int rows, int columns) {
    start();
    ASSERT_TRUE(run("cd " + server_.name()));
    ASSERT_TRUE(run("cd group_000"));
    ASSERT_TRUE(showsLine("[ group_000]$ |"));
    shell().resize(rows, columns);
  }

  /// Waits until the listing has stopped after the item `number`.
  testing::AssertionResult stopsAfter(int number) {
    return shell().waitFor(
        [number](const Screen& screen) {
          const int row = screen.cursor().row;
          return screen.cursorLine() == "More|" && row > 0 &&
                 screen.row(row - 1).starts_with(item(number));
        },
        "\"More\" below " + item(number));
  }

  [[nodiscard]] int stopsSince(std::size_t mark) {
    const std::string bytes = shell().bytesSince(mark);
    int stops = 0;
    for (std::size_t at = bytes.find("More"); at != std::string::npos;
         at = bytes.find("More", at + 1)) {
      ++stops;
    }
    return stops;
  }

  ModelServer server_{{"--synthetic", "1x120"}};
};

TEST_F(Paging, StopsWithABlinkingWordTwoLinesBeforeAFullScreen) {
  startIn(24, 80);
  ASSERT_TRUE(enter("ls -lm"));
  ASSERT_TRUE(stopsAfter(21));
  EXPECT_EQ(screen().lookOf("More"), (Look{.blink = true, .reverse = true}));
  EXPECT_EQ(screen().lookOf(item(21)), Look{});
  ASSERT_TRUE(type("q"));
  EXPECT_TRUE(showsLine("[ group_000]$ |"));
}

TEST_F(Paging, ShowsAScreenfulForASpace) {
  startIn(24, 80);
  ASSERT_TRUE(enter("ls -lm"));
  ASSERT_TRUE(stopsAfter(21));
  ASSERT_TRUE(type(" "));
  ASSERT_TRUE(stopsAfter(43));
  ASSERT_TRUE(type("x"));
  ASSERT_TRUE(stopsAfter(65));
  EXPECT_EQ(screen().rowsWith("More"), 1) << "the earlier ones have been erased";
  ASSERT_TRUE(type("q"));
}

TEST_F(Paging, ShowsALineForReturn) {
  startIn(24, 80);
  ASSERT_TRUE(enter("ls -lm"));
  for (const int last : {21, 22, 23, 24}) {
    ASSERT_TRUE(stopsAfter(last));
    ASSERT_TRUE(type(keys::returnKey));
  }
  ASSERT_TRUE(stopsAfter(25));
  ASSERT_TRUE(type("q"));
}

TEST_F(Paging, EndsTheListingForQ) {
  startIn(24, 80);
  ASSERT_TRUE(enter("ls -lm"));
  ASSERT_TRUE(stopsAfter(21));
  ASSERT_TRUE(type("q"));
  ASSERT_TRUE(showsLine("[ group_000]$ |"));
  EXPECT_FALSE(screen().find(item(22)).has_value());
  EXPECT_FALSE(screen().find("More").has_value());
  EXPECT_TRUE(run("pwd")) << "the shell continues";
}

TEST_F(Paging, TreatsEachByteOfAnArrowKeyAsAKey) {
  startIn(24, 80);
  ASSERT_TRUE(enter("ls -lm"));
  ASSERT_TRUE(stopsAfter(21));
  ASSERT_TRUE(type(keys::up));
  ASSERT_TRUE(stopsAfter(87));
  ASSERT_TRUE(type("q"));
}

TEST_F(Paging, EndsWithThePromptWhenAllIsShown) {
  startIn(24, 80);
  ASSERT_TRUE(enter("ls -lm"));
  ASSERT_TRUE(type("     "));
  ASSERT_TRUE(shell().waitFor(
      [](const Screen& screen) {
        const int row = screen.cursor().row;
        return screen.cursorLine() == "[ group_000]$ |" &&
               screen.row(row - 1).starts_with(item(119));
      },
      "the prompt below the last item"));
}

TEST_F(Paging, StopsTreesToo) {
  startIn(24, 80);
  ASSERT_TRUE(enter("ls -rlm"));
  EXPECT_TRUE(shell().showsLine("More|"));
  EXPECT_EQ(screen().rowsWith("+-- item_"), 22);
  ASSERT_TRUE(type("q"));
}

TEST_F(Paging, CountsRowsOfColumnsNotNames) {
  startIn(6, 40);
  ASSERT_TRUE(enter("ls -m"));
  ASSERT_TRUE(showsLine("More|"));
  EXPECT_EQ(screen().rowsWith("item_"), 4);
  EXPECT_TRUE(showsText("item_0009  item_0010  item_0011"));
  ASSERT_TRUE(type("q"));
}

TEST_F(Paging, NeverStopsWithoutTheOption) {
  startIn(24, 80);
  for (const char* const line : {"ls -l", "ls -rl", "history"}) {
    const std::size_t mark = shell().mark();
    ASSERT_TRUE(run(line));
    EXPECT_EQ(stopsSince(mark), 0) << line;
  }
}

struct Size {
  int rows;
  int columns;
  /// How often a long listing of 120 lines stops if each stop is continued with a space.
  int stops;

  friend void PrintTo(const Size& size, std::ostream* out) {
    *out << size.rows << " rows by " << size.columns;
  }
};

class PagingAtSize : public Paging, public testing::WithParamInterface<Size> {};

TEST_P(PagingAtSize, StopsEachTimeTheScreenIsFull) {
  startIn(GetParam().rows, GetParam().columns);
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(enter("ls -lm"));
  ASSERT_TRUE(type(std::string(static_cast<std::size_t>(GetParam().stops), ' ')));
  ASSERT_TRUE(shell().writes(item(119), mark));
  ASSERT_TRUE(shell().writes("]$ ", mark));
  EXPECT_EQ(stopsSince(mark), GetParam().stops);
}

INSTANTIATE_TEST_SUITE_P(Sizes, PagingAtSize,
                         testing::Values(Size{1, 1, 120}, Size{2, 2, 120}, Size{3, 80, 119},
                                         Size{24, 80, 5}, Size{122, 80, 0}, Size{500, 500, 0}),
                         [](const auto& test) {
                           return std::to_string(test.param.rows) + "x" +
                                  std::to_string(test.param.columns);
                         });

TEST_F(Paging, FollowsTheSizeOfTheWindow) {
  startIn(24, 80);
  ASSERT_TRUE(enter("ls -lm"));
  ASSERT_TRUE(stopsAfter(21));
  shell().resize(12, 60);
  ASSERT_TRUE(type(" "));
  ASSERT_TRUE(stopsAfter(31));
  shell().resize(40, 100);
  ASSERT_TRUE(type(" "));
  ASSERT_TRUE(stopsAfter(69));
  ASSERT_TRUE(type("q"));
}

/// The listing of servers, before the shell is connected to one.
class PagingOfServers : public TerminalTest {
 protected:
  PagingOfServers() {
    for (int i = 0; i < 10; ++i) {
      std::ofstream(file(i)).put('\n');
    }
  }
  ~PagingOfServers() override {
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(::unlink(file(i).c_str()), 0);
    }
  }
  PagingOfServers(const PagingOfServers&) = delete;
  PagingOfServers& operator=(const PagingOfServers&) = delete;

 private:
  static std::string file(int number) {
    return "/tmp/Model_" + test_support::portNameMark() + std::to_string(number) + ".fifo";
  }
};

TEST_F(PagingOfServers, NeedsNoOption) {
  start({.rows = 6, .columns = 20});
  ASSERT_TRUE(enter("ls"));
  ASSERT_TRUE(showsLine("More|"));
  ASSERT_TRUE(type("q"));
  EXPECT_TRUE(showsLine("[ /]$ |"));
}

}  // namespace
}  // namespace terminal_test
