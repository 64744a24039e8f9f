#include <memory>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/tree_session.h"
#include "modelsrv/value_parts.h"
#include "tests/fuzz/fuzz_input.h"

using EvtSrv::internal::ByteOrder;
using EvtSrv::internal::PayloadReader;

namespace {

/// Takes events as they come, so that none pile up.
class DiscardingConnection final : public EvtSrv::internal::ServerConnection {
 public:
  void eventsPending() override {}
};

/// A tree with a part of each kind that requests treat differently.
struct Tree {
  Tree() {
    using ModelSrv::ModelRes_Success;
    require(root.add(&node) == ModelRes_Success && root.add(&number) == ModelRes_Success);
    require(node.add(&text) == ModelRes_Success && node.add(&array) == ModelRes_Success);
    require(node.add(&guarded) == ModelRes_Success);
  }

  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Void, false};
  ModelSrv::ModelRoot root{&manager};
  ModelSrv::ModelNode node{1, "node"};
  ModelSrv::ValuePart<std::int32_t> number{2, "number", 42};
  ModelSrv::ValuePart<std::string> text{1, "text", "two words"};
  ModelSrv::ArrayPart<double> array{2, "array", {1.5, 0.25}, {"p", "i"}};
  ModelSrv::ValuePart<bool> guarded{3, "guarded", false, ModelSrv::ModelPartStatus_Protected};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Tree tree;
  DiscardingConnection connection;
  auto share = std::make_shared<ModelSrv::internal::SessionShare>(
      ModelSrv::internal::SessionShare{tree.root});
  ModelSrv::internal::TreeSession session(share, connection);

  // Several requests of one client: order, operation, length, payload.
  FuzzInput input(data, size);
  for (int count = 0; count < 32; ++count) {
    const std::uint8_t head = input.byte();
    const auto order = (head & 0x80U) == 0 ? ByteOrder::leastFirst : ByteOrder::mostFirst;
    const auto bytes = input.take(input.byte());
    const std::vector<std::uint8_t> payload(bytes.begin(), bytes.end());
    PayloadReader reader(payload, order);
    std::vector<std::uint8_t> reply{0x11};
    const std::uint16_t code = session.handle(head & 0x7FU, reader, reply);
    require(code < ModelSrv::ModelRes_NotConnected);
    require(code == ModelSrv::ModelRes_Success || reply.size() == 1);
  }
  std::uint16_t type = 0;
  std::vector<std::uint8_t> event;
  while (session.takeEvent(type, event)) {
  }
  return 0;
}
