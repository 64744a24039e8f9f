#include "bench/peers/model_client.h"

#include <sstream>
#include <stdexcept>

namespace bench::peers {

class ModelClient::Part : public ModelSrv::ModelPart {
 public:
  Part(ModelSrv::ModelPartId id, ModelClient& client) : ModelPart(id), client_(client) {}

  ModelSrv::ModelRes update(void* /*context*/, unsigned short index) override {
    if (client_.values_ == Values::requested) {
      std::ostringstream text;
      const ModelSrv::ModelRes result = save(text, index);
      if (result != ModelSrv::ModelRes_Success) {
        return result;
      }
    }
    client_.count_->fetch_add(1, std::memory_order_relaxed);
    return ModelSrv::ModelRes_Success;
  }

 private:
  ModelClient& client_;
};

namespace {

void check(ModelSrv::ModelRes result, const char* what) {
  if (result != ModelSrv::ModelRes_Success) {
    throw std::runtime_error(std::string(what) + ": " + ModelSrv::describe(result));
  }
}

}  // namespace

ModelClient::ModelClient(const std::string& server, unsigned long groups) {
  for (unsigned long group = 0; group < groups; ++group) {
    auto& node = groups_.emplace_back(static_cast<ModelSrv::ModelPartId>(group), "");
    check(root_.add(&node), "group");
    for (unsigned item = 0; item < partsPerGroup; ++item) {
      const auto id = static_cast<ModelSrv::ModelPartId>(item);
      check(node.add(parts_.emplace_back(std::make_unique<Part>(id, *this)).get()), "part");
    }
  }
  check(
      root_.startAsClient(server, ModelSrv::ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Default),
      "no connection to the server");
}

ModelClient::~ModelClient() = default;

void ModelClient::store(std::size_t number, unsigned long value) {
  std::istringstream text(std::to_string(value));
  check(parts_[number % parts_.size()]->load(text, false, ModelSrv::ModelPartIndex_All), "store");
}

void ModelClient::countUpdates(Values values, Subscriber::Count& count,
                               const std::function<void()>& ready) {
  count_ = &count;
  values_ = values;
  if (values == Values::watched) {
    const auto counts = [&count](const ModelSrv::WatchEvent& event) {
      if (event.changes != 0) {
        count.fetch_add(1, std::memory_order_relaxed);
      }
    };
    check(watch_.start(root_, {}, {.subtree = true}, counts), "watch");
  }
  for (const auto& part : parts_) {
    if (values == Values::watched) {
      break;
    }
    check(part->subscribeToServer(&root_, 0, nullptr, ModelSrv::ModelPartIndex_All), "subscribe");
  }
  ready();
  for (;;) {
    static_cast<void>(manager_.receiveEvent(-1));
  }
}

}  // namespace bench::peers
