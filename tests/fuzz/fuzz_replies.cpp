/// The decoders of a client: replies, updates and events of watches.
///
/// Input: the byte order (lowest bit), then a payload for every decoder. A decoder that accepts it
/// has used the whole payload, and encoding gives the same bytes; one that rejects it leaves its
/// output unchanged.
///
/// Corpus: `ids`, `names`, `sum`, `update`, `update_foreign` (most significant byte
/// first), `description`, `lying_count`, `lying_length`, `trailing_byte`, and `watch_…` for the
/// events of watches.

#include <string>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/description.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/updates.h"
#include "modelsrv/source/watch_payloads.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::nativeOrder;
using EvtSrv::internal::PayloadReader;
using EvtSrv::internal::PayloadWriter;
using fuzz::require;
using Bytes = std::vector<std::uint8_t>;

struct Payload {
  std::span<const std::uint8_t> payload;
  ByteOrder order;
  [[nodiscard]] PayloadReader reader() const { return {payload, order}; }
};

void checkEncoded(const Payload& given, const Bytes& encoded) {
  require(encoded.size() == given.payload.size(), "no byte of the payload is left over");
  require(given.order != nativeOrder ||
              std::equal(encoded.begin(), encoded.end(), given.payload.begin()),
          "encoding gives the same bytes");
}

void checkIds(const Payload& given) {
  std::vector<ModelPartId> ids{7};
  if (!decodeIds(given.reader(), ids)) {
    require(ids == std::vector<ModelPartId>{7}, "rejected ids leave the output unchanged");
    return;
  }
  Bytes encoded;
  CountedReply reply(encoded);
  for (const ModelPartId id : ids) {
    reply.addId(id);
  }
  checkEncoded(given, encoded);
}

void checkNames(const Payload& given) {
  std::vector<std::string> names{"before"};
  if (!decodeNames(given.reader(), names)) {
    require(names == std::vector<std::string>{"before"},
            "rejected names leave the output unchanged");
    return;
  }
  Bytes encoded;
  CountedReply reply(encoded);
  for (const std::string& name : names) {
    reply.addName(name);
  }
  checkEncoded(given, encoded);
}

void checkSum(const Payload& given) {
  std::uint16_t sum = 7;
  if (!decodeSum(given.reader(), sum)) {
    require(sum == 7, "a rejected sum leaves the output unchanged");
    return;
  }
  Bytes encoded;
  PayloadWriter(encoded).u16(sum);
  checkEncoded(given, encoded);
}

void checkDescription(const Payload& given) {
  PartDescription description;
  description.type = "before";
  if (!decodeDescription(given.reader(), description)) {
    require(description.type == "before", "a rejected description leaves the output unchanged");
    return;
  }
  require(hasValidTexts(description.attributes), "texts of a peer are cleaned");
  require(
      description.elementNames.empty() || description.elementNames.size() == description.elements,
      "there is one name for each element, or none");
  Bytes encoded;
  require(encodeDescription(description, encoded), "a decoded description can be encoded");
  PartDescription again;
  require(decodeDescription(PayloadReader(encoded, nativeOrder), again) && again == description,
          "decoding it again gives the same");
}

void checkResult(const Payload& given) {
  const std::uint16_t code = given.reader().u16();
  const ModelRes result = decodeResult(code);
  require(result == ModelRes_Protocol || static_cast<unsigned>(result) == code,
          "a result is the number that was sent, or a protocol error");
  require(result == ModelRes_Protocol || result < ModelRes_NotConnected,
          "no server sends a result of the connection");
  require(decodeStoreResult(code) == result ||
              (result == ModelRes_Protocol && decodeStoreResult(code) == ModelRes_OutcomeUnknown),
          "a store has one result more");
}

void checkWatchEvent(const Payload& given, std::uint16_t type) {
  const auto isInPayload = [&](std::string_view text) {
    const auto* const begin = reinterpret_cast<const char*>(given.payload.data());
    return text.empty() ||
           (text.data() >= begin && text.data() + text.size() <= begin + given.payload.size());
  };
  DecodedWatchEvent decoded;
  // The capacity of an earlier chain is reused.
  decoded.chain.assign(3, 7);
  if (!decodeWatchEvent(type, given.reader(), decoded)) {
    return;
  }
  require(decoded.chain.size() <= ModelDepth_Max, "no part is deeper than the limit");
  require(decoded.event.chain.data() == decoded.chain.data() &&
              decoded.event.chain.size() == decoded.chain.size(),
          "the event has the decoded chain");
  require(isInPayload(decoded.event.text) && isInPayload(decoded.event.name),
          "texts are in the payload");
  require(decoded.event.result < ModelRes_NotConnected || decoded.event.result == ModelRes_Protocol,
          "no server sends a result of the connection");
  require(!decoded.hasValue || decoded.event.kind == WatchEvent::Kind::added,
          "only an added part has a value besides");
}

void checkUpdate(const Payload& given) {
  Update update{{7}, 8};
  const bool decoded = decodeUpdate(given.reader(), update);
  if (decoded) {
    require(update.chain.size() <= ModelDepth_Max, "no part is deeper than the limit");
    Bytes encoded;
    PayloadWriter writer(encoded);
    writer.u16s(update.chain);
    writer.u16(ModelPartIndex_Void);
    writer.u16(update.index);
    checkEncoded(given, encoded);
  } else {
    require(update.chain == std::vector<ModelPartId>{7} && update.index == 8,
            "a rejected update leaves the output unchanged");
  }

  EvtSrv::MemoryHolder holder = makeHolder(given.payload, given.order);
  require(holder.position() == 1, "the position is after the flag");
  if (given.payload.size() % sizeof(std::uint16_t) == 0) {
    Update held;
    require(readUpdate(holder, held) == decoded, "a holder has the same update");
    require(!decoded || (held.chain == update.chain && held.index == update.index),
            "a holder has the same update");
  }

  static EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  static ModelRoot root(&manager);
  EvtSrv::MemoryHolder none;
  root.receiveMain("", ModelRoot::EvtTyp_Model_Update, &holder, &none);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const auto order = static_cast<ByteOrder>(input.u8() & 1U);
  const Payload given{input.rest(), order};
  checkIds(given);
  checkNames(given);
  checkSum(given);
  checkDescription(given);
  checkResult(given);
  checkUpdate(given);
  checkWatchEvent(given, watchValueEvent);
  checkWatchEvent(given, watchStructureEvent);
  return 0;
}
