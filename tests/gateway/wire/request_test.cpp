#include "gateway/wire/request.h"

#include <gmock/gmock.h>

#include "gateway/wire/limits.h"
#include "modelsrv/part_description.h"
#include "tests/gateway/wire/hex.h"

namespace {

using namespace ModelSrv;
using modelgate::encodeReply;
using modelgate::encodeRequest;
using modelgate::Format;
using modelgate::maxExact;
using modelgate::Reply;
using modelgate::Request;
using testing::HasSubstr;
using wire_tests::fromHex;
using wire_tests::toHex;

constexpr std::string_view jsonType = "application/json";

std::optional<Request> decodedRequest(std::string_view payload, std::string_view type = {}) {
  std::string error;
  auto request = modelgate::decodeRequest(payload, type, error);
  EXPECT_EQ(request.has_value(), error.empty()) << error;
  return request;
}

std::string errorOfRequest(std::string_view payload, std::string_view type = {}) {
  std::string error;
  EXPECT_FALSE(modelgate::decodeRequest(payload, type, error)) << payload;
  return error;
}

std::optional<Reply> decodedReply(std::string_view payload, std::string_view type = {}) {
  std::string error;
  auto reply = modelgate::decodeReply(payload, type, error);
  EXPECT_EQ(reply.has_value(), error.empty()) << error;
  return reply;
}

Request sampleRequest() {
  Request request;
  request.server = "host";
  request.chain = {{5, 65'533}};
  request.index = 65'533;
  request.value = "4.2";
  request.epoch = maxExact;
  request.since = maxExact;
  request.until = 0;
  return request;
}

Reply sampleReply() {
  Reply reply;
  reply.result = ModelRes_Vetoed;
  reply.reason = "not today";
  reply.value = "41";
  reply.epoch = maxExact;
  reply.sequence = 77;
  reply.monotonic = 123'456;
  reply.time = -5;
  reply.lease = 60'000;
  reply.more = true;
  return reply;
}

TEST(WireRequest, ComesBackAsItWasEncoded) {
  Request byPath{"host", {}, "/cpu/\xC3\xA4"};
  const Request whole{"host"};
  Request root{"host"};
  root.chain.emplace();
  for (const Format format : {Format::cbor, Format::json}) {
    for (const Request& request : {sampleRequest(), byPath, whole, root}) {
      EXPECT_EQ(decodedRequest(encodeRequest(request, format), contentType(format)), request);
      EXPECT_EQ(decodedRequest(encodeRequest(request, format)), request) << "by the first byte";
    }
  }
  byPath.path = "/\xFF";
  byPath.value = std::string("\xFE\0", 2);
  EXPECT_EQ(decodedRequest(encodeRequest(byPath, Format::cbor)), byPath);
}

TEST(WireRequest, HasTheseBytes) {
  const Request request{"host", {{5, 1}}};
  EXPECT_EQ(toHex(encodeRequest(request, Format::cbor)),
            toHex(fromHex("a2 66 736572766572 64 686f7374 62 6964 82 05 01")));
  EXPECT_EQ(encodeRequest(sampleRequest(), Format::json),
            R"({"server":"host","id":[5,65533],"index":65533,"value":"4.2",)"
            R"("epoch":9007199254740991,"since":9007199254740991,"until":0})");
}

TEST(WireRequest, JsonMayHaveNumbersAndBooleansAsValues) {
  const auto valueOf = [](const std::string& value) {
    const auto request = decodedRequest(R"({"server":"s","value":)" + value + "}");
    return request ? request->value : std::nullopt;
  };
  EXPECT_EQ(valueOf("4"), "4");
  EXPECT_EQ(valueOf("-4"), "-4");
  EXPECT_EQ(valueOf("4.50"), "4.50");
  EXPECT_EQ(valueOf("1e3"), "1e3");
  EXPECT_EQ(valueOf("18446744073709551616"), "18446744073709551616");
  EXPECT_EQ(valueOf("true"), "true");
  EXPECT_EQ(valueOf("false"), "false");
  EXPECT_EQ(valueOf("\"\""), "");
  for (const char* const wrong : {"null", "[]", "[1]", "{}", "{\"a\":1}"}) {
    EXPECT_THAT(errorOfRequest(std::string(R"({"server":"s","value":)") + wrong + "}"),
                HasSubstr("\"value\""))
        << wrong;
  }
}

TEST(WireRequest, UnknownKeysAreIgnored) {
  const Request expected{"s", {{1}}};
  EXPECT_EQ(decodedRequest(R"({"new":{"id":[{}]},"server":"s","id":[1],"more":[[1],2,null]})"),
            expected);
  EXPECT_EQ(decodedRequest(fromHex("a4 63 6e6577 a1 01 02 66 736572766572 61 73 62 6964 81 01"
                                   "61 78 9f f6 ff")),
            expected);
  EXPECT_EQ(decodedRequest(fromHex("bf 66 736572766572 61 73 62 6964 9f 01 ff ff")), expected);
}

TEST(WireRequest, RefusesWrongValues) {
  for (const char* const entry : {R"("id":1)",
                                  R"("id":"1")",
                                  R"("id":[-1])",
                                  R"("id":[65534])",
                                  R"("id":["1"])",
                                  R"("id":[[1]])",
                                  R"("id":[1.0])",
                                  R"("id":null)",
                                  R"("path":1)",
                                  R"("path":"cpu")",
                                  R"("path":"")",
                                  R"("index":-1)",
                                  R"("index":65534)",
                                  R"("index":"0")",
                                  R"("index":1.0)",
                                  R"("epoch":-1)",
                                  R"("epoch":9007199254740992)",
                                  R"("epoch":"1")",
                                  R"("since":null)",
                                  R"("until":9007199254740992)",
                                  R"("until":true)",
                                  R"("id":[1],"id":[1])"}) {
    const std::string key(entry, 1, std::string_view(entry).find('"', 1) - 1);
    EXPECT_EQ(errorOfRequest(std::string(R"({"server":"s",)") + entry + "}"),
              "\"" + key + "\" has a wrong value")
        << entry;
  }
  for (const char* const server : {"1", "\"\"", "\"a/b\"", "\"+\"", "null", "[]"}) {
    EXPECT_NE(errorOfRequest(std::string(R"({"server":)") + server + "}"), "") << server;
  }
  EXPECT_THAT(errorOfRequest("{}"), HasSubstr("missing \"server\""));
  EXPECT_THAT(errorOfRequest(R"({"server":"s","id":[1],"path":"/a"})"), HasSubstr("got both"));
}

TEST(WireRequest, RefusesWrongCbor) {
  const std::string server = "66 736572766572 61 73";
  for (const char* const entry : {"62 6964 01",
                                  "62 6964 8120",
                                  "62 6964 8119fffe",
                                  "62 6964 816131",
                                  "62 6964 818101",
                                  "62 6964 60",
                                  "65 696e646578 20",
                                  "65 696e646578 19fffe",
                                  "65 76616c7565 01",
                                  "65 76616c7565 f5",
                                  "65 76616c7565 fb3ff199999999999a",
                                  "65 76616c7565 f6",
                                  "65 76616c7565 61ff",
                                  "65 65706f6368 1b0020000000000000",
                                  "65 65706f6368 20",
                                  "66 736572766572 61 73",
                                  "64 70617468 61 61",
                                  "01 02",
                                  "4161 02",
                                  "61ff 02"}) {
    EXPECT_NE(errorOfRequest(fromHex("a2" + server + entry)), "") << entry;
  }
  EXPECT_NE(errorOfRequest(fromHex("a1 66 736572766572 41 73")), "") << "a byte string";
  EXPECT_NE(errorOfRequest(""), "");
  EXPECT_NE(errorOfRequest("\x80"), "");
  EXPECT_NE(errorOfRequest(fromHex("a1" + server + "00")), "") << "what follows";
}

TEST(WireRequest, RefusesEachCut) {
  for (const Format format : {Format::cbor, Format::json}) {
    EXPECT_TRUE(wire_tests::refusesEachCut(
        encodeRequest(sampleRequest(), format), [format](const std::string& bytes) {
          std::string error;
          return modelgate::decodeRequest(bytes, contentType(format), error).has_value();
        }));
  }
}

TEST(WireRequest, ChainHasAtMostTheDepthOfATree) {
  Request request{"s"};
  request.chain.emplace(ModelDepth_Max, ModelPartId{0});
  for (const Format format : {Format::cbor, Format::json}) {
    EXPECT_EQ(decodedRequest(encodeRequest(request, format)), request);
  }
  request.chain->push_back(0);
  for (const Format format : {Format::cbor, Format::json}) {
    EXPECT_NE(errorOfRequest(encodeRequest(request, format)), "");
  }
}

TEST(WireRequest, HasAtMostTheLargestPayload) {
  Request request{"s"};
  request.value = "";
  for (const Format format : {Format::cbor, Format::json}) {
    request.value->clear();
    const std::size_t head =
        encodeRequest(request, format).size() + (format == Format::cbor ? 4 : 0);
    request.value->assign(modelgate::maxPayload - head, 'x');
    EXPECT_EQ(encodeRequest(request, format).size(), modelgate::maxPayload);
    EXPECT_TRUE(decodedRequest(encodeRequest(request, format)));
    *request.value += 'x';
    EXPECT_THAT(errorOfRequest(encodeRequest(request, format)), HasSubstr("too large"));
  }
}

TEST(WireRequest, ContentTypeDecides) {
  EXPECT_NE(errorOfRequest(R"({"server":"s"})", "application/cbor"), "");
  EXPECT_NE(errorOfRequest(encodeRequest({"s"}, Format::cbor), jsonType), "");
  EXPECT_TRUE(decodedRequest(" \n{\"server\":\"s\"}", "text/plain"));
}

TEST(WireReply, ComesBackAsItWasEncoded) {
  Reply withBatch = sampleReply();
  withBatch.batch = std::string("\xA0\xFF\0", 3);
  for (const Reply& reply : {sampleReply(), Reply()}) {
    EXPECT_EQ(decodedReply(encodeReply(reply, Format::cbor)), reply);
    EXPECT_EQ(decodedReply(encodeReply(reply, Format::json), jsonType), reply);
  }
  EXPECT_EQ(decodedReply(encodeReply(withBatch, Format::cbor)), withBatch);
  EXPECT_EQ(decodedReply(encodeReply(withBatch, Format::json)), sampleReply())
      << "JSON has no batch";
}

TEST(WireReply, HasTheseBytes) {
  Reply reply;
  reply.value = "1";
  reply.epoch = 2;
  reply.sequence = 3;
  reply.monotonic = 4;
  reply.time = 5;
  EXPECT_EQ(toHex(encodeReply(reply, Format::cbor)),
            toHex(fromHex("a6 66 726573756c74 00 65 76616c7565 61 31 65 65706f6368 02 63 736571 03"
                          "64 6d6f6e6f 04 64 74696d65 05")));
  EXPECT_EQ(encodeReply(sampleReply(), Format::json),
            R"({"result":9,"text":"the server refused the value","reason":"not today",)"
            R"("value":"41","epoch":9007199254740991,"seq":77,"mono":123456,"time":-5,)"
            R"("lease":60000,"more":true})");
}

TEST(WireReply, WrongBytesBecomeReplacementCharactersInJson) {
  Reply reply;
  reply.value = "a\xFF\"\n";
  const auto decoded = decodedReply(encodeReply(reply, Format::json));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->value, "a\xEF\xBF\xBD\"\n");
}

TEST(WireReply, ReasonIsALineOrLeftOut) {
  Reply reply;
  reply.result = ModelRes_Vetoed;
  for (const std::string& wrong :
       {std::string("a\nb"), std::string("\xFF"), std::string(ModelReason_Max + 1, 'x')}) {
    reply.reason = wrong;
    for (const Format format : {Format::cbor, Format::json}) {
      const auto decoded = decodedReply(encodeReply(reply, format));
      ASSERT_TRUE(decoded);
      EXPECT_EQ(decoded->reason, "");
    }
  }
  EXPECT_FALSE(decodedReply(R"({"result":9,"reason":"a\nb"})"));
  EXPECT_FALSE(decodedReply(R"({"result":9,"reason":")" + std::string(513, 'x') + "\"}"));
}

TEST(WireReply, RefusesWrongValues) {
  EXPECT_TRUE(decodedReply(R"({"result":0})"));
  for (const char* const wrong :
       {"{}", R"({"result":-1})", R"({"result":"0"})", R"({"result":0,"value":5})",
        R"({"result":0,"epoch":9007199254740992})", R"({"result":0,"time":9007199254740992})",
        R"({"result":0,"time":-9007199254740992})", R"({"result":0,"time":1.5})",
        R"({"result":0,"batch":"x"})", R"({"result":0,"more":1})", R"({"result":0,"result":0})",
        R"({"result":0,"lease":-1})", R"({"result":0,"value":[]})"}) {
    EXPECT_FALSE(decodedReply(wrong)) << wrong;
  }
  EXPECT_TRUE(wire_tests::refusesEachCut(
      encodeReply(sampleReply(), Format::cbor),
      [](const std::string& bytes) { return decodedReply(bytes).has_value(); }));
}

TEST(WireReply, ResultsOfLaterVersionsAreErrorsOfTheSystem) {
  EXPECT_EQ(decodedReply(R"({"result":18})")->result, ModelRes_Denied);
  EXPECT_EQ(decodedReply(R"({"result":77})")->result, ModelRes_NotSupported);
  for (const char* const later : {"19", "63", "78", "18446744073709551615"}) {
    EXPECT_EQ(decodedReply(std::string(R"({"result":)") + later + "}")->result,
              ModelRes_SystemError);
  }
}

}  // namespace
