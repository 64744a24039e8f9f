#include <gmock/gmock.h>

#include <fstream>
#include <map>

#include "gateway/wire/cbor_reader.h"
#include "gateway/wire/device_state.h"
#include "gateway/wire/request.h"
#include "gateway/wire/shape.h"
#include "gateway/wire/values.h"
#include "tests/gateway/wire/hex.h"
#include "tests/support/process.h"

// The examples of gateway/PROTOCOL.md are what the encoders make. Each is a block whose first line
// is "```KIND NAME"; KIND is "json", "hex" or "diag" (diagnostic notation, RFC 8949, section 8).

namespace {

using namespace ModelSrv;
using modelgate::Batch;
using modelgate::CborItems;
using modelgate::CborReader;
using modelgate::DeviceState;
using modelgate::encodeBatch;
using modelgate::encodeReply;
using modelgate::encodeRequest;
using modelgate::encodeState;
using modelgate::encodeValuePage;
using modelgate::Format;
using modelgate::Reply;
using modelgate::Request;
using modelgate::Shape;
using Blocks = std::map<std::string, std::string>;

constexpr std::uint64_t sampleEpoch = 4'503'599'627'370'497;
constexpr std::int64_t sampleTime = 1'700'000'000'123;

Shape documentedShape() {
  Shape shape(4);
  shape[0] = {1, 1, "cpu", "node", ModelPartStatus_Void, true, 0, {}, {}};
  shape[1] = {2, 1, "load", "double", ModelPartStatus_ReadOnly, true, 0, {}, {}};
  shape[1].attributes.unit = "%";
  shape[2] = {1, 2, "gains", "float", ModelPartStatus_ReadWrite, true, 2, {"p", "i"}, {}};
  shape[3] = {1, 3, "mode", "text", ModelPartStatus_ReadWrite, false, 0, {}, {}};
  shape[3].attributes.choices = {"auto", "off"};
  return shape;
}

Batch documentedBatch() {
  Batch batch{sampleEpoch, 1, 1001, 1000, sampleTime, 360'000, {}};
  batch.values = {{1, ModelPartIndex_All, {ModelRes_Success, "12.5"}},
                  {2, 1, {ModelRes_Success, "0.25"}},
                  {3, ModelPartIndex_All, {ModelRes_NoValue, ""}}};
  return batch;
}

DeviceState documentedState() {
  DeviceState state;
  state.online = true;
  state.epoch = sampleEpoch;
  state.time = sampleTime;
  state.monotonic = 360'000;
  state.version = "modelgate 0.1.0";
  state.servers["host"] = {
      true, 1, {modelgate::pageHash(modelgate::encodeShape(documentedShape())[0])}, 4};
  return state;
}

Reply reply(std::uint64_t sequence) {
  Reply result;
  result.epoch = sampleEpoch;
  result.sequence = sequence;
  result.monotonic = 360'000;
  result.time = sampleTime;
  return result;
}

/// The messages of the document: JSON as it is, CBOR as bytes.
Blocks documentedMessages() {
  Blocks messages;
  messages["state"] = encodeState(documentedState());
  DeviceState will;
  will.epoch = sampleEpoch;
  messages["will"] = encodeState(will);
  messages["shape"] = modelgate::encodeShape(documentedShape())[0];
  messages["batch"] = encodeBatch(documentedBatch());
  messages["heartbeat"] = encodeBatch({sampleEpoch, 1, 1002, 1001, sampleTime, 370'000, {}});
  messages["values"] = encodeValuePage({sampleEpoch, 1, 1001, documentedBatch().values});
  const Request get{"host", {}, "/cpu/load"};
  messages["get"] = encodeRequest(get, Format::json);
  Request set{"host", {{3}}};
  set.value = "off";
  set.epoch = sampleEpoch;
  set.until = 361'500;
  messages["set"] = encodeRequest(set, Format::cbor);
  Request sync{"host"};
  sync.epoch = sampleEpoch;
  sync.since = 1000;
  messages["sync"] = encodeRequest(sync, Format::cbor);
  messages["watch"] = encodeRequest({"host", {{1}}}, Format::cbor);
  Reply got = reply(1001);
  got.value = "12.5";
  messages["got"] = encodeReply(got, Format::json);
  Reply refused = reply(1001);
  refused.result = ModelRes_Vetoed;
  refused.reason = "not while it runs";
  refused.value = "auto";
  messages["refused"] = encodeReply(refused, Format::cbor);
  Reply leased = reply(1001);
  leased.lease = 60'000;
  messages["leased"] = encodeReply(leased, Format::cbor);
  Reply synced = reply(1001);
  synced.batch = encodeBatch({sampleEpoch, 1, 1001, 1000, sampleTime, 360'000, {}});
  messages["synced"] = encodeReply(synced, Format::cbor);
  return messages;
}

std::string quoted(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

/// The next item in diagnostic notation. Texts of the examples need no escapes.
std::string toDiagnostic(CborReader& reader) {
  std::uint64_t number = 0;
  std::int64_t negative = 0;
  std::string_view text;
  bool flag = false;
  CborItems items;
  std::string out;
  switch (reader.kind()) {
    case CborReader::Kind::unsignedNumber:
      return reader.readUnsigned(number, UINT64_MAX) ? std::to_string(number) : "?";
    case CborReader::Kind::negativeNumber:
      return reader.readSigned(negative, INT64_MAX) ? std::to_string(negative) : "?";
    case CborReader::Kind::boolean:
      return !reader.readBoolean(flag) ? "?" : flag ? "true" : "false";
    case CborReader::Kind::text:
      return reader.readText(text, SIZE_MAX) ? quoted(text) : "?";
    case CborReader::Kind::bytes:
      return reader.readBytes(text, SIZE_MAX) ? "h'" + wire_tests::toHex(text) + "'" : "?";
    case CborReader::Kind::array:
      reader.enterArray(items);
      while (reader.next(items)) {
        out += (out.empty() ? "" : ",") + toDiagnostic(reader);
      }
      return "[" + out + "]";
    case CborReader::Kind::map:
      reader.enterMap(items);
      while (reader.next(items)) {
        out += (out.empty() ? "" : ",") + toDiagnostic(reader) + ":";
        out += toDiagnostic(reader);
      }
      return "{" + out + "}";
    default:
      return "?";
  }
}

std::string allDiagnostic(std::string_view bytes) {
  CborReader reader(bytes);
  std::string out;
  while (reader.kind() != CborReader::Kind::none) {
    out += toDiagnostic(reader);
  }
  return out;
}

/// `text` without what a reader skips between the items.
std::string withoutSpaces(std::string_view text) {
  std::string out;
  bool isQuoted = false;
  for (const char c : text) {
    isQuoted = isQuoted != (c == '"');
    if (isQuoted || (c != ' ' && c != '\n')) {
      out += c;
    }
  }
  return out;
}

/// The blocks of the document by "KIND NAME".
Blocks documentedBlocks() {
  std::ifstream document(test_support::sourceDirectory() + "/gateway/PROTOCOL.md");
  Blocks blocks;
  std::string* open = nullptr;
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with("```")) {
      open = line.size() > 3 ? &blocks[line.substr(3)] : nullptr;
    } else if (open != nullptr) {
      *open += line + "\n";
    }
  }
  return blocks;
}

TEST(WireProtocol, ExamplesAreWhatTheEncodersMake) {
  Blocks blocks = documentedBlocks();
  for (const auto& [name, message] : documentedMessages()) {
    if (message.starts_with('{')) {
      EXPECT_EQ(withoutSpaces(blocks["json " + name]), message);
      blocks.erase("json " + name);
      continue;
    }
    EXPECT_EQ(wire_tests::toHex(wire_tests::fromHex(blocks["hex " + name])),
              wire_tests::toHex(message))
        << name;
    EXPECT_EQ(withoutSpaces(blocks["diag " + name]), allDiagnostic(message)) << name;
    blocks.erase("hex " + name);
    blocks.erase("diag " + name);
  }
  for (const auto& [name, text] : blocks) {
    ADD_FAILURE() << "no encoder makes the example \"" << name << "\"";
  }
}

}  // namespace
