#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "modelsrv/model_root.h"
#include "tests/support/counted_allocations.h"
#include "tests/support/port_name.h"

// The memory of very many parts whose values are known elsewhere: what the platform needs for each,
// with everything that the allocator needs.

namespace {

using namespace ModelSrv;

/// A text of at most 15 bytes in the object itself, as most values have it.
struct ShortText {
  std::array<char, 15> bytes{};
  unsigned char length = 0;
};

/// What a part of another device needs here: its last value with its sequence, type and result.
class FarPart final : public ModelPart {
 public:
  FarPart(ModelPartId id, std::string_view name, std::uint32_t position)
      : ModelPart(id, name, ModelPartStatus_ReadWrite), position_(position) {
    take(position, std::to_string(position_));
  }
  ~FarPart() override { detach(); }
  FarPart(const FarPart&) = delete;
  FarPart& operator=(const FarPart&) = delete;

  void take(std::uint64_t sequence, std::string_view text) {
    if (sequence >= sequence_ && text.size() <= text_.bytes.size()) {
      sequence_ = sequence;
      text_.length = static_cast<unsigned char>(text.copy(text_.bytes.data(), text.size()));
      result_ = ModelRes_Success;
    }
  }

 protected:
  ModelRes appendText(std::string& out, ModelPartIndex /*index*/) const override {
    out.append(text_.bytes.data(), text_.length);
    return static_cast<ModelRes>(result_);
  }
  [[nodiscard]] bool isCacheable() const override { return true; }
  [[nodiscard]] std::string_view typeName() const override { return type_ == 1 ? "int32" : ""; }

 private:
  std::uint8_t type_ = 1;
  std::uint8_t result_ = ModelRes_NoValue;
  std::uint32_t position_;
  std::uint64_t sequence_ = 0;
  ShortText text_;
};

constexpr std::size_t partCount = 100'000;
constexpr double goalBytes = 120;  // A part.

std::string itemName(std::size_t i) {
  const std::string digits = std::to_string(i);
  return "item_" + std::string(5 - digits.size(), '0') + digits;
}

/// The bytes that this thread has allocated and not freed, with the allocator's own.
std::ptrdiff_t liveBytes() {
  constexpr std::ptrdiff_t chunkHeader = sizeof(std::size_t);
  const test_support::Allocations& all = test_support::allocated();
  // Also for those that were freed: the tests free next to nothing.
  return all.liveBytes + static_cast<std::ptrdiff_t>(all.count) * chunkHeader;
}

/// The bytes a part of a served tree of `partCount` parts below nodes of `width`. `make` returns
/// the next one.
template <typename Make>
double bytesAPart(std::size_t width, Make make) {
  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, false};
  ModelRoot root(&manager);
  std::deque<ModelNode> nodes;
  std::vector<ModelPart*> children;
  children.reserve(width);
  const std::ptrdiff_t before = liveBytes();
  for (std::size_t i = 0; i < partCount;) {
    ModelNode& node = nodes.emplace_back(static_cast<ModelPartId>(nodes.size() + 1), "node");
    children.clear();
    for (std::size_t n = 0; n < width && i < partCount; ++n, ++i) {
      children.push_back(make(static_cast<ModelPartId>(n + 1), itemName(i), i));
    }
    EXPECT_EQ(node.setChildren(children), ModelRes_Success);
    EXPECT_EQ(root.add(&node), ModelRes_Success);
  }
  const std::ptrdiff_t after = liveBytes();
  EXPECT_EQ(root.startAsServer(test_support::uniquePortName()), ModelRes_Success);
  std::ostringstream text;
  EXPECT_EQ(nodes[0].children()[7]->save(text, ModelPartIndex_All), ModelRes_Success);
  EXPECT_EQ(text.str(), "7");
  EXPECT_EQ(nodes[0].children()[7]->name(), "item_00007");
  root.stop(true);
  nodes.clear();
  return static_cast<double>(after - before) / partCount;
}

TEST(PartMemory, IsSmallForPartsOfTheirOwn) {
  std::vector<std::unique_ptr<FarPart>> parts;
  const double bytes =
      bytesAPart(1000, [&](ModelPartId id, const std::string& name, std::size_t position) {
        if (parts.capacity() == 0) {
          parts.reserve(partCount);
        }
        parts.push_back(std::make_unique<FarPart>(id, name, static_cast<std::uint32_t>(position)));
        return parts.back().get();
      });
  EXPECT_LE(bytes, goalBytes);
  RecordProperty("bytes", std::to_string(bytes));
}

TEST(PartMemory, IsSmallForPartsInBlocks) {
  std::deque<FarPart> parts;
  const double bytes =
      bytesAPart(1000, [&](ModelPartId id, const std::string& name, std::size_t position) {
        return &parts.emplace_back(id, name, static_cast<std::uint32_t>(position));
      });
  EXPECT_LE(bytes, goalBytes);
  RecordProperty("bytes", std::to_string(bytes));
}

TEST(PartMemory, GrowsByLittleMoreWhenPartsAreAddedOneByOne) {
  ModelNode node(1, "node");
  std::deque<FarPart> parts;
  const std::ptrdiff_t before = liveBytes();
  for (std::size_t i = 0; i < 33'000; ++i) {
    ASSERT_EQ(node.add(&parts.emplace_back(static_cast<ModelPartId>(i + 1), itemName(i), 0)),
              ModelRes_Success);
  }
  const std::ptrdiff_t after = liveBytes();
  EXPECT_LE(static_cast<double>(after - before) / 33'000, goalBytes);
}

}  // namespace
