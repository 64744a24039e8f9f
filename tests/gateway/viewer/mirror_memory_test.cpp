#include <gmock/gmock.h>

#include <string>

#include "gateway/viewer/mirror_tree.h"
#include "tests/support/counted_allocations.h"

// The memory of a mirror with very many parts, everything included.

namespace {

using namespace modelgate;

struct MirrorTreeMemory : testing::Test {
  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, false};
  MirrorRoot root{manager, nullptr};
  ModelSrv::ModelPart link{ModelSrv::ModelPartId_Max, "_link"};
  MirrorTree tree{root, false};
};

TEST_F(MirrorTreeMemory, IsAtMost120BytesAPart) {
  constexpr std::size_t count = 60'000;
  Shape shape(count);
  for (std::size_t i = 0; i < count; ++i) {
    shape[i].id = static_cast<ModelSrv::ModelPartId>(i);
    shape[i].name = "value" + std::to_string(10'000 + i);
    shape[i].type = "int32";
    shape[i].access = ModelSrv::ModelPartStatus_ReadWrite;
  }
  const std::ptrdiff_t before = test_support::allocated().liveBytes;
  tree.build(shape, link);
  for (std::size_t i = 0; i < count; ++i) {
    tree.take({static_cast<std::uint32_t>(i),
               ModelSrv::ModelPartIndex_All,
               {ModelSrv::ModelRes_Success, std::to_string(i)}},
              1, Accept::newer);
  }
  const auto bytes =
      static_cast<double>(test_support::allocated().liveBytes - before) / double{count};
  RecordProperty("bytes", std::to_string(bytes));
  EXPECT_LE(bytes, 120);
  const auto stated = static_cast<double>(tree.memory()) / double{count};
  EXPECT_NEAR(stated, bytes, 30) << "what the viewer reckons with";
}

TEST_F(MirrorTreeMemory, IsStatedAlsoOfLongAttributes) {
  constexpr std::size_t count = 1'000;
  Shape shape(count);
  for (std::size_t i = 0; i < count; ++i) {
    shape[i].id = static_cast<ModelSrv::ModelPartId>(i);
    shape[i].name = std::string(1'000, 'n');
    shape[i].type = "text";
    shape[i].attributes.text = std::string(ModelSrv::ModelAttributeText_Max, 't');
    shape[i].attributes.choices.assign(100, std::string(100, 'c'));
  }
  const std::ptrdiff_t before = test_support::allocated().liveBytes;
  tree.build(shape, link);
  const auto bytes = static_cast<double>(test_support::allocated().liveBytes - before);
  EXPECT_NEAR(static_cast<double>(tree.memory()) / bytes, 1, 0.3);
}

}  // namespace
