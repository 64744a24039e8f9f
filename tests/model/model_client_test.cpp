#include "model/model_client.h"

#include "tests/model/client_fixture.h"

namespace treescope::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Requests : public ClientFixture {
 protected:
  void SetUp() override { connect(); }
};

TEST_F(Requests, OpenServerStartsAtItsRoot) {
  ASSERT_TRUE(client_.connected());
  EXPECT_EQ(client_.currentPart()->serverName(), name_);
  EXPECT_EQ(client_.currentPart()->location(), NamedChain());
  EXPECT_THAT(client_.currentPart()->subscriptions(), IsEmpty());
  EXPECT_THAT(client_.children(), ElementsAre(client_.currentPart()));
}

TEST_F(Requests, CloseServerRemovesTheMirrorPart) {
  client_.closeServer();
  EXPECT_FALSE(client_.connected());
  EXPECT_THAT(client_.children(), IsEmpty());
  EXPECT_FALSE(client_.openServer(test_support::uniquePortName()));
  EXPECT_FALSE(client_.connected());
  EXPECT_TRUE(client_.openServer(name_));
}

TEST_F(Requests, ResolveChainFollowsNamesFromTheRoot) {
  struct Case {
    std::string path;
    bool complete;
    NamedChain reached;
  };
  const NamedChain drive{{1}, {"drive"}};
  const Case cases[] = {
      {"/", true, {}},
      {"", true, {}},
      {"..", false, {}},
      {"/..", false, {}},
      {"drive", true, drive},
      {"drive/", true, drive},
      {"//drive//", true, drive},
      {"/drive/..", true, {}},
      {"/drive/../..", false, {}},
      {"/drive/speed", true, {{1, 1}, {"drive", "speed"}}},
      {"/drive/noname-13", true, {{1, 13}, {"drive", "speed"}}},
      {"/drive/noname-12", true, {{1, 12}, {"drive", "noname-12"}}},
      {"/drive/noname-012", true, {{1, 12}, {"drive", "noname-012"}}},
      {"/drive/noname-x", false, drive},
      {"/noname-3/x", true, {{3, 1}, {"noname-3", "x"}}},
      {"/drive/nothing/deep", false, drive},
      {"/drive/inner/deep", true, {{1, 14, 1}, {"drive", "inner", "deep"}}},
      {"/drive/speed/x", false, {{1, 1}, {"drive", "speed"}}},
      {"Drive", false, {}},
      {SampleServer::oddName(), true, {{4}, {SampleServer::oddName()}}},
  };
  for (const Case& test : cases) {
    NamedChain reached{{9}, {"left over"}};
    EXPECT_EQ(client_.resolveChain(test.path, reached), test.complete) << test.path;
    EXPECT_EQ(reached, test.reached) << test.path;
  }
}

TEST_F(Requests, ResolveChainStartsAtTheCurrentLocation) {
  const KSTD::KThreadMutexLock held(manager_.clientMutex);
  client_.currentPart()->setLocation({{1}, {"drive"}});
  NamedChain reached;
  EXPECT_TRUE(client_.resolveChain("inner", reached));
  EXPECT_EQ(reached.ids, (IdChain{1, 14}));
  EXPECT_TRUE(client_.resolveChain("../empty", reached));
  EXPECT_EQ(reached, (NamedChain{{2}, {"empty"}}));
  EXPECT_TRUE(client_.resolveChain("", reached));
  EXPECT_EQ(reached, (NamedChain{{1}, {"drive"}}));
}

TEST_F(Requests, NamePathOfNamesUnnamedAndUnlistedParts) {
  const KSTD::KThreadMutexLock held(manager_.clientMutex);
  for (const bool lock : {true, false}) {
    EXPECT_THAT(client_.namePathOf({}, lock), IsEmpty());
    EXPECT_THAT(client_.namePathOf({1, 12}, lock), ElementsAre("drive", "noname-12"));
    EXPECT_THAT(client_.namePathOf({1, 77, 5}, lock),
                ElementsAre("drive", "noname-77", "noname-5"));
  }
}

TEST_F(Requests, HasChildrenDistinguishesNodesFromParts) {
  EXPECT_TRUE(client_.hasChildren({}, true));
  EXPECT_TRUE(client_.hasChildren({1}, true));
  EXPECT_FALSE(client_.hasChildren({1, 1}, true));
  EXPECT_FALSE(client_.hasChildren({2}, true));
  const KSTD::KThreadMutexLock held(manager_.clientMutex);
  EXPECT_FALSE(client_.hasChildren({77}, false));
}

TEST_F(Requests, ElementNamesAndIndicesAreThoseOfTheServer) {
  std::vector<std::string> names;
  EXPECT_EQ(client_.fetchElementNames({1, 3}, names, true), 1);
  EXPECT_THAT(names, ElementsAre("p", "i"));
  EXPECT_EQ(client_.fetchElementNames({1, 4}, names, true), 3);
  EXPECT_EQ(client_.fetchElementNames({1, 77}, names, true), 7);
  std::uint16_t index = 9;
  EXPECT_EQ(client_.findElementIndex({1, 3}, "i", index, true), 1);
  EXPECT_EQ(index, 1);
  EXPECT_EQ(client_.findElementIndex({1, 3}, "I", index, true), 3);
  EXPECT_EQ(client_.findElementIndex({1, 4}, "i", index, true), 3);
  EXPECT_EQ(client_.findElementIndex({1, 77}, "i", index, true), 7);
  EXPECT_EQ(index, 1);
  EXPECT_EQ(client_.elementSum({1, 4}, true), 3);
  EXPECT_EQ(client_.elementSum({1, 1}, true), 0);
}

TEST_F(Requests, ReadValueUsesTheElementOnlyForAnArray) {
  struct Case {
    IdChain chain;
    std::string element;
    std::string text;
  };
  const Case cases[] = {
      {{1, 1}, "", "42"},         {{1, 1}, "3", "42"},    {{1, 3}, "", "1.5\n0.25"},
      {{1, 3}, "1", "0.25"},      {{1, 3}, "x", "1.5"},   {{1, 3}, "2", "fresh"},
      {{1, 3}, "65534", "fresh"}, {{1, 77}, "", "fresh"},
  };
  for (const Case& test : cases) {
    std::string text = "fresh";
    client_.readValue(test.chain, ElementIndexText{test.element}, text, true);
    EXPECT_EQ(text, test.text) << test.element;
  }
}

TEST_F(Requests, ReadValueTextKeepsAllBytes) {
  std::string text;
  ASSERT_EQ(server_.label.setValue(std::string("a\0\xff\n", 4)), ModelSrv::ModelRes_Success);
  client_.readValueText({1, 2}, text, true);
  EXPECT_EQ(text, std::string("a\0\xff\n", 4));
}

TEST_F(Requests, WriteValueByNameStoresTheWholeValueWithoutAName) {
  EXPECT_EQ(client_.writeValue({1, 3}, ElementName{"i"}, "7", false), 1);
  EXPECT_THAT(server_.gains.values(), ElementsAre(1.5, 7));
  EXPECT_EQ(client_.writeValue({1, 3}, ElementName{"d"}, "8", false), 3);
  EXPECT_THAT(server_.gains.values(), ElementsAre(1.5, 7));
  EXPECT_EQ(client_.writeValue({1, 3}, ElementName{""}, "2\n3", false), 1);
  EXPECT_THAT(server_.gains.values(), ElementsAre(2, 3));
  EXPECT_EQ(client_.writeValue({1, 1}, ElementName{"any"}, "6", false), 1);
  EXPECT_EQ(server_.speed.value(), 6);
  EXPECT_EQ(client_.writeValue({1, 1}, ElementName{""}, "no number", false), 1);
  EXPECT_EQ(server_.speed.value(), 6);
}

TEST_F(Requests, WriteValueByIndexRequiresAnIndexForAnArray) {
  EXPECT_EQ(client_.writeValue({1, 4}, ElementIndexText{""}, "4\n5\n6", false), 4);
  EXPECT_EQ(client_.writeValue({1, 4}, ElementIndexText{"65534"}, "4\n5\n6", false), 1);
  EXPECT_EQ(client_.writeValue({1, 4}, ElementIndexText{"3"}, "9", false), 1);
  EXPECT_THAT(server_.raw.values(), ElementsAre(1, 2, 3));
  EXPECT_EQ(client_.writeValue({1, 4}, ElementIndexText{"2"}, "9", false), 1);
  EXPECT_THAT(server_.raw.values(), ElementsAre(1, 2, 9));
  EXPECT_EQ(client_.writeValue({1, 1}, ElementIndexText{"2"}, "9", false), 1);
  EXPECT_EQ(server_.speed.value(), 9);
}

TEST_F(Requests, SubscribePathListsEverySubscriptionThatTheServerAccepts) {
  EXPECT_EQ(client_.subscribePath({1, 1}), 1);
  EXPECT_EQ(client_.subscribePath({1, 7}), 2);
  EXPECT_EQ(client_.subscribePath({1, 77}), 2);
  EXPECT_EQ(client_.subscribePath({1, 1}), 1);
  EXPECT_THAT(client_.currentPart()->subscriptions(), ElementsAre(IdChain{1, 1}, IdChain{1, 1}));
}

TEST_F(Requests, FailAfterTheServerHasStopped) {
  server_.end();
  NamedChain reached;
  EXPECT_FALSE(client_.resolveChain("/drive", reached));
  EXPECT_FALSE(client_.hasChildren({}, true));
  std::vector<std::string> names;
  EXPECT_EQ(client_.fetchElementNames({1, 3}, names, true), 7);
  EXPECT_EQ(client_.subscribePath({1, 1}), 2);
  std::string text = "fresh";
  client_.readValueText({1, 1}, text, true);
  EXPECT_EQ(text, "fresh");
}

TEST_F(Requests, FailWithoutAConnection) {
  client_.closeServer();
  NamedChain reached{{1}, {"drive"}};
  EXPECT_FALSE(client_.resolveChain("/", reached));
  EXPECT_EQ(reached, NamedChain());
  EXPECT_FALSE(client_.hasChildren({}, true));
  EXPECT_EQ(client_.elementSum({1, 3}, true), 0);
  std::vector<std::string> names;
  EXPECT_EQ(client_.fetchElementNames({1, 3}, names, true), 7);
  EXPECT_EQ(client_.subscribePath({1, 1}), 2);
  EXPECT_THAT(client_.namePathOf({1}, true), ElementsAre("noname-1"));
}

}  // namespace
}  // namespace treescope::test
