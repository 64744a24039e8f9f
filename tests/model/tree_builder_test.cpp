#include "tests/model/client_fixture.h"

namespace treescope::test {
namespace {

/// The listing as text: "name=value s<mark> k<kind> (children)"; absent fields are
/// omitted.
std::string textOf(const ListingNode& node) {
  std::string text = node.name.value_or("-");
  text += node.value ? '=' + *node.value : "";
  text += node.subscribedMark != 0 ? " s" + std::to_string(node.subscribedMark) : "";
  text += node.kindMark != 0 ? " k" + std::to_string(node.kindMark) : "";
  std::string children;
  for (const ListingNode& child : node.children) {
    children += (children.empty() ? "" : ", ") + textOf(child);
  }
  return node.children.empty() ? text : text + " (" + children + ')';
}

class TreeBuilder : public ClientFixture {
 protected:
  void SetUp() override { connect(); }

  std::string built(unsigned options, const IdChain& chain, const std::string& name = {},
                    std::uint8_t depth = 1, bool top = true) {
    ListingNode locked;
    client_.buildTree(locked, options, chain, name, depth, top, true);
    const KSTD::KThreadMutexLock held(manager_.clientMutex);
    ListingNode unlocked;
    client_.buildTree(unlocked, options, chain, name, depth, top, false);
    EXPECT_EQ(textOf(locked), textOf(unlocked));
    return textOf(locked);
  }
};

TEST_F(TreeBuilder, LabelsUnnamedNodesAndParts) {
  EXPECT_EQ(built(0, {1, 1}), "noname-1");
  EXPECT_EQ(built(0, {1, 1}, "speed"), "speed");
  EXPECT_EQ(built(0, {}),
            "root (drive (-), empty, noname-3 (-), " + SampleServer::oddName() + ", top)");
}

TEST_F(TreeBuilder, ListsTheElementsOfAPart) {
  EXPECT_EQ(built(0, {1, 4}, "raw"), "raw ([0], [1], [2])");
  EXPECT_EQ(built(4, {1, 4}, "raw"), "raw ([0]=1, [1]=2, [2]=3)");
  EXPECT_EQ(built(8, {1, 4}, "raw"), "raw k3 ([0], [1], [2])");
  EXPECT_EQ(built(0, {1, 3}, "gains"), "gains ([0](p), [1](i))");
  EXPECT_EQ(built(13, {1, 3}, "gains"), "gains k3 ([0](p)=1.5, [1](i)=0.25)");
  EXPECT_EQ(built(4, {1, 1}, "speed"), "speed=42");
  EXPECT_EQ(built(12, {2}, "empty"), "empty=");
  EXPECT_EQ(built(4, {77}, "gone"), "gone=");
}

TEST_F(TreeBuilder, OmitsOnlyTheValueOfTheTop) {
  const unsigned options = 4 | ModelClient::optionBelowOnly;
  EXPECT_EQ(built(options, {1, 1}, "speed"), "speed");
  EXPECT_EQ(built(options, {1, 4}, "raw"), "raw ([0]=1, [1]=2, [2]=3)");
  EXPECT_EQ(built(options, {1, 14}, "inner"), "inner (deep=5)");
}

TEST_F(TreeBuilder, ListsOneLevelAndMarksNodesWithContent) {
  ModelSrv::ModelNode box(40, "box");
  ModelSrv::ModelNode inside(1, "inside");
  ModelSrv::ValuePart<int> hidden(1, "hidden", 1);
  ModelSrv::ArrayPart<int> pair(2, "pair", {1, 2}, {"", "b"});
  ModelSrv::ArrayPart<int> unnamed(3, "", {7});
  ASSERT_EQ(inside.add(&hidden), ModelSrv::ModelRes_Success);
  for (ModelSrv::ModelPart* part :
       std::initializer_list<ModelSrv::ModelPart*>{&inside, &pair, &unnamed}) {
    ASSERT_EQ(box.add(part), ModelSrv::ModelRes_Success);
  }
  ASSERT_EQ(server_.drive.add(&box), ModelSrv::ModelRes_Success);
  ASSERT_EQ(client_.subscribePath({1, 40, 1, 1}), 1);
  ASSERT_EQ(client_.subscribePath({1, 40, 2}), 1);
  const IdChain chain{1, 40};
  struct Case {
    unsigned options;
    std::string listing;
  };
  const Case cases[] = {
      {0, "box (inside (-), pair s8 ([0](), [1](b)), noname-3 ([0]))"},
      {2, "box (inside (-), pair s8 ([0](), [1](b)), noname-3 ([0]))"},
      {4, "box (inside (-), pair s8 ([0]()=1, [1](b)=2), noname-3 ([0]=7))"},
      {8, "box k4 (inside k4 (-), pair s8 k3 ([0](), [1](b)), noname-3 k3 ([0]))"},
      {1, "box (inside (hidden s8), pair[0], pair[1](b), noname-3[0])"},
      {5, "box (inside (hidden=1 s8), pair[0]=1, pair[1](b)=2, noname-3[0]=7)"},
      {9, "box k4 (inside k4 (hidden s8), pair[0] k3, pair[1](b) k3, noname-3[0] k3)"},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(built(test.options, chain, "box"), test.listing) << test.options;
  }
}

TEST_F(TreeBuilder, FlattensElementsIntoTheParentNode) {
  const std::string drive = built(1, {1}, "drive");
  EXPECT_THAT(drive,
              testing::HasSubstr("gains[0](p), gains[1](i), raw[0], raw[1], raw[2], serial"));
  EXPECT_THAT(built(5, {1}, "drive"), testing::HasSubstr(", raw[0]=1, raw[1]=2, raw[2]=3, "));
}

TEST_F(TreeBuilder, CountsTheDepthModulo256) {
  EXPECT_EQ(built(0, {1, 14}, "inner", 0), "inner");
  EXPECT_EQ(built(4, {1, 14}, "inner", 0), "inner=/");
  EXPECT_EQ(built(12, {1, 14}, "inner", 0), "inner=/ k4");
  EXPECT_EQ(built(0, {1, 14}, "inner", 0, false), "inner (-)");
  EXPECT_EQ(built(1, {1, 14}, "inner", 0), "inner (deep)");
  EXPECT_EQ(built(5, {1, 14}, "inner", 0, false), "inner (deep=5)");
  EXPECT_EQ(built(0, {1, 14}, "inner", 255), "inner (deep)");
}

TEST_F(TreeBuilder, ListsNothingWithoutAConnection) {
  client_.closeServer();
  EXPECT_EQ(built(13, {}), "root=");
}

/// A part that counts the requests for its elements.
class CountedPart : public ModelSrv::ModelPart {
 public:
  CountedPart(std::uint16_t id, std::atomic<int>& requests)
      : ModelPart(id, "p" + std::to_string(id), ModelSrv::ModelPartStatus_ReadWrite),
        requests_(requests) {}
  ~CountedPart() override { detach(); }

 protected:
  unsigned elementCount() const override {
    ++requests_;
    return 0;
  }

 private:
  std::atomic<int>& requests_;
};

TEST_F(TreeBuilder, RequestsEachOf10000SubscribedPartsTwice) {
  constexpr std::uint16_t many = 10000;
  std::atomic<int> requests{0};
  ModelSrv::ModelNode wide(40, "wide");
  std::vector<std::unique_ptr<CountedPart>> parts;
  for (std::uint16_t id = 0; id < many; ++id) {
    parts.push_back(std::make_unique<CountedPart>(id, requests));
    ASSERT_EQ(wide.add(parts.back().get()), ModelSrv::ModelRes_Success);
  }
  ASSERT_EQ(server_.drive.add(&wide), ModelSrv::ModelRes_Success);
  for (std::uint16_t id = 0; id < many; ++id) {
    ASSERT_EQ(client_.subscribePath({1, 40, id}), 1);
  }
  requests = 0;
  ListingNode listing;
  client_.buildTree(listing, 0, {1, 40}, "wide", 1, true, true);
  EXPECT_EQ(requests, 2 * many);
  ASSERT_EQ(listing.children.size(), many);
  for (const ListingNode& child : listing.children) {
    ASSERT_EQ(child.subscribedMark, 8U);
  }
  for (std::uint16_t id = 0; id < many; ++id) {
    ASSERT_TRUE(client_.unsubscribePath({1, 40, id}));
  }
  EXPECT_THAT(client_.currentPart()->subscriptions(), testing::IsEmpty());
}

}  // namespace
}  // namespace treescope::test
