#include <pthread.h>

#include <cstddef>
#include <functional>

#include "term/line_listing.h"
#include "tests/model/client_fixture.h"
#include "tests/support/captured_output.h"
#include "tests/support/counted_allocations.h"

// The cost of a listing in the shell: memory, allocations and requests.

namespace treescope::test {
namespace {

using test_support::allocated;
using test_support::Allocations;

constexpr unsigned recursiveAndLong = 5;

/// Runs `body` on a thread with a small stack, which recursion to the depth of the
/// tree would overflow.
void runOnSmallStack(std::function<void()> body) {
  constexpr std::size_t stackBytes = 256 * 1024;
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, stackBytes), 0);
  pthread_t thread{};
  const auto entry = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, entry, &body), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  EXPECT_EQ(pthread_attr_destroy(&attributes), 0);
}

/// A node that counts the requests for its elements.
class CountedNode : public ModelSrv::ModelNode {
 public:
  explicit CountedNode(std::atomic<std::size_t>& requests)
      : ModelNode(1, "d"), requests_(requests) {}
  ~CountedNode() override {
    detach();
    releaseChildren();
  }

 protected:
  unsigned elementCount() const override {
    ++requests_;
    return 0;
  }

 private:
  std::atomic<std::size_t>& requests_;
};

class ListingCost : public ClientFixture {
 protected:
  void SetUp() override { connect(); }

  /// Lists the node recursively with values. Returns the allocations of this thread,
  /// without those of the test itself.
  Allocations list(const IdChain& chain) {
    const test_support::CapturedOutput captured;
    Allocations& now = allocated();
    const Allocations before = now;
    now.peakBytes = now.liveBytes;
    {
      ListingNode listing;
      client_.buildTree(listing, recursiveAndLong, chain, "top", 1, true, true);
      ScreenPrinter printer(0, true);
      printLongTree(printer, listing, true, false);
    }
    return {now.count - before.count, now.liveBytes - before.liveBytes,
            now.peakBytes - before.liveBytes};
  }

  /// Adds the node 1.41 with that many levels below it.
  void nest(std::size_t levels) {
    ModelSrv::ModelNode* above = &deep_;
    for (std::size_t level = 0; level < levels; ++level) {
      nodes_.push_back(std::make_unique<CountedNode>(requests_));
      ASSERT_EQ(above->add(nodes_.back().get()), ModelSrv::ModelRes_Success);
      above = nodes_.back().get();
    }
    ASSERT_EQ(server_.drive.add(&deep_), ModelSrv::ModelRes_Success);
  }

  /// The cost of listing a tree of that many levels, on a small stack.
  Allocations listLevels(std::size_t levels) {
    nest(levels);
    requests_ = 0;
    Allocations cost;
    runOnSmallStack([&] { cost = list({1, 41}); });
    // One request as a child; the last level, a part, is requested once more.
    EXPECT_EQ(requests_, levels + 1);
    EXPECT_EQ(server_.drive.remove(&deep_), ModelSrv::ModelRes_Success);
    while (!nodes_.empty()) {
      nodes_.pop_back();
    }
    return cost;
  }

  std::atomic<std::size_t> requests_{0};
  ModelSrv::ModelNode deep_{41, "deep"};
  std::vector<std::unique_ptr<CountedNode>> nodes_;
};

TEST_F(ListingCost, IsBelow220BytesPerPartWithFewAllocations) {
  constexpr std::uint16_t many = 10000;
  ModelSrv::ModelNode wide(40, "wide");
  std::vector<std::unique_ptr<ModelSrv::ValuePart<std::int32_t>>> parts;
  for (std::uint16_t id = 0; id < many; ++id) {
    parts.push_back(std::make_unique<ModelSrv::ValuePart<std::int32_t>>(
        id, "item_" + std::to_string(10000 + id), 1'000'000 + id));
    ASSERT_EQ(wide.add(parts.back().get()), ModelSrv::ModelRes_Success);
  }
  ASSERT_EQ(server_.drive.add(&wide), ModelSrv::ModelRes_Success);
  const Allocations cost = list({1, 40});
  EXPECT_GT(cost.peakBytes, many * static_cast<std::ptrdiff_t>(sizeof(ListingNode)));
  EXPECT_LT(cost.peakBytes, many * 220) << cost.peakBytes / many << " bytes per part";
  EXPECT_LT(cost.count, many / 100) << "expected no allocation for a single part";
  EXPECT_EQ(server_.drive.remove(&wide), ModelSrv::ModelRes_Success);
}

TEST_F(ListingCost, IsLimitedPerLevelUpTo1000Levels) {
  // Four requests a level. The id chain of each is allocated, and long chains are
  // allocated again as they grow.
  constexpr std::size_t allocationsPerLevel = 32;
  for (const std::size_t levels : {250U, 500U, 1000U}) {
    EXPECT_LE(listLevels(levels).count, levels * allocationsPerLevel) << levels;
  }
}

}  // namespace
}  // namespace treescope::test
