#include <gtest/gtest.h>

#include <map>

#include "gateway/exporter/sync_job.h"
#include "gateway/exporter/value_pages.h"
#include "gateway/wire/limits.h"
#include "tests/gateway/exporter/trees.h"

namespace {

using modelgate::PositionedValue;
using modelgate::SequenceTable;
using modelgate::SyncJob;
using modelgate::ValuePages;
using ModelSrv::ModelRes_Success;

const modelgate::PacedSet::Clock::time_point pagesStart{std::chrono::hours(1)};

/// A node with `count` texts.
std::shared_ptr<modelgate::ServedTree> wideTree(std::size_t count) {
  modelgate::Shape shape{gateway_test::node(1, 1, "all")};
  for (std::size_t i = 0; i < count; ++i) {
    shape.push_back(
        gateway_test::value(2, static_cast<unsigned short>(i), "p" + std::to_string(i), "text"));
  }
  return std::make_shared<modelgate::ServedTree>(shape, modelgate::encodeShape(shape));
}

std::string textOf(std::size_t number) {
  return std::string(100, static_cast<char>('a' + number % 26)) + std::to_string(number);
}

void fill(modelgate::ServedTree& tree) {
  for (modelgate::Position i = 1; i < tree.index.size(); ++i) {
    tree.values.set(i, ModelRes_Success, textOf(i));
  }
}

TEST(SyncJob, SendsEverythingInBatchesOfABoundedSize) {
  const auto tree = wideTree(5000);
  fill(*tree);
  SequenceTable sequences;
  sequences.reset(tree->index.size());
  modelgate::Batch numbers;
  numbers.sequence = 9;
  SyncJob job(tree, {0, 5001}, 0, numbers);
  std::map<modelgate::Position, std::string> received;
  int batches = 0;
  while (!job.isComplete()) {
    const modelgate::Batch batch = job.next(sequences);
    EXPECT_EQ(batch.sequence, 9U);
    EXPECT_LE(encodeBatch(batch).size(), SyncJob::batchSize + 1000);
    for (const PositionedValue& value : batch.values) {
      received[value.position] = value.value.text;
    }
    ++batches;
  }
  EXPECT_GT(batches, 3);
  ASSERT_EQ(received.size(), 5000U);
  EXPECT_EQ(received[4711], textOf(4711));
}

/// All that a job for everything sends, each batch as a message that a receiver takes.
std::map<modelgate::Position, std::size_t> sizesInMessages(
    const std::shared_ptr<modelgate::ServedTree>& tree) {
  SequenceTable sequences;
  sequences.reset(tree->index.size());
  SyncJob job(tree, {0, static_cast<modelgate::Position>(tree->index.size())}, 0, {});
  std::map<modelgate::Position, std::size_t> sizes;
  while (!job.isComplete()) {
    const std::string payload = encodeBatch(job.next(sequences));
    const auto batch = modelgate::decodeBatch(payload);
    EXPECT_TRUE(batch) << payload.size();
    for (const PositionedValue& value : batch.value_or(modelgate::Batch()).values) {
      sizes[value.position] += value.value.text.size();
    }
  }
  return sizes;
}

TEST(SyncJob, SendsTheLargestValuesInMessagesThatAreTaken) {
  const auto tree = wideTree(3);
  const std::size_t largest = modelgate::maxPayload - 4096;
  tree->values.set(1, ModelRes_Success, std::string(100'000, 'a'));
  tree->values.set(2, ModelRes_Success, std::string(largest, 'b'));
  tree->values.set(3, ModelRes_Success, std::string(largest, 'c'));
  const std::map<modelgate::Position, std::size_t> expected{
      {1, 100'000}, {2, largest}, {3, largest}};
  EXPECT_EQ(sizesInMessages(tree), expected);
}

TEST(SyncJob, SendsElementsInMessagesThatAreTaken) {
  const modelgate::Shape shape{gateway_test::value(1, 1, "lines", "text", 60'000)};
  const auto tree = std::make_shared<modelgate::ServedTree>(shape, modelgate::encodeShape(shape));
  tree->values.setElements(0, std::vector<std::string>(60'000, std::string(66, '\n')));
  EXPECT_EQ(sizesInMessages(tree).count(0), 1U);
}

TEST(SyncJob, SendsWhatHasChangedInItsSubtree) {
  const auto tree = gateway_test::sampleTree();
  SequenceTable sequences;
  sequences.reset(tree->index.size());
  const std::uint64_t since = sequences.sequence();
  for (const modelgate::Position position : {1U, 4U, 5U}) {
    sequences.change({position, ModelSrv::ModelPartIndex_All});
  }
  modelgate::Batch numbers;
  numbers.sequence = sequences.sequence();
  SyncJob job(tree, {0, 5}, since, numbers);
  const modelgate::Batch batch = job.next(sequences);
  EXPECT_TRUE(job.isComplete());
  EXPECT_EQ(batch.previous, since);
  ASSERT_EQ(batch.values.size(), 2U);
  EXPECT_EQ(batch.values[0].position, 1U);
  EXPECT_EQ(batch.values[1].position, 4U);
}

TEST(SyncJob, HasOneEmptyBatchIfNothingHasChanged) {
  const auto tree = gateway_test::sampleTree();
  SequenceTable sequences;
  sequences.reset(tree->index.size());
  SyncJob job(tree, {0, 9}, sequences.sequence(), {});
  EXPECT_TRUE(job.next(sequences).values.empty());
  EXPECT_TRUE(job.isComplete());
}

TEST(ValuePages, HoldAllValues) {
  const auto tree = wideTree(3000);
  fill(*tree);
  ValuePages pages(tree, {1, 2, 0, {}});
  EXPECT_GT(pages.count(), 5U);
  std::map<modelgate::Position, std::string> received;
  while (const auto page = pages.take(pagesStart, 5)) {
    const auto decoded = modelgate::decodeValuePage(page->payload);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->epoch, 1U);
    EXPECT_EQ(decoded->shape, 2U);
    EXPECT_EQ(decoded->sequence, 5U);
    for (const PositionedValue& value : decoded->values) {
      received[value.position] = value.value.text;
    }
  }
  ASSERT_EQ(received.size(), 3001U);
  EXPECT_EQ(received[1234], textOf(1234));
}

TEST(ValuePages, AreSentOnceAMinute) {
  const auto tree = wideTree(3000);
  fill(*tree);
  ValuePages pages(tree, {});
  while (pages.take(pagesStart, 1)) {
  }
  pages.change(1500);
  pages.change(1501);
  EXPECT_FALSE(pages.take(pagesStart + std::chrono::seconds(59), 1));
  EXPECT_TRUE(pages.take(pagesStart + std::chrono::seconds(60), 1));
  EXPECT_FALSE(pages.take(pagesStart + std::chrono::seconds(60), 1));
}

TEST(ValuePages, FitWhateverTheValuesBecome) {
  const auto tree = wideTree(3000);
  ValuePages pages(tree, {});
  for (modelgate::Position i = 1; i < tree->index.size(); ++i) {
    tree->values.set(i, ModelRes_Success, std::string(5000, 'x'));
  }
  std::size_t texts = 0;
  while (const auto page = pages.take(pagesStart, 1)) {
    ASSERT_LE(page->payload.size(), modelgate::maxPage);
    const auto decoded = modelgate::decodeValuePage(page->payload);
    ASSERT_TRUE(decoded);
    for (const PositionedValue& value : decoded->values) {
      texts += value.value.result == ModelRes_Success ? 1 : 0;
    }
  }
  EXPECT_GT(texts, 5U);
}

}  // namespace
