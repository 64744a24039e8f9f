/// The replies of a server to any bytes as requests.
///
/// Input: a sequence of requests, each an operation (one byte), flags (one byte: 1 the other byte
/// order, 2 the server sets a value itself, 4 the client takes its events), the length of the
/// payload (one byte) and the payload. Every request gets a reply: an error without a payload, or
/// a success with a payload that the client's decoders accept. A stored value can be saved and
/// stored again. Events are about subscribed and watched parts only.
///
/// Corpus: `look_around`, `save_and_load`, `array`, `subscriptions`,
/// `unknown_operation`, `trailing_byte`, `other_order`,
/// `prefetch_of_nothing`, `describe`.

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/cache/reply_cache.h"
#include "modelsrv/source/description.h"
#include "modelsrv/source/line_text.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/requests.h"
#include "modelsrv/source/tree_pages.h"
#include "modelsrv/source/tree_session.h"
#include "modelsrv/source/updates.h"
#include "modelsrv/source/watch_payloads.h"
#include "modelsrv/value_parts.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/platform/modelsrv/foreign_bytes.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::nativeOrder;
using EvtSrv::internal::PayloadReader;
using fuzz::require;
using Bytes = std::vector<std::uint8_t>;
using Chain = std::vector<ModelPartId>;

class Connection final : public EvtSrv::internal::ServerConnection {
 public:
  void eventsPending() override { isNotified = true; }
  EvtSrv::internal::SessionAccount& account() override { return account_; }
  void closeOnNextDispatch() override {}
  std::shared_ptr<EvtSrv::internal::DeferredReply> deferReply() override { return nullptr; }
  std::shared_ptr<EvtSrv::internal::RequestHold> holdRequests() override { return nullptr; }
  bool isNotified = false;

 private:
  EvtSrv::internal::SessionAccount account_{std::make_shared<EvtSrv::internal::Accounts>(), 0};
};

// The texts: unlike numbers they may change when they are saved and stored again.
constexpr ModelPartId nodeId = 1;
constexpr ModelPartId textId = 6;
constexpr ModelPartId textsId = 7;

class Service {
 public:
  explicit Service(EvtSrv::EventPortManager& manager) : manager_(manager), root_(&manager) {
    addTo(root_, node_);
    for (ModelPart* part : std::initializer_list<ModelPart*>{
             &number_, &real_, &flag_, &gains_, &text_, &texts_, &fixed_, &guarded_, &mute_}) {
      addTo(node_, *part);
    }
    share_->invalidator.open();
    mute_.setSubscribable(false);
    require(gains_.setAttributes({"1/s", "-100", "100", "gains", {}}) == ModelRes_Success &&
                texts_.setAttributes({"", "", "", "", {"a", "", "c"}}) == ModelRes_Success,
            "attributes can be stated");
    number_.setStoreCheck([](const std::int32_t& value, ModelPartIndex) {
      return value == 13 ? ModelRes_Vetoed : ModelRes_Success;
    });
  }

  void run(fuzz::Input input) {
    constexpr int maxRequests = 100;
    for (int i = 0; i < maxRequests && !input.isEmpty(); ++i) {
      const std::uint16_t operation = input.u8();
      const std::uint8_t flags = input.u8();
      const std::span<const std::uint8_t> payload = input.bytes(input.u8());
      if ((flags & 2U) != 0) {
        require(number_.setValue(static_cast<std::int32_t>(payload.size())) == ModelRes_Success,
                "the server may set any value");
      }
      if ((flags & 8U) != 0) {
        require(node_.remove(&number_) == ModelRes_Success, "a part can be taken out");
      }
      checkRequest(operation, payload,
                   (flags & 1U) != 0 ? modelsrv_tests::foreignOrder : nativeOrder);
      if ((flags & 8U) != 0) {
        require(node_.add(&number_) == ModelRes_Success, "a part can be put back");
      }
      if ((flags & 4U) != 0) {
        takeEvents();
      }
    }
    takeEvents();
  }

 private:
  static PayloadReader reader(const Bytes& bytes) { return {bytes, nativeOrder}; }

  static void addTo(ModelNode& node, ModelPart& part) {
    require(node.add(&part) == ModelRes_Success, "the tree can be built");
  }

  ModelRes handle(std::uint16_t operation, std::span<const std::uint8_t> payload, ByteOrder order) {
    const std::lock_guard lock(manager_.clientMutex);
    reply_ = {1, 2};
    PayloadReader reader(payload, order);
    const auto code = session_.handle(operation, reader, reply_);
    require(reply_.size() >= 2 && reply_[0] == 1 && reply_[1] == 2, "earlier bytes are unchanged");
    reply_.erase(reply_.begin(), reply_.begin() + 2);
    const ModelRes result = decodeResult(code);
    require(result != ModelRes_Protocol, "clients know the code of a reply");
    require(
        result == ModelRes_Success || reply_.empty() ||
            (operation == static_cast<std::uint16_t>(Operation::load) &&
             reply_.size() <= ModelReason_Max && isLine(PayloadReader(reply_, nativeOrder).rest())),
        "a failed reply has no payload, but that of a store may have a reason");
    return result;
  }

  ModelRes handle(const Request& request) {
    Bytes payload;
    encodeRequest(request.view(), payload);
    return handle(static_cast<std::uint16_t>(request.operation), payload, nativeOrder);
  }

  void checkRequest(std::uint16_t operation, std::span<const std::uint8_t> payload,
                    ByteOrder order) {
    const ModelRes result = handle(operation, payload, order);
    Request request;
    PayloadReader reader(payload, order);
    if (!decodeRequest(operation, reader, request)) {
      require(result == ModelRes_BadRequest, "a malformed request is rejected as such");
      return;
    }
    checkEncoding(request, payload, order);
    if (result == ModelRes_Success) {
      checkSuccess(request);
    }
  }

  static void checkEncoding(const Request& request, std::span<const std::uint8_t> payload,
                            ByteOrder order) {
    Bytes encoded;
    encodeRequest(request.view(), encoded);
    require(encoded.size() == payload.size(), "no byte of a request is left over");
    require(order != nativeOrder || std::equal(encoded.begin(), encoded.end(), payload.begin()),
            "encoding gives the same bytes");
  }

  void checkSuccess(const Request& request) {
    const PayloadReader reply(reply_, nativeOrder);
    switch (request.operation) {
      case Operation::childIds: {
        std::vector<ModelPartId> ids;
        require(decodeIds(reply, ids), "ids can be decoded");
        return;
      }
      case Operation::childNames:
      case Operation::elementNames: {
        std::vector<std::string> names;
        require(decodeNames(reply, names), "names can be decoded");
        return;
      }
      case Operation::elementSum: {
        std::uint16_t sum = 0;
        require(decodeSum(reply, sum), "a sum can be decoded");
        return;
      }
      case Operation::save:
        require(reply_.size() <= ModelValueText_Max, "no value is larger than the limit");
        return;
      case Operation::load:
        require(reply_.empty(), "the reply to a store has no payload");
        checkStored(request);
        return;
      case Operation::subscribe:
      case Operation::renew:
        require(reply_.empty(), "the reply to a subscription has no payload");
        ++subscribed_[request.chain];
        return;
      case Operation::unsubscribe:
        require(subscribed_[request.chain] > 0, "only an existing subscription is cancelled");
        --subscribed_[request.chain];
        return;
      case Operation::prefetch:
        require(ReplyCache(EvtSrv::internal::posixSystem())
                        .replace(request.chain, reply_, nativeOrder) != nullptr,
                "a prefetch reply can be decoded");
        return;
      case Operation::describe: {
        PartDescription description;
        require(decodeDescription(reply, description), "a description can be decoded");
        Bytes encoded;
        require(encodeDescription(description, encoded) && encoded == reply_,
                "encoding gives the same bytes");
        return;
      }
      case Operation::watch:
        require(reply_.empty(), "the reply to a watch has no payload");
        require(watched_.insert(request.number).second, "each watch has a number of its own");
        return;
      case Operation::unwatch:
        require(reply_.empty(), "the reply to the end of a watch has no payload");
        require(watched_.erase(request.number) == 1, "only an existing watch is ended");
        return;
      case Operation::readTree:
        checkPage(reply);
        return;
    }
    require(false, "only known operations succeed");
  }

  static void checkPage(const PayloadReader& reply) {
    TreePageReader page;
    require(page.begin(reply), "a page of a tree can be decoded");
    Chain ids;
    TreePart part;
    TreePageReader::LeftOut leftOut;
    TreePageReader::Next next = TreePageReader::Next::part;
    while (next == TreePageReader::Next::part) {
      next = page.next(ids, part, leftOut);
    }
    require(next == TreePageReader::Next::end, "each part of a page can be decoded");
  }

  void checkStored(Request request) {
    request.operation = Operation::save;
    require(handle(request) == ModelRes_Success, "a stored value can be saved");
    const Bytes saved = reply_;
    request.operation = Operation::load;
    request.flag = true;
    request.text = {reinterpret_cast<const char*>(saved.data()), saved.size()};
    const ModelRes again = handle(request);
    const bool isText = request.chain.back() == textId || request.chain.back() == textsId;
    require(isText || again == ModelRes_Success, "a saved value can be stored");
    request.operation = Operation::save;
    require(handle(request) == ModelRes_Success && (isText || reply_ == saved),
            "storing a saved number does not change it");
  }

  void checkEvent(std::uint16_t type, const PayloadReader& payload) {
    if (type == ModelRoot::EvtTyp_Model_Update) {
      Update update;
      require(decodeUpdate(payload, update), "updates can be decoded");
      const auto subscribed = subscribed_.find(update.chain);
      require(subscribed != subscribed_.end() && subscribed->second > 0,
              "updates are about subscribed parts");
      return;
    }
    DecodedWatchEvent event;
    require(decodeWatchEvent(type, payload, event), "other events are those of watches");
    require(watched_.count(event.number) == 1, "events are about parts that are watched");
  }

  void takeEvents() {
    const std::lock_guard lock(manager_.clientMutex);
    std::uint16_t type = 0;
    Bytes payload;
    while (session_.takeEvent(type, payload)) {
      require(connection_.isNotified, "the connection is notified of events");
      checkEvent(type, PayloadReader(payload, nativeOrder));
      payload.clear();
    }
    connection_.isNotified = false;
  }

  EvtSrv::EventPortManager& manager_;
  ModelRoot root_;
  ModelNode node_{nodeId, "node"};
  ValuePart<std::int32_t> number_{2, "number", 42};
  ValuePart<double> real_{3, "real", 0.1};
  ValuePart<bool> flag_{4, "flag", true};
  ArrayPart<float> gains_{5, "gains", {1.5F, 0.25F, -2}, {"p", "i", ""}};
  ValuePart<std::string> text_{textId, "text", "some\ntext"};
  ArrayPart<std::string> texts_{textsId, "", {"a", "", "c"}};
  ValuePart<std::uint64_t> fixed_{8, "fixed", 8, ModelPartStatus_ReadOnly};
  ValuePart<std::int8_t> guarded_{9, "guarded", 9, ModelPartStatus_Protected};
  ValuePart<std::int64_t> mute_{ModelPartId_Max, "mute"};
  Connection connection_;
  std::shared_ptr<SessionShare> share_ = std::make_shared<SessionShare>(root_);
  TreeSession session_{share_, connection_};
  Bytes reply_;
  std::map<Chain, int> subscribed_;
  std::set<WatchNumber> watched_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  Service service(manager);
  service.run(fuzz::Input(data, size));
  return 0;
}
