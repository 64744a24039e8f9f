/// What a client takes from a server: replies and updates.
///
/// Input: the byte order (its lowest bit), then a payload that every decoder gets.
/// What one takes is the whole payload and would be written the same again; what
/// it refuses leaves its output alone.
///
/// Corpus: `ids`, `names`, `sum`, `update`, `update_foreign` (most significant byte
/// first), `lying_count`, `lying_length`, `trailing_byte`.

#include <string>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/updates.h"
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

struct Given {
  std::span<const std::uint8_t> payload;
  ByteOrder order;
  [[nodiscard]] PayloadReader reader() const { return {payload, order}; }
};

void checkWritten(const Given& given, const Bytes& written) {
  require(written.size() == given.payload.size(), "no byte of a payload is left over");
  require(given.order != nativeOrder ||
              std::equal(written.begin(), written.end(), given.payload.begin()),
          "what was read is written the same again");
}

void checkIds(const Given& given) {
  std::vector<ModelPartId> ids{7};
  if (!decodeIds(given.reader(), ids)) {
    require(ids == std::vector<ModelPartId>{7}, "refused ids leave the output alone");
    return;
  }
  Bytes written;
  CountedReply reply(written);
  for (const ModelPartId id : ids) {
    reply.addId(id);
  }
  checkWritten(given, written);
}

void checkNames(const Given& given) {
  std::vector<std::string> names{"kept"};
  if (!decodeNames(given.reader(), names)) {
    require(names == std::vector<std::string>{"kept"}, "refused names leave the output alone");
    return;
  }
  Bytes written;
  CountedReply reply(written);
  for (const std::string& name : names) {
    reply.addName(name);
  }
  checkWritten(given, written);
}

void checkSum(const Given& given) {
  std::uint16_t sum = 7;
  if (!decodeSum(given.reader(), sum)) {
    require(sum == 7, "a refused sum leaves the output alone");
    return;
  }
  Bytes written;
  PayloadWriter(written).u16(sum);
  checkWritten(given, written);
}

void checkResult(const Given& given) {
  const std::uint16_t code = given.reader().u16();
  const ModelRes result = decodeResult(code);
  require(result == ModelRes_Protocol || static_cast<unsigned>(result) == code,
          "a result is the number that was sent, or a fault");
  require(result == ModelRes_Protocol || result < ModelRes_NotConnected,
          "no server sends a result of the connection");
}

void checkUpdate(const Given& given) {
  Update update{{7}, 8};
  const bool decoded = decodeUpdate(given.reader(), update);
  if (decoded) {
    require(update.chain.size() <= ModelDepth_Max, "no part lies deeper than the limit");
    Bytes written;
    PayloadWriter writer(written);
    writer.u16s(update.chain);
    writer.u16(ModelPartIndex_Void);
    writer.u16(update.index);
    checkWritten(given, written);
  } else {
    require(update.chain == std::vector<ModelPartId>{7} && update.index == 8,
            "a refused update leaves the output alone");
  }

  EvtSrv::MemoryHolder holder = makeHolder(given.payload, given.order);
  require(holder.position() == 1, "the reading of an event starts behind its flag");
  if (given.payload.size() % sizeof(std::uint16_t) == 0) {
    Update held;
    require(readUpdate(holder, held) == decoded, "a holder keeps what an update is");
    require(!decoded || (held.chain == update.chain && held.index == update.index),
            "an update survives its holder");
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
  const Given given{input.rest(), order};
  checkIds(given);
  checkNames(given);
  checkSum(given);
  checkResult(given);
  checkUpdate(given);
  return 0;
}
