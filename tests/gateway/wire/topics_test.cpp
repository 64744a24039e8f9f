#include "gateway/wire/topics.h"

#include <gtest/gtest.h>

namespace {

using modelgate::isFleetName;
using modelgate::isTopicLevel;
using modelgate::parsePage;
using modelgate::parseTopic;
using modelgate::Topics;
using modelgate::Verb;

TEST(WireTopics, FleetsAndDevicesHaveSimpleNames) {
  for (const char* const name : {"a", "Z9._-", "plant-7.gate_3", ".", ".."}) {
    EXPECT_TRUE(isFleetName(name)) << name;
  }
  EXPECT_TRUE(isFleetName(std::string(64, 'x')));
  EXPECT_FALSE(isFleetName(std::string(65, 'x')));
  for (const char* const name : {"", "a/b", "+", "#", "a b", "\xC3\xA4", "a\n", "$SYS", "a~"}) {
    EXPECT_FALSE(isFleetName(name)) << name;
  }
  EXPECT_FALSE(isFleetName(std::string_view("a\0", 2)));
}

TEST(WireTopics, ServersAndUsersAreLevels) {
  for (const char* const name : {"host", "a b", "\xC3\xA4", "a$", ".x", "~offline", "CN=me"}) {
    EXPECT_TRUE(isTopicLevel(name)) << name;
  }
  EXPECT_TRUE(isTopicLevel(std::string(128, 'x')));
  EXPECT_FALSE(isTopicLevel(std::string(129, 'x')));
  for (const char* const name :
       {"", "$a", "a/b", "a+", "#", "a;b", "\n", "\x7F", "\xFF", "\xC2\x80"}) {
    EXPECT_FALSE(isTopicLevel(name)) << name;
  }
}

TEST(WireTopics, AreThese) {
  const Topics topics("plant", "gate-7");
  EXPECT_EQ(topics.state(), "ts/1/plant/gate-7/state");
  EXPECT_EQ(topics.shape("host", 3), "ts/1/plant/gate-7/shape/host/3");
  EXPECT_EQ(topics.values("host", 0), "ts/1/plant/gate-7/val/host/0");
  EXPECT_EQ(topics.allValues("host"), "ts/1/plant/gate-7/val/host/+");
  EXPECT_EQ(topics.updates("host"), "ts/1/plant/gate-7/upd/host");
  EXPECT_EQ(topics.request(Verb::load, "ann"), "ts/1/plant/gate-7/req/load/ann");
  EXPECT_EQ(topics.requests(), "ts/1/plant/gate-7/req/+/+");
  EXPECT_EQ(topics.reply("ann", "c1"), "ts/1/plant/gate-7/rsp/ann/c1");
  EXPECT_EQ(topics.conflict(), "ts/1/plant/gate-7/conflict");
  EXPECT_EQ(Topics("plant", "+").state(), "ts/1/plant/+/state");
}

TEST(WireTopics, LevelsOfDashboardsAreMadeAllowed) {
  const Topics topics("f", "d");
  EXPECT_EQ(topics.json("host", "/"), "ts/1/f/d/j/host");
  EXPECT_EQ(topics.json("host", ""), "ts/1/f/d/j/host");
  EXPECT_EQ(topics.json("host", "/cpu/load"), "ts/1/f/d/j/host/cpu/load");
  EXPECT_EQ(topics.json("host", "/a+b/#/$x/y$;"), "ts/1/f/d/j/host/a_b/_/_x/y$_");
  EXPECT_EQ(topics.json("host", "//x"), "ts/1/f/d/j/host/_/x");
  EXPECT_EQ(topics.json("host", "/\xFF\xC3\xA4\x01"), "ts/1/f/d/j/host/_\xC3\xA4_");
  const std::string longest(127, 'x');
  EXPECT_EQ(topics.json("host", "/" + longest + "\xC3\xA4/z"), "ts/1/f/d/j/host/" + longest + "/z");
}

TEST(WireTopics, AreDivided) {
  const auto topic = parseTopic("ts/1/plant/gate-7/shape/host/0");
  ASSERT_TRUE(topic);
  EXPECT_EQ(topic->fleet, "plant");
  EXPECT_EQ(topic->device, "gate-7");
  EXPECT_EQ(topic->sort, "shape");
  EXPECT_EQ(topic->rest, "host/0");
  const auto state = parseTopic("ts/1/plant/gate-7/state");
  ASSERT_TRUE(state);
  EXPECT_EQ(state->sort, "state");
  EXPECT_EQ(state->rest, "");
}

TEST(WireTopics, RefusesOtherTopics) {
  for (const char* const topic :
       {"", "ts", "ts/1", "ts/1/", "ts/1/f", "ts/1/f/d", "ts/1/f/d/", "ts/2/f/d/state",
        "ts/1//d/state", "ts/1/f//state", "ts/1/f/+/state", "xs/1/f/d/state", "/ts/1/f/d/state"}) {
    EXPECT_FALSE(parseTopic(topic)) << topic;
  }
}

TEST(WireTopics, PagesHaveCanonicalNumbers) {
  const auto page = parsePage("host/1023");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->server, "host");
  EXPECT_EQ(page->page, 1023U);
  EXPECT_EQ(parsePage("host/0")->page, 0U);
  for (const char* const rest :
       {"", "host", "host/", "/0", "host/1024", "host/00", "host/01", "host/+1", "host/-1",
        "host/1x", "host/ 1", "host/1/2", "host/99999999999999999999", "a;b/0"}) {
    EXPECT_FALSE(parsePage(rest)) << rest;
  }
}

TEST(WireTopics, VerbsHaveNames) {
  for (const Verb verb : {Verb::get, Verb::set, Verb::load, Verb::sync, Verb::watch}) {
    EXPECT_EQ(modelgate::findVerb(verbName(verb)), verb);
  }
  EXPECT_EQ(modelgate::verbName(Verb::watch), "watch");
  EXPECT_FALSE(modelgate::findVerb("GET"));
  EXPECT_FALSE(modelgate::findVerb(""));
}

TEST(WireTopics, ServersLoseThePrefixOfTheirPort) {
  EXPECT_EQ(modelgate::serverInTopics("Model_host"), "host");
  EXPECT_EQ(modelgate::serverInTopics("other"), "other");
}

}  // namespace
