#include "gateway/wire/shape.h"

#include <gmock/gmock.h>

#include <set>

#include "gateway/wire/limits.h"
#include "tests/gateway/wire/hex.h"

namespace {

using namespace ModelSrv;
using modelgate::decodeShape;
using modelgate::encodeShape;
using modelgate::maxPage;
using modelgate::Shape;
using modelgate::ShapePart;
using modelgate::visitShape;
using testing::HasSubstr;
using wire_tests::fromHex;
using wire_tests::toHex;
using Pages = std::vector<std::string>;

ShapePart part(unsigned depth, ModelPartId id, std::string name, std::string type = "node") {
  ShapePart result;
  result.depth = depth;
  result.id = id;
  result.name = std::move(name);
  result.type = std::move(type);
  return result;
}

Shape sampleShape() {
  Shape shape{
      part(1, 5, "cpu"),        part(2, 1, "load", "double"), part(2, 2, "\xFF\x01", "text"),
      part(1, 0, "", ""),       part(1, 1, "gains", "float"), part(1, 65'533, "x", "other"),
      part(1, 7, "empty node"), part(1, 8, "mode", "uint8")};
  shape[1].access = ModelPartStatus_ReadOnly;
  shape[2].access = ModelPartStatus_Protected;
  shape[2].subscribable = false;
  shape[4].elements = 3;
  shape[4].elementNames = {"p", "", "\xFE"};
  shape[5].elements = 65'534;
  shape[7].access = ModelPartStatus_ReadWrite;
  shape[7].attributes = {"s", "0", "2", "what it does", {"0", "1", "2"}};
  return shape;
}

Shape decoded(const Pages& pages) {
  std::string error;
  const auto shape = decodeShape(pages, error);
  EXPECT_TRUE(shape) << error;
  return shape.value_or(Shape());
}

/// Why the pages are refused; empty if they are not.
std::string errorOf(const Pages& pages) {
  std::string error;
  const bool isRight = decodeShape(pages, error).has_value();
  EXPECT_EQ(isRight, error.empty()) << error;
  return error;
}

std::string errorOfHex(std::string_view hex) {
  return errorOf({fromHex(hex)});
}

TEST(WireShape, ComesBackAsItWasEncoded) {
  EXPECT_EQ(decoded(encodeShape(sampleShape())), sampleShape());
}

TEST(WireShape, EmptyShapeIsOneEmptyPage) {
  EXPECT_EQ(encodeShape({}), Pages{""});
  EXPECT_EQ(decoded({""}), Shape());
}

TEST(WireShape, HasTheseBytes) {
  Shape shape{part(1, 5, "cpu"), part(2, 1, "load", "double")};
  shape[1].access = ModelPartStatus_ReadOnly;
  shape[1].attributes.unit = "%";
  ASSERT_EQ(encodeShape(shape).size(), 1U);
  EXPECT_EQ(toHex(encodeShape(shape).front()),
            toHex(fromHex("83 01 05 63 637075"
                          "88 02 01 64 6c6f6164 0c 02 00 80 a1 64 756e6974 61 25")));
}

TEST(WireShape, EachTypeOfValueHasANumber) {
  for (const char* const type : {"node", "", "bool", "int8", "int16", "int32", "int64", "uint8",
                                 "uint16", "uint32", "uint64", "float", "double", "text"}) {
    const Pages pages = encodeShape({part(1, 0, "", type)});
    ASSERT_EQ(pages.size(), 1U);
    EXPECT_LE(pages[0].size(), 5U) << type;
    EXPECT_EQ(decoded(pages)[0].type, type);
  }
  EXPECT_EQ(toHex(encodeShape({part(1, 0, "", "int9")})[0]),
            "840100606469"
            "6e7439");
}

TEST(WireShape, TypeOfALaterVersionIsNotKnown) {
  EXPECT_EQ(decoded({fromHex("84 01 00 60 18c8")})[0].type, "");
  EXPECT_EQ(decoded({fromHex("84 01 00 60 64696e7438")})[0].type, "int8");
}

TEST(WireShape, IgnoresFieldsFlagsAndAttributesOfLaterVersions) {
  const Shape shape =
      decoded({fromHex("8a 01 00 61 61 02 18fc 00 80 a2 63 6e6577 8101 64 756e6974 61 73 f6 a0")});
  Shape expected{part(1, 0, "a", "bool")};
  expected[0].subscribable = false;
  expected[0].attributes.unit = "s";
  EXPECT_EQ(shape, expected);
}

TEST(WireShape, PagesAreCutAtAnyByte) {
  Shape shape;
  for (unsigned i = 0; i < 20'000; ++i) {
    shape.push_back(part(1, static_cast<ModelPartId>(i), "part " + std::to_string(i), "int32"));
  }
  const Pages pages = encodeShape(shape);
  ASSERT_GT(pages.size(), 4U);
  for (std::size_t i = 0; i + 1 < pages.size(); ++i) {
    EXPECT_EQ(pages[i].size(), maxPage);
  }
  EXPECT_EQ(encodeShape(shape), pages);
  EXPECT_EQ(decoded(pages), shape);
  EXPECT_THAT(errorOf({pages[1], pages[0]}), HasSubstr("malformed"));
  EXPECT_THAT(errorOf({pages[0]}), HasSubstr("malformed"));
}

TEST(WireShape, RefusesEachCutThatIsNotBetweenParts) {
  const std::string page = encodeShape(sampleShape()).front();
  std::set<std::size_t> ends{0};
  for (const ShapePart& each : sampleShape()) {
    ShapePart alone = each;
    alone.depth = 1;
    ends.insert(*ends.rbegin() + encodeShape({alone}).front().size());
  }
  ASSERT_EQ(*ends.rbegin(), page.size());
  for (std::size_t size = 0; size <= page.size(); ++size) {
    EXPECT_EQ(errorOf({page.substr(0, size)}).empty(), ends.count(size) == 1) << size;
  }
}

TEST(WireShape, RefusesWrongKinds) {
  EXPECT_EQ(errorOfHex("83 01 00 60"), "");
  for (const char* const hex : {"00",
                                "a0",
                                "ff",
                                "80",
                                "81 01",
                                "82 01 00",
                                "83 20 00 60",
                                "83 01 20 60",
                                "83 01 00 00",
                                "83 01 00 61ff",
                                "84 01 00 60 f6",
                                "84 01 00 60 4161",
                                "85 01 00 60 00 f6",
                                "86 01 00 60 00 00 20",
                                "87 01 00 60 00 00 01 60",
                                "87 01 00 60 00 00 01 8101",
                                "88 01 00 60 00 00 00 80 80",
                                "88 01 00 60 00 00 00 80 a1 64 756e6974 4161",
                                "88 01 00 60 00 00 00 80 a1 01 02",
                                "88 01 00 60 00 00 00 80 a1 67 63686f69636573 60",
                                "88 01 00 60 00 00 00 80 a1 67 63686f69636573 8141ff",
                                "88 01 00 60 00 00 00 80 a2 64 756e6974 6161 64 756e6974 6161",
                                "89 01 00 60 00 00 00 80 a0",
                                "9f 01 00 60"}) {
    EXPECT_THAT(errorOfHex(hex), HasSubstr("part 0 of the shape is malformed")) << hex;
  }
}

TEST(WireShape, ChecksDepths) {
  EXPECT_THAT(errorOfHex("83 00 00 60"), HasSubstr("depth"));
  EXPECT_THAT(errorOfHex("83 02 00 60"), HasSubstr("depth"));
  EXPECT_THAT(errorOfHex("83 01 00 60  83 03 00 60"), HasSubstr("part 1 of the shape: its depth"));
  EXPECT_THAT(errorOfHex("84 01 00 60 02  83 02 00 60"), HasSubstr("no node"));
  EXPECT_THAT(errorOfHex("84 01 00 60 01  83 02 00 60"), HasSubstr("no node"));
  Shape deep;
  for (unsigned depth = 1; depth <= ModelDepth_Max; ++depth) {
    deep.push_back(part(depth, 0, ""));
  }
  EXPECT_EQ(decoded(encodeShape(deep)), deep);
  deep.push_back(part(ModelDepth_Max + 1, 0, ""));
  EXPECT_EQ(encodeShape(deep), Pages());
  EXPECT_NE(errorOf({encodeShape({deep.begin(), deep.end() - 1})[0] + fromHex("83 191001 00 60")}),
            "");
}

TEST(WireShape, ChecksIds) {
  EXPECT_EQ(errorOfHex("83 01 19fffd 60"), "");
  EXPECT_NE(errorOfHex("83 01 19fffe 60"), "");
  // In any order, but not twice below one node.
  EXPECT_EQ(errorOfHex("83 01 02 60  83 02 02 60  83 01 01 60  83 02 02 60"), "");
  EXPECT_THAT(errorOfHex("83 01 02 60  83 01 01 60  83 01 02 60"), HasSubstr("twice"));
  EXPECT_THAT(errorOfHex("83 01 02 60  83 01 02 60"), HasSubstr("twice"));
  EXPECT_THAT(errorOfHex("83 01 00 60  83 02 02 60  83 02 02 60  83 01 01 60"), HasSubstr("twice"));
  EXPECT_EQ(encodeShape({part(1, 3, ""), part(1, 3, "")}), Pages());
  EXPECT_EQ(encodeShape({part(1, ModelPartId_Void, "")}), Pages());
}

TEST(WireShape, ChecksTheLimitsOfAPart) {
  const auto isAllowed = [](const auto& change) {
    Shape shape{part(1, 0, "a", "text")};
    change(shape[0]);
    const Pages pages = encodeShape(shape);
    EXPECT_TRUE(pages.empty() || decoded(pages) == shape);
    return !pages.empty();
  };
  EXPECT_TRUE(isAllowed([](ShapePart& p) { p.name.assign(ModelName_Max, 'x'); }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.name.assign(ModelName_Max + 1, 'x'); }));
  EXPECT_TRUE(isAllowed([](ShapePart& p) { p.type.assign(64, 'x'); }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.type.assign(65, 'x'); }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.type = "\xFF"; }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.access = 4; }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.elements = ModelPartElements_Max + 1; }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.elementNames = {"a"}; }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.elements = 2, p.elementNames = {"a"}; }));
  EXPECT_TRUE(isAllowed([](ShapePart& p) { p.elements = 1, p.elementNames = {"a"}; }));
  EXPECT_TRUE(isAllowed([](ShapePart& p) { p.attributes.unit.assign(ModelUnit_Max, 'x'); }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.attributes.unit.assign(ModelUnit_Max + 1, 'x'); }));
  EXPECT_TRUE(isAllowed([](ShapePart& p) { p.attributes.text.assign(512, 'x'); }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.attributes.text.assign(513, 'x'); }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.attributes.minimum = "a\nb"; }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.attributes.maximum = "\xFF"; }));
  EXPECT_TRUE(isAllowed([](ShapePart& p) { p.attributes.choices.resize(ModelChoices_Max); }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.attributes.choices.resize(1001); }));
  EXPECT_FALSE(isAllowed([](ShapePart& p) { p.attributes.choices = {"\x01"}; }));
}

TEST(WireShape, ChecksPages) {
  EXPECT_THAT(errorOf({}), HasSubstr("pages"));
  EXPECT_THAT(errorOf(Pages(modelgate::maxPages + 1)), HasSubstr("pages"));
  EXPECT_EQ(errorOf(Pages(modelgate::maxPages)), "");
  EXPECT_THAT(errorOf({std::string(maxPage + 1, '\x83')}), HasSubstr("pages"));
}

TEST(WireShape, HasAtMostAMillionParts) {
  Shape shape;
  for (unsigned i = 0; i < 20; ++i) {
    shape.push_back(part(1, static_cast<ModelPartId>(i), ""));
    for (unsigned k = 0; k < 49'999; ++k) {
      shape.push_back(part(2, static_cast<ModelPartId>(k), ""));
    }
  }
  ASSERT_EQ(shape.size(), modelgate::maxParts);
  Pages pages = encodeShape(shape);
  std::string error;
  std::size_t count = 0;
  EXPECT_TRUE(visitShape(
      pages, [&count](ShapePart& /*part*/) { return ++count > 0; }, error));
  EXPECT_EQ(count, shape.size());
  shape.push_back(part(1, 100, ""));
  EXPECT_EQ(encodeShape(shape), Pages());
  pages.push_back(fromHex("83 01 1864 60"));
  EXPECT_FALSE(visitShape(
      pages, [](ShapePart& /*part*/) { return true; }, error));
  EXPECT_THAT(error, HasSubstr("too many parts"));
}

TEST(WireShape, HasAtMostAMillionNamesOfElementsAndChoices) {
  Shape shape;
  for (unsigned i = 0; i < 20; ++i) {
    shape.push_back(part(1, static_cast<ModelPartId>(i), "", "text"));
    shape.back().elements = 49'000;
    shape.back().elementNames.resize(49'000);
    shape.back().attributes.choices.resize(1000);
  }
  Pages pages = encodeShape(shape);
  EXPECT_EQ(errorOf(pages), "");
  shape.push_back(part(1, 100, "", "text"));
  shape.back().elements = 1;
  shape.back().elementNames.resize(1);
  EXPECT_EQ(encodeShape(shape), Pages());
  pages.push_back(fromHex("87 01 1864 60 0d 00 01 81 60"));
  EXPECT_THAT(errorOf(pages), HasSubstr("too many names"));
}

TEST(WireShape, HasAtMostTheMostPages) {
  Shape shape;
  for (unsigned i = 0; i < 963; ++i) {
    shape.push_back(part(1, static_cast<ModelPartId>(i), std::string(ModelName_Max, 'x')));
  }
  EXPECT_EQ(encodeShape(shape), Pages());
  shape.resize(959);
  EXPECT_EQ(encodeShape(shape).size(), modelgate::maxPages);
}

TEST(WireShape, VisitorMayEndIt) {
  std::string error = "earlier";
  std::size_t count = 0;
  EXPECT_FALSE(visitShape(
      encodeShape(sampleShape()), [&count](ShapePart& /*part*/) { return ++count < 2; }, error));
  EXPECT_EQ(error, "");
  EXPECT_EQ(count, 2U);
}

TEST(WireShape, HashIsHalfOfSha256) {
  EXPECT_EQ(modelgate::pageHash(""), "e3b0c44298fc1c149afbf4c8996fb924");
  EXPECT_EQ(modelgate::pageHash("abc"), "ba7816bf8f01cfea414140de5dae2223");
}

}  // namespace
