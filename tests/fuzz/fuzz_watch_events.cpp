/// How a client dispatches the events of its watches.
///
/// Input: the byte order (lowest bit), then a sequence of steps. A step is a byte, whose value
/// modulo the number of steps says what happens: a watch begins; one ends; a request for one times
/// out, so that it is a stray; a stray is ended; the connection is lost; or an event comes. An
/// event is a type, a length, and so many bytes of payload. While a callback runs, it takes steps,
/// too: as many as the first byte that it finds says, at most three. So events are nested, and
/// watches end within their own callbacks.
///
/// Each event that a callback gets has exactly the bytes of a payload that came for its watch; a
/// malformed payload reaches none.
///
/// Corpus: `value`, `added`, `removed`, `marks`, `foreign` (most significant byte first), `strays`,
/// `nested`, `ends_itself`, `truncated`, `trailing`, and `bad_…` for a field that is out of range.

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/client_side.h"
#include "modelsrv/source/client_watches.h"
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
using Kind = WatchEvent::Kind;

/// The payload of the events 4 and 5 up to the chain, in this machine's order. The result is that
/// of the event, which a code that is not known has changed.
Bytes encoded(WatchNumber number, std::uint16_t type, const WatchEvent& event, bool hasResult) {
  Bytes bytes;
  PayloadWriter writer(bytes);
  writer.u32(number);
  const auto time = static_cast<std::uint64_t>(event.timeNs);
  const auto writeTimeAndIndex = [&] {
    writer.u32(static_cast<std::uint32_t>(time >> 32U));
    writer.u32(static_cast<std::uint32_t>(time));
    writer.u16(event.index);
    writer.u16(static_cast<std::uint16_t>(hasResult ? event.result : 0));
  };
  if (type == watchValueEvent) {
    writer.u32(event.changes);
    writeTimeAndIndex();
  } else {
    writer.u16(static_cast<std::uint16_t>(event.kind == Kind::begin      ? WatchStructure::begin
                                          : event.kind == Kind::complete ? WatchStructure::complete
                                          : event.kind == Kind::removed  ? WatchStructure::removed
                                                                         : WatchStructure::added));
    if (event.kind == Kind::begin || event.kind == Kind::complete) {
      return bytes;
    }
    if (event.kind != Kind::removed) {
      writer.u16(event.isNode ? 1 : 0);
      writeTimeAndIndex();
    }
  }
  writer.u16(static_cast<std::uint16_t>(event.chain.size()));
  writer.u16s(event.chain);
  if (type != watchValueEvent && event.kind != Kind::removed) {
    writer.u16(static_cast<std::uint16_t>(event.name.size()));
    writer.bytes(event.name);
  }
  if (event.kind != Kind::removed) {
    writer.bytes(event.text);
  }
  return bytes;
}

class Client {
 public:
  Client(fuzz::Input& input, ByteOrder order) : input_(input), order_(order) {}
  ~Client() { watches_.clear(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void step() {
    enum Step { begin, end, stray, strayEnded, lost, event, steps };
    switch (input_.u8() % steps) {
      case begin:
        beginWatch();
        return;
      case end:
        endWatch(input_.u8());
        return;
      case stray:
        watches_.noteStray(watches_.nextNumber());
        ++given_;
        return;
      case strayEnded:
        if (const auto number = watches_.firstToEnd()) {
          watches_.markEnded(*number);
        }
        return;
      case lost:
        watches_.markAllLost();
        require(!watches_.firstToEnd(), "a new connection has no strays");
        return;
      default:
        dispatchEvent();
    }
  }

 private:
  struct Event {
    WatchNumber number;
    std::uint16_t type;
    std::span<const std::uint8_t> payload;
  };

  void beginWatch() {
    constexpr std::size_t most = 16;
    if (given_ >= most) {
      return;
    }
    const auto watch = std::make_shared<ClientWatch>(manager_, std::vector<ModelPartId>{},
                                                     WatchOptions(), nullptr);
    watch->number = watches_.nextNumber();
    watch->callback = [this, number = watch->number](const WatchEvent& event) {
      called(number, event);
    };
    ++given_;
    watches_.add(watch, client_);
  }

  void endWatch(WatchNumber number) {
    // As `Watch::stop` does.
    if (const ClientWatches::Pointer watch = watches_.find(number)) {
      watches_.erase(*watch);
      require(watch->client == nullptr && watches_.find(number) == nullptr, "it has ended");
    }
  }

  void dispatchEvent() {
    constexpr std::size_t deepest = 8;
    const std::uint16_t type = input_.u8() % 2 == 0 ? watchValueEvent : watchStructureEvent;
    // A copy, so that the sanitizer finds an access beyond its end.
    const std::span<const std::uint8_t> bytes = input_.bytes(input_.u8());
    const Bytes payload(bytes.begin(), bytes.end());
    if (events_.size() >= deepest) {
      return;
    }
    const WatchNumber number = PayloadReader(payload, order_).u32();
    const bool isActive = watches_.find(number) != nullptr;
    events_.push_back({number, type, payload});
    calls_ = 0;
    const bool isStray = watches_.dispatch(type, PayloadReader(payload, order_));
    events_.pop_back();
    require(!isStray || !isActive, "an active watch is no stray");
    require(!isStray || watches_.firstToEnd().has_value(), "a stray is to be ended");
  }

  void called(WatchNumber number, const WatchEvent& event) {
    const Event given = events_.back();
    require(given.number == number, "the event is for this watch");
    require(watches_.find(number) != nullptr, "the watch has not ended");
    require(++calls_ <= 2, "an event has a value at most");
    require(event.chain.size() <= ModelDepth_Max, "no part is deeper than the limit");
    require(event.index != ModelPartIndex_Void, "the index is none that ends a chain");
    require(event.result < ModelRes_NotConnected || event.result == ModelRes_Protocol,
            "no server sends a result of the connection");
    checkBytes(given, event);
    for (unsigned steps = input_.u8() % 4; steps > 0 && !input_.isEmpty(); --steps) {
      step();
    }
    // What was dispatched meanwhile has left the event as it is.
    checkBytes(given, event);
    calls_ = event.kind == Kind::added ? 1 : 2;
  }

  void checkBytes(const Event& given, const WatchEvent& event) const {
    const bool hasResult = event.result != ModelRes_Protocol;
    const Bytes bytes = encoded(given.number, given.type, event, hasResult);
    require(bytes.size() == given.payload.size(), "no byte of the payload is left over");
    require(order_ != nativeOrder || !hasResult ||
                std::equal(bytes.begin(), bytes.end(), given.payload.begin()),
            "the event is what was sent");
  }

  static EvtSrv::EventPortManager& sharedManager() {
    static EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, false};
    return manager;
  }

  fuzz::Input& input_;
  const ByteOrder order_;
  EvtSrv::EventPortManager& manager_ = sharedManager();
  const std::lock_guard<KSTD::KThreadMutex> lock_{manager_.clientMutex};
  ModelRoot root_{&manager_};
  ClientSide client_{root_};
  ClientWatches watches_;
  std::size_t given_ = 0;
  std::vector<Event> events_;  ///< that are being dispatched, the outermost one first
  int calls_ = 0;              ///< of callbacks, for the event that is being dispatched
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Client client(input, static_cast<ByteOrder>(input.u8() & 1U));
  while (!input.isEmpty()) {
    client.step();
  }
  return 0;
}
