#include "gateway/wire/device_state.h"

#include <gtest/gtest.h>

#include "gateway/wire/limits.h"
#include "tests/gateway/wire/hex.h"

namespace {

using modelgate::decodeState;
using modelgate::DeviceState;
using modelgate::encodeState;
using modelgate::maxExact;

const std::string hashOfPage(32, 'a');

DeviceState sampleState() {
  DeviceState state;
  state.online = true;
  state.epoch = maxExact;
  state.conflict = true;
  state.heartbeat = 5000;
  state.interval = 0;
  state.time = 1'700'000'000'123;
  state.monotonic = 42;
  state.capabilities = {"json", "val"};
  state.version = "1.2";
  state.servers["host"] = {true, 7, {hashOfPage, std::string(32, '0')}, 1'000'000};
  state.servers["\xC3\xA4 \"b\""] = {false, 0, {}, 0};
  return state;
}

TEST(WireState, ComesBackAsItWasEncoded) {
  EXPECT_EQ(decodeState(encodeState(sampleState())), sampleState());
  DeviceState state = sampleState();
  state.online = false;
  EXPECT_EQ(decodeState(encodeState(state)), state);
  state = {};
  EXPECT_EQ(decodeState(encodeState(state)), state);
  state.online = true;
  EXPECT_EQ(decodeState(encodeState(state)), state);
}

TEST(WireState, IsThisText) {
  DeviceState state;
  state.online = true;
  state.epoch = 12;
  state.servers["host"] = {true, 1, {hashOfPage}, 3};
  EXPECT_EQ(encodeState(state),
            R"({"online":true,"epoch":12,"heartbeat":10000,"interval":50,"time":0,"mono":0,)"
            R"("caps":[],"servers":{"host":{"up":true,"shape":1,"pages":["aaaaaaaaaaaaaaaaaaaa)"
            R"(aaaaaaaaaaaa"],"parts":3}}})");
}

TEST(WireState, WillHasOnlineAndEpochAlone) {
  DeviceState will;
  will.epoch = 12;
  EXPECT_EQ(encodeState(will), R"({"online":false,"epoch":12})");
  EXPECT_EQ(decodeState(R"({"online":false,"epoch":12})"), will);
}

TEST(WireState, UnknownKeysAreIgnored) {
  DeviceState expected;
  expected.epoch = 12;
  expected.servers["s"].parts = 2;
  EXPECT_EQ(
      decodeState(R"({"new":{"online":1,"servers":[[]]},"online":false,"epoch":12,)"
                  R"("servers":{"s":{"parts":2,"new":[{"up":1}],"newer":null}},"x":[1,[2]]})"),
      expected);
}

TEST(WireState, RefusesEachCut) {
  EXPECT_TRUE(wire_tests::refusesEachCut(encodeState(sampleState()), [](const std::string& bytes) {
    return decodeState(bytes).has_value();
  }));
}

bool takes(const std::string& entry) {
  return decodeState(R"({"online":true,"epoch":1,)" + entry + "}").has_value();
}

bool takesOfServer(const std::string& entry) {
  return takes(R"("servers":{"s":{)" + entry + "}}");
}

TEST(WireState, RefusesWrongValues) {
  EXPECT_TRUE(takes(R"("conflict":false)"));
  for (const char* const entry : {R"("conflict":0)",
                                  R"("heartbeat":"1000")",
                                  R"("heartbeat":99)",
                                  R"("heartbeat":3600001)",
                                  R"("heartbeat":-1)",
                                  R"("interval":10001)",
                                  R"("interval":1.5)",
                                  R"("time":9007199254740992)",
                                  R"("time":null)",
                                  R"("mono":-1)",
                                  R"("mono":9007199254740992)",
                                  R"("caps":{})",
                                  R"("caps":"a")",
                                  R"("caps":[1])",
                                  R"("caps":[["a"]])",
                                  R"("caps":["\n"])",
                                  R"("version":1)",
                                  R"("version":"\u0000")",
                                  R"("servers":[])",
                                  R"("servers":1)",
                                  R"("servers":{"s":1})",
                                  R"("servers":{"s":[]})",
                                  R"("servers":{"":{}})",
                                  R"("servers":{"a/b":{}})",
                                  R"("servers":{"$a":{}})",
                                  R"("servers":{"s":{},"s":{}})",
                                  R"("servers":{},"servers":{})",
                                  R"("epoch":1)",
                                  R"("caps":[],"caps":[])",
                                  R"("online":true)"}) {
    EXPECT_FALSE(takes(entry)) << entry;
  }
  EXPECT_TRUE(takesOfServer(R"("up":false)"));
  for (const char* const entry :
       {R"("up":1)", R"("shape":-1)", R"("shape":9007199254740992)", R"("pages":{})",
        R"("pages":"")", R"("pages":[1])", R"("pages":[""])", R"("pages":[[]])",
        R"("pages":["AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"])",
        R"("pages":["aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"])", R"("parts":1000001)", R"("parts":"1")",
        R"("up":true,"up":true)", R"("pages":[],"pages":[])"}) {
    EXPECT_FALSE(takesOfServer(entry)) << entry;
  }
  for (const char* const text :
       {"", "[]", "1", "null", "{}", R"({"online":true})", R"({"epoch":1})",
        R"({"online":1,"epoch":1})", R"({"online":true,"epoch":-1})",
        R"({"online":true,"epoch":1}x)", R"({"online":true,"epoch":9007199254740992})"}) {
    EXPECT_FALSE(decodeState(text)) << text;
  }
}

TEST(WireState, ChecksEachLimit) {
  DeviceState state;
  state.servers["s"].pages.assign(modelgate::maxPages, hashOfPage);
  state.capabilities.assign(64, std::string(64, 'c'));
  state.version.assign(64, 'v');
  state.heartbeat = modelgate::maxHeartbeat;
  state.interval = modelgate::maxInterval;
  const DeviceState largest = state;
  EXPECT_EQ(decodeState(encodeState(state)), largest);
  state.servers["s"].pages.push_back(hashOfPage);
  EXPECT_FALSE(decodeState(encodeState(state)));
  state = largest;
  state.capabilities.emplace_back();
  EXPECT_FALSE(decodeState(encodeState(state)));
  state = largest;
  state.capabilities[0] += 'c';
  EXPECT_FALSE(decodeState(encodeState(state)));
  state = largest;
  state.version += 'v';
  EXPECT_FALSE(decodeState(encodeState(state)));
  state = {};
  for (std::size_t i = 0; i < modelgate::maxServers; ++i) {
    state.servers[std::to_string(i)];
  }
  EXPECT_TRUE(decodeState(encodeState(state)));
  state.servers["one more"];
  EXPECT_FALSE(decodeState(encodeState(state)));
}

TEST(WireState, HasAtMostTheLargestPayload) {
  std::string text = R"({"online":true,"epoch":1,"x":")";
  text.append(modelgate::maxPayload - text.size() - 2, 'x').append("\"}");
  EXPECT_TRUE(decodeState(text));
  EXPECT_FALSE(decodeState(text + " "));
}

}  // namespace
