#include "gateway/exporter/sequence_table.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using modelgate::Position;
using modelgate::SequenceTable;
using modelgate::ValueMark;
using ModelSrv::ModelPartIndex_All;
using Set = std::set<Position>;

constexpr std::size_t partCount = 6;

/// A receiver that has seen everything up to a number, and gets batches and syncs.
struct SequenceTableTest : testing::Test {
  SequenceTableTest() { table.reset(partCount); }

  void change(Position position) { table.change({position, ModelPartIndex_All}); }
  Set changedSince(std::uint64_t since) {
    Set changed;
    for (Position i = 0; i < partCount; ++i) {
      if (table.isChangedSince(i, since)) {
        changed.insert(i);
      }
    }
    return changed;
  }
  std::vector<ValueMark> batch(SequenceTable::Numbers& numbers) {
    numbers = table.beginBatch();
    std::vector<ValueMark> marks;
    while (table.isPending()) {
      marks.push_back(table.take());
    }
    return marks;
  }

  SequenceTable table;
};

TEST_F(SequenceTableTest, CountsANewShapeAsAChangeOfEachPart) {
  const std::uint64_t first = table.sequence();
  EXPECT_EQ(changedSince(first - 1).size(), partCount);
  EXPECT_TRUE(changedSince(first).empty());
  table.reset(partCount);
  EXPECT_GT(table.sequence(), first);
  EXPECT_EQ(changedSince(first).size(), partCount);
}

TEST_F(SequenceTableTest, GivesChangesWithoutALeaseNumbersOfTheirOwn) {
  const std::uint64_t first = table.sequence();
  change(2);
  EXPECT_FALSE(table.isPending());
  EXPECT_EQ(table.sequence(), first + 1);
  EXPECT_EQ(table.sequence(), first + 1);
  EXPECT_EQ(changedSince(first), Set{2});
  EXPECT_TRUE(changedSince(first + 1).empty());
}

TEST_F(SequenceTableTest, SendsCoveredPartsInTheOrderOfTheirFirstChange) {
  table.cover({{0, partCount}});
  const std::uint64_t first = table.sequence();
  table.change({4, 1});
  change(1);
  table.change({4, 1});
  table.change({3, 0});
  table.change({3, 2});
  EXPECT_EQ(changedSince(first), (Set{1, 3, 4}));
  SequenceTable::Numbers numbers;
  EXPECT_EQ(batch(numbers),
            (std::vector<ValueMark>{{4, 1}, {1, ModelPartIndex_All}, {3, ModelPartIndex_All}}));
  EXPECT_EQ(numbers.previous, first);
  EXPECT_EQ(numbers.sequence, first + 1);
  EXPECT_EQ(changedSince(first), (Set{1, 3, 4}));
  EXPECT_TRUE(changedSince(numbers.sequence).empty());
}

TEST_F(SequenceTableTest, LeavesNoGapBetweenTheBatchesOfALease) {
  table.cover({{0, 3}});
  SequenceTable::Numbers one;
  SequenceTable::Numbers two;
  change(1);
  static_cast<void>(batch(one));
  change(5);  // not covered
  change(1);
  static_cast<void>(batch(two));
  EXPECT_EQ(two.previous, one.sequence);
}

TEST_F(SequenceTableTest, ShowsAGapAfterALeaseHasEnded) {
  table.cover({{0, partCount}});
  SequenceTable::Numbers seen;
  change(1);
  static_cast<void>(batch(seen));
  change(2);  // waits when the lease ends
  table.cover({});
  change(3);
  table.cover({{0, partCount}});
  SequenceTable::Numbers next;
  change(4);
  EXPECT_EQ(batch(next), (std::vector<ValueMark>{{4, ModelPartIndex_All}}));
  EXPECT_NE(next.previous, seen.sequence);
  EXPECT_EQ(changedSince(seen.sequence), (Set{2, 3, 4}));
}

TEST_F(SequenceTableTest, ShowsAGapWhenMorePartsAreCovered) {
  table.cover({{0, 2}});
  SequenceTable::Numbers seen;
  change(3);
  change(1);
  static_cast<void>(batch(seen));  // says nothing of part 3
  table.cover({{0, 5}});
  SequenceTable::Numbers next;
  change(0);
  static_cast<void>(batch(next));
  EXPECT_NE(next.previous, seen.sequence);
  EXPECT_EQ(changedSince(seen.sequence), (Set{0, 3}));
}

TEST_F(SequenceTableTest, ShowsAGapWhenALeaseOfAFewPartsHasEnded) {
  table.cover({{0, 2}});
  SequenceTable::Numbers seen;
  change(3);
  change(1);
  static_cast<void>(batch(seen));  // says nothing of part 3
  table.cover({});
  table.cover({{0, partCount}});
  SequenceTable::Numbers next;
  change(0);
  static_cast<void>(batch(next));
  EXPECT_GT(next.previous, seen.sequence);
  EXPECT_EQ(changedSince(seen.sequence), (Set{0, 3}));
}

TEST_F(SequenceTableTest, KeepsNumbersWhenTheSamePartsAreCoveredAgain) {
  table.cover({{0, 2}, {4, 5}});
  const std::uint64_t first = table.sequence();
  change(4);
  table.cover({{0, 2}, {4, 5}});
  EXPECT_EQ(table.sequence(), first);
  EXPECT_TRUE(table.isPending());
  table.cover({{0, 2}});
  EXPECT_FALSE(table.isPending());
  EXPECT_EQ(changedSince(first), Set{4});
}

/// A receiver of everything, in random order of leases, changes, batches that are lost, and syncs,
/// has the last values in the end.
TEST_F(SequenceTableTest, LosesNothingInRandomSchedules) {
  unsigned random = 1;
  const auto next = [&random](unsigned limit) {
    random = random * 1664525U + 1013904223U;
    return (random >> 16U) % limit;
  };
  std::vector<int> values(partCount, 0);
  std::vector<int> seen(partCount, 0);
  std::uint64_t last = table.sequence();
  bool hasGap = false;
  const auto sync = [&] {
    for (const Position position : changedSince(last)) {
      seen[position] = values[position];
    }
    last = table.sequence();
    hasGap = false;
  };
  for (int step = 0; step < 100000; ++step) {
    switch (next(8)) {
      case 0: {
        const Position first = next(partCount);
        table.cover(next(3) == 0 ? std::vector<modelgate::PositionRange>{}
                                 : std::vector<modelgate::PositionRange>{
                                       {first, first + 1 + next(partCount - first)}});
        break;
      }
      case 1:
      case 2: {
        if (!table.isPending()) {
          break;
        }
        SequenceTable::Numbers numbers;
        const std::vector<ValueMark> marks = batch(numbers);
        if (next(4) == 0) {
          break;  // lost
        }
        hasGap |= numbers.previous > last;
        if (!hasGap) {
          last = numbers.sequence;
          for (const ValueMark& mark : marks) {
            seen[mark.position] = values[mark.position];
          }
        }
        break;
      }
      case 3:
        if (hasGap) {
          sync();
        }
        break;
      default: {
        const Position position = next(partCount);
        ++values[position];
        change(position);
      }
    }
    if (step % 1000 == 999) {
      // A lease of the whole tree, and the next batch.
      table.cover({{0, partCount}});
      change(0);
      ++values[0];
      SequenceTable::Numbers numbers;
      const std::vector<ValueMark> marks = batch(numbers);
      if (hasGap || numbers.previous > last) {
        sync();
      } else {
        last = numbers.sequence;
        for (const ValueMark& mark : marks) {
          seen[mark.position] = values[mark.position];
        }
      }
      ASSERT_EQ(seen, values) << step;
    }
  }
}

}  // namespace
