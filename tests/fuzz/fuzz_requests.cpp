/// A server's answers: any bytes as requests to a small served tree.
///
/// Input: requests one behind the other, each an operation (one byte), flags (one
/// byte: 1 the other byte order, 2 the server sets a value itself, 4 the client
/// takes its events), a payload's length (one byte) and the payload. Whatever is
/// asked is answered: a error without a payload, a success with one that the
/// client's decoders take. What was stored can be saved and stored again. Events
/// tell of parts that the client has subscribed, and of nothing else.
///
/// Corpus: `look_around`, `save_and_load`, `array`, `subscriptions`,
/// `unknown_operation`, `trailing_byte`, `other_order`,
/// `excerpt_of_nothing`.

#include <map>
#include <memory>
#include <string>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/cache/reply_cache.h"
#include "modelsrv/source/replies.h"
#include "modelsrv/source/requests.h"
#include "modelsrv/source/tree_session.h"
#include "modelsrv/source/updates.h"
#include "modelsrv/value_parts.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::nativeOrder;
using EvtSrv::internal::PayloadReader;
using fuzz::require;
using Bytes = std::vector<std::uint8_t>;
using Chain = std::vector<ModelPartId>;

constexpr ByteOrder otherOrder =
    nativeOrder == ByteOrder::leastFirst ? ByteOrder::mostFirst : ByteOrder::leastFirst;

class Connection final : public EvtSrv::internal::ServerConnection {
 public:
  void eventsPending() override { told = true; }
  void closeOnNextDispatch() override {}
  bool told = false;
};

// Ids below the node: text may change when it is read again, numbers not.
constexpr ModelPartId nodeId = 1;
constexpr ModelPartId textId = 6;
constexpr ModelPartId textsId = 7;

class Service {
 public:
  explicit Service(EvtSrv::EventPortManager& manager) : root_(&manager) {
    hang(root_, node_);
    for (ModelPart* part : std::initializer_list<ModelPart*>{
             &number_, &real_, &flag_, &gains_, &text_, &texts_, &fixed_, &guarded_, &mute_}) {
      hang(node_, *part);
    }
    share_->invalidator.open();
    mute_.setSubscribable(false);
    number_.setStoreCheck([](const std::int32_t& value, ModelPartIndex) {
      return value == 13 ? ModelRes_Vetoed : ModelRes_Success;
    });
  }

  void run(fuzz::Input input) {
    constexpr int most = 100;
    for (int i = 0; i < most && !input.isEmpty(); ++i) {
      const std::uint16_t operation = input.u8();
      const std::uint8_t flags = input.u8();
      const std::span<const std::uint8_t> payload = input.bytes(input.u8());
      if ((flags & 2U) != 0) {
        require(number_.setValue(static_cast<std::int32_t>(payload.size())) == ModelRes_Success,
                "the server sets what it likes");
      }
      ask(operation, payload, (flags & 1U) != 0 ? otherOrder : nativeOrder);
      if ((flags & 4U) != 0) {
        takeEvents();
      }
    }
    takeEvents();
  }

 private:
  static void hang(ModelNode& node, ModelPart& part) {
    require(node.add(&part) == ModelRes_Success, "the tree can be built");
  }

  ModelRes handle(std::uint16_t operation, std::span<const std::uint8_t> payload, ByteOrder order) {
    reply_ = {1, 2};
    PayloadReader reader(payload, order);
    const auto code = session_.handle(operation, reader, reply_);
    require(reply_.size() >= 2 && reply_[0] == 1 && reply_[1] == 2,
            "what stood before a reply stays");
    reply_.erase(reply_.begin(), reply_.begin() + 2);
    const ModelRes result = decodeResult(code);
    require(result != ModelRes_Protocol, "a reply's code is one that clients know");
    require(result == ModelRes_Success || reply_.empty(), "a failed reply has no payload");
    return result;
  }

  ModelRes handle(const Request& request) {
    Bytes payload;
    encodeRequest(request.view(), payload);
    return handle(static_cast<std::uint16_t>(request.operation), payload, nativeOrder);
  }

  void ask(std::uint16_t operation, std::span<const std::uint8_t> payload, ByteOrder order) {
    const ModelRes result = handle(operation, payload, order);
    Request request;
    PayloadReader reader(payload, order);
    if (!decodeRequest(operation, reader, request)) {
      require(result == ModelRes_BadRequest, "what is no request is refused as such");
      return;
    }
    checkEncoding(request, payload, order);
    if (result == ModelRes_Success) {
      checkSuccess(request);
    }
  }

  static void checkEncoding(const Request& request, std::span<const std::uint8_t> payload,
                            ByteOrder order) {
    Bytes written;
    encodeRequest(request.view(), written);
    require(written.size() == payload.size(), "no byte of a request is left over");
    require(order != nativeOrder || std::equal(written.begin(), written.end(), payload.begin()),
            "a request is written as it came");
  }

  void checkSuccess(const Request& request) {
    const PayloadReader reply(reply_, nativeOrder);
    switch (request.operation) {
      case Operation::childIds: {
        std::vector<ModelPartId> ids;
        require(decodeIds(reply, ids), "ids can be read");
        return;
      }
      case Operation::childNames:
      case Operation::elementNames: {
        std::vector<std::string> names;
        require(decodeNames(reply, names), "names can be read");
        return;
      }
      case Operation::elementSum: {
        std::uint16_t sum = 0;
        require(decodeSum(reply, sum), "a sum can be read");
        return;
      }
      case Operation::save:
        require(reply_.size() <= ModelValueText_Max, "no value is larger than the limit");
        return;
      case Operation::load:
        require(reply_.empty(), "a store is answered without a payload");
        checkStored(request);
        return;
      case Operation::subscribe:
        require(reply_.empty(), "a subscription is answered without a payload");
        ++subscribed_[request.chain];
        return;
      case Operation::unsubscribe:
        require(subscribed_[request.chain] > 0, "only what was subscribed is taken back");
        --subscribed_[request.chain];
        return;
      case Operation::prefetch:
        require(ReplyCache(EvtSrv::internal::posixSystem())
                        .replace(request.chain, reply_, nativeOrder) != nullptr,
                "a prefetch can be read");
        return;
    }
    require(false, "what is answered is an operation");
  }

  void checkStored(Request request) {
    request.operation = Operation::save;
    require(handle(request) == ModelRes_Success, "what was stored can be saved");
    const Bytes saved = reply_;
    request.operation = Operation::load;
    request.flag = true;
    request.text = {reinterpret_cast<const char*>(saved.data()), saved.size()};
    const ModelRes again = handle(request);
    const bool isText = request.chain.back() == textId || request.chain.back() == textsId;
    require(isText || again == ModelRes_Success, "what was saved can be stored");
    request.operation = Operation::save;
    require(handle(request) == ModelRes_Success && (isText || reply_ == saved),
            "and is the same then");
  }

  void takeEvents() {
    std::uint16_t type = 0;
    Bytes payload;
    while (session_.takeEvent(type, payload)) {
      require(connection_.told, "nobody has to look for events unasked");
      require(type == ModelRoot::EvtTyp_Model_Update, "events are updates");
      Update update;
      require(decodeUpdate(PayloadReader(payload, nativeOrder), update), "updates can be read");
      const auto wanted = subscribed_.find(update.chain);
      require(wanted != subscribed_.end() && wanted->second > 0,
              "updates tell of what is subscribed");
      payload.clear();
    }
    connection_.told = false;
  }

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
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  Service service(manager);
  service.run(fuzz::Input(data, size));
  return 0;
}
