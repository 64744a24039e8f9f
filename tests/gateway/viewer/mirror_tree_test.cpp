#include "gateway/viewer/mirror_tree.h"

#include <gmock/gmock.h>

#include <limits>
#include <sstream>

#include "gateway/viewer/type_names.h"
#include "modelsrv/part_description.h"

namespace {

using namespace modelgate;
using namespace ModelSrv;
using testing::ElementsAre;

ShapePart node(unsigned depth, ModelPartId id, std::string name) {
  ShapePart part;
  part.depth = depth;
  part.id = id;
  part.name = std::move(name);
  part.type = "node";
  return part;
}

ShapePart single(unsigned depth, ModelPartId id, std::string name, std::string type = "int32",
                 ModelPartStatus access = ModelPartStatus_ReadWrite) {
  ShapePart part = node(depth, id, std::move(name));
  part.type = std::move(type);
  part.access = access;
  return part;
}

ShapePart array(unsigned depth, ModelPartId id, std::string name, std::string type,
                unsigned elements, std::vector<std::string> names = {}) {
  ShapePart part = single(depth, id, std::move(name), std::move(type));
  part.elements = elements;
  part.elementNames = std::move(names);
  return part;
}

class MirrorTrees : public testing::Test {
 protected:
  MirrorTrees() { static_cast<void>(root.add(&link)); }

  void take(std::uint32_t position, const std::string& text, std::uint64_t sequence = 1,
            ModelPartIndex index = ModelPartIndex_All, Accept accept = Accept::newer) {
    tree.take({position, index, {ModelRes_Success, text}}, sequence, accept);
  }
  std::string text(std::uint32_t position, ModelPartIndex index = ModelPartIndex_All) {
    return textOf(*tree.partAt(position), index);
  }
  static std::string textOf(ModelPart& part, ModelPartIndex index = ModelPartIndex_All) {
    std::ostringstream out;
    const ModelRes result = part.save(out, index);
    return result == ModelRes_Success ? out.str() : std::string("<") + describe(result) + ">";
  }
  std::vector<std::string> namesIn(const ModelNode& parent) {
    std::vector<std::string> names;
    for (const ModelPart* part : parent.children()) {
      names.emplace_back(part->name());
    }
    return names;
  }

  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, false};
  MirrorRoot root{manager, nullptr};
  ModelPart link{ModelPartId_Max, "_link"};
  MirrorTree tree{root, false};
  const Shape sample{node(1, 1, "drive"),
                     single(2, 1, "speed"),
                     array(2, 3, "gains", "double", 2, {"p", "i"}),
                     node(2, 9, "inner"),
                     single(3, 1, "deep"),
                     single(2, 10, "label", "text", ModelPartStatus_ReadOnly),
                     node(1, 2, "empty"),
                     single(1, 5, "\xFF", "text", ModelPartStatus_Protected)};
};

TEST_F(MirrorTrees, HaveThePartsOfTheirShapeInOrder) {
  tree.build(sample, link);
  EXPECT_EQ(tree.shape(), sample);
  EXPECT_THAT(namesIn(root), ElementsAre("drive", "empty", "\xFF", "_link"));
  const auto* const drive = dynamic_cast<ModelNode*>(root.findChild(1));
  EXPECT_THAT(namesIn(*drive), ElementsAre("speed", "gains", "inner", "label"));
  EXPECT_EQ(tree.partAt(0), nullptr) << "a node";
  EXPECT_EQ(tree.partAt(4)->name(), "deep");
  EXPECT_EQ(tree.partAt(8), nullptr);
}

TEST_F(MirrorTrees, DescribeTheirPartsAsTheDeviceDoes) {
  Shape shape = sample;
  shape[1].attributes = {"rpm", "0", "9000", "how fast", {}};
  shape[1].subscribable = false;
  shape[5].type = "decimal";
  // The library of this machine would refuse these for a text.
  shape[7].attributes = {"", "1", "x", "", {"a", "b"}};
  tree.build(shape, link);
  for (const std::size_t position : {1U, 2U, 5U, 7U}) {
    PartDescription description;
    ASSERT_EQ(tree.partAt(position)->describe(description), ModelRes_Success);
    const ShapePart& part = shape[position];
    EXPECT_EQ(description, (PartDescription{part.type, part.access, part.subscribable,
                                            part.elements, part.elementNames, part.attributes}));
  }
  EXPECT_EQ(tree.shape(), shape);
}

TEST_F(MirrorTrees, ReadOnlyOnesShowNoOtherAccess) {
  MirrorRoot offline(manager, nullptr);
  ModelPart last(ModelPartId_Max, "_link");
  MirrorTree copy(offline, true);
  copy.build(sample, last);
  EXPECT_EQ(copy.partAt(1)->status(), ModelPartStatus_ReadOnly);
  EXPECT_EQ(copy.partAt(7)->status(), ModelPartStatus_ReadOnly);
  EXPECT_EQ(copy.shape(), sample) << "what the device allows is kept";
  std::string reason;
  EXPECT_EQ(copy.partAt(1)->storeAsClient("1", true, ModelPartIndex_All, reason),
            ModelRes_ReadOnly);
}

TEST_F(MirrorTrees, HaveNoValuesAtFirst) {
  Shape shape = sample;
  shape.push_back(single(1, 6, "none", "", ModelPartStatus_Void));
  tree.build(shape, link);
  const std::string unreachable = std::string("<") + describe(ModelRes_Unreachable) + ">";
  EXPECT_EQ(text(1), unreachable);
  EXPECT_EQ(text(2), unreachable);
  EXPECT_EQ(text(2, 0), unreachable);
  EXPECT_EQ(text(8), std::string("<") + describe(ModelRes_NoValue) + ">");
}

TEST_F(MirrorTrees, TakeNewerValuesOnly) {
  tree.build(sample, link);
  take(1, "5", 10);
  EXPECT_EQ(text(1), "5");
  take(1, "4", 9);
  take(1, "4", 10);
  EXPECT_EQ(text(1), "5");
  take(1, "6", 10, ModelPartIndex_All, Accept::newerOrSame);
  EXPECT_EQ(text(1), "6");
  take(1, "7", 11);
  EXPECT_EQ(text(1), "7");
  tree.take({1, ModelPartIndex_All, {ModelRes_NoValue, ""}}, 12, Accept::newer);
  EXPECT_EQ(text(1), std::string("<") + describe(ModelRes_NoValue) + ">");
}

TEST_F(MirrorTrees, IgnoreValuesWithoutAPlace) {
  tree.build(sample, link);
  take(0, "5");
  take(99, "5");
  take(1, "5", 1, 0);
  take(2, "5", 1, 2);
  EXPECT_EQ(text(1), std::string("<") + describe(ModelRes_Unreachable) + ">");
  EXPECT_EQ(text(1, 0), std::string("<") + describe(ModelRes_NoSuchIndex) + ">");
  EXPECT_EQ(text(2, 2), std::string("<") + describe(ModelRes_NoSuchIndex) + ">");
}

TEST_F(MirrorTrees, CompareSequencesOfAnySize) {
  tree.build(sample, link);
  std::uint64_t sequence = 0;
  for (const std::uint64_t step :
       {std::uint64_t{1}, std::uint64_t{1} << 31, std::uint64_t{1} << 31, std::uint64_t{1} << 32,
        std::uint64_t{1} << 33, std::uint64_t{5}, (std::uint64_t{1} << 52)}) {
    sequence += step;
    take(1, std::to_string(sequence), sequence);
    EXPECT_EQ(text(1), std::to_string(sequence));
    take(1, "old", sequence - 1);
    EXPECT_EQ(text(1), std::to_string(sequence));
  }
  tree.forgetSequences();
  take(1, "new", 0);
  EXPECT_EQ(text(1), "new");
}

TEST_F(MirrorTrees, DivideArrays) {
  tree.build(sample, link);
  take(2, "1.5\n0.25");
  EXPECT_EQ(text(2), "1.5\n0.25");
  EXPECT_EQ(text(2, 0), "1.5");
  EXPECT_EQ(text(2, 1), "0.25");
  take(2, "0.5", 2, 1);
  EXPECT_EQ(text(2), "1.5\n0.5");
}

TEST_F(MirrorTrees, KeepElementsThatAreNewerThanTheWholeArray) {
  tree.build(sample, link);
  take(2, "1\n2", 5);
  take(2, "3", 9, 1);
  take(2, "7\n8", 7);
  EXPECT_EQ(text(2), "7\n3");
  take(2, "4", 8, 1);
  EXPECT_EQ(text(2), "7\n3");
  take(2, "9\n9", 10);
  EXPECT_EQ(text(2), "9\n9");
}

TEST_F(MirrorTrees, TakeArraysElementByElement) {
  tree.build({array(1, 1, "texts", "text", 3)}, link);
  take(0, "a\nb", 1, 0);
  take(0, "", 1, 1);
  EXPECT_EQ(text(0), std::string("<") + describe(ModelRes_Unreachable) + ">");
  take(0, "c", 1, 2);
  EXPECT_EQ(text(0), "a\nb\n\nc");
  EXPECT_EQ(text(0, 0), "a\nb");
  EXPECT_FALSE(tree.partAt(0)->needsElements());
}

TEST_F(MirrorTrees, NeedTheElementsOfATextThatCannotBeDivided) {
  tree.build({array(1, 1, "texts", "text", 2), array(1, 2, "one", "text", 1)}, link);
  take(0, "a\nb\nc", 1);
  EXPECT_TRUE(tree.partAt(0)->needsElements());
  EXPECT_EQ(text(0), "a\nb\nc");
  take(0, "a\nb", 1, 0, Accept::newerOrSame);
  EXPECT_TRUE(tree.partAt(0)->needsElements());
  take(0, "c", 1, 1, Accept::newerOrSame);
  EXPECT_FALSE(tree.partAt(0)->needsElements());
  EXPECT_EQ(text(0), "a\nb\nc");
  EXPECT_EQ(text(0, 0), "a\nb");
  take(1, "a\nb", 1);
  EXPECT_EQ(text(1, 0), "a\nb") << "a single element has the whole text";
}

TEST_F(MirrorTrees, KeepThePartsThatAreTheSame) {
  tree.build(sample, link);
  take(1, "5");
  ModelPart* const speed = tree.partAt(1);
  ModelPart* const drive = root.findChild(1);
  Shape next = sample;
  next.erase(next.begin() + 3, next.begin() + 5);  // inner
  next[2].elementNames = {"p", "d"};
  next[1].attributes.unit = "rpm";
  next.insert(next.begin() + 1, single(2, 20, "new"));
  next.push_back(single(1, 70, "last"));
  tree.build(next, link);
  EXPECT_EQ(tree.shape(), next);
  EXPECT_EQ(root.findChild(1), drive);
  EXPECT_EQ(tree.partAt(2), speed);
  EXPECT_EQ(text(2), "5");
  EXPECT_THAT(namesIn(root), ElementsAre("drive", "empty", "\xFF", "last", "_link"));
}

TEST_F(MirrorTrees, MakePartsAnewThatAreOfAnotherKind) {
  for (const ShapePart& other :
       {node(1, 1, "part"), single(1, 1, "part", "text"), single(1, 1, "renamed"),
        single(1, 1, "part", "int32", ModelPartStatus_ReadOnly), array(1, 1, "part", "int32", 3)}) {
    tree.build({single(1, 1, "part")}, link);
    take(0, "5");
    tree.build({other}, link);
    EXPECT_EQ(tree.shape(), Shape{other});
    EXPECT_TRUE(tree.partAt(0) == nullptr || text(0) != "5");
  }
}

TEST_F(MirrorTrees, HandTheirValuesOver) {
  tree.build(sample, link);
  take(1, "5", 7);
  take(2, "1\n2", 7);
  MirrorRoot offline(manager, nullptr);
  ModelPart last(ModelPartId_Max, "_link");
  MirrorTree copy(offline, true);
  copy.build(tree.shape(), last);
  copy.takeValuesOf(tree);
  EXPECT_EQ(textOf(*copy.partAt(1)), "5");
  EXPECT_EQ(textOf(*copy.partAt(2)), "1\n2");
  copy.take({1, ModelPartIndex_All, {ModelRes_Success, "4"}}, 6, Accept::newer);
  EXPECT_EQ(textOf(*copy.partAt(1)), "5") << "with their sequence numbers";
}

TEST_F(MirrorTrees, BoundTheBytesOfTheirTexts) {
  Shape shape;
  for (ModelPartId id = 0; id < 20; ++id) {
    shape.push_back(single(1, id, "x", "text"));
  }
  tree.build(shape, link);
  const std::string large(ModelValueText_Max, 'x');
  for (std::uint32_t i = 0; i < 20; ++i) {
    take(i, large, 1);
  }
  EXPECT_EQ(text(15).size(), large.size());
  EXPECT_EQ(text(16), std::string("<") + describe(ModelRes_TooLarge) + ">");
  take(0, "short", 2);
  take(16, large, 2);
  EXPECT_EQ(text(16).size(), large.size());
}

TEST(TypeNames, HaveNumbersForBothWays) {
  for (const std::string_view name : {"", "int32", "text", "bool", "double", "decimal"}) {
    EXPECT_EQ(typeText(typeNumber(name)), name);
  }
  for (int i = 0; i < 300; ++i) {
    const std::string name = "hostile" + std::to_string(i);
    const std::string_view text = typeText(typeNumber(name));
    EXPECT_TRUE(text == name || text.empty());
  }
}

}  // namespace
