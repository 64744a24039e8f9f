#include "tests/fault/client.h"

#include "tests/support/process.h"

namespace fault {

using Clock = std::chrono::steady_clock;
using ModelSrv::ModelRes;

namespace {

std::chrono::milliseconds since(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

}  // namespace

ModelRes WatchedPart::update(void* /*context*/, unsigned short index) {
  if (readsInUpdate) {
    std::ostringstream value;
    if (save(value, index) == ModelSrv::ModelRes_Success) {
      lastValue_ = value.str();
    }
  }
  ++updates_;
  return ModelSrv::ModelRes_Success;
}

Client::Client(bool reconnects) : manager(EvtSrv::ConBehave_Default, reconnects), root(&manager) {
  static_cast<void>(root.add(&counter));
  static_cast<void>(root.add(&text));
  static_cast<void>(root.add(&many));
}

Client::~Client() {
  // Stopped first, so that the proxies do not cancel their subscriptions one by one.
  root.stop(true);
}

Reply Client::connect(const std::string& port) {
  const auto start = Clock::now();
  const ModelRes result =
      root.startAsClient(port, ModelSrv::ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Default);
  return {result, {}, since(start)};
}

Reply Client::get(ModelSrv::ModelPart& part) {
  const auto start = Clock::now();
  std::ostringstream out;
  const ModelRes result = part.save(out, ModelSrv::ModelPartIndex_All);
  return {result, out.str(), since(start)};
}

Reply Client::store(ModelSrv::ModelPart& part, const std::string& value) {
  const auto start = Clock::now();
  std::istringstream in(value);
  const ModelRes result = part.load(in, false, ModelSrv::ModelPartIndex_All);
  return {result, {}, since(start)};
}

ModelRes Client::subscribe(ModelSrv::ModelPart& part) {
  return part.subscribeToServer(&root, 0, nullptr, ModelSrv::ModelPartIndex_All);
}

bool Client::pumpUntil(const std::function<bool()>& done) {
  const auto end = Clock::now() + test_support::timeout;
  while (!done()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) {
      return false;
    }
    // A time-out ends the loop.
    static_cast<void>(manager.receiveEvent(static_cast<int>(left.count())));
  }
  return true;
}

void Client::addProxies() {
  for (unsigned id = 0; id < manyParts; ++id) {
    parts.push_back(std::make_unique<WatchedPart>(static_cast<ModelSrv::ModelPartId>(id)));
    static_cast<void>(many.add(parts.back().get()));
  }
}

}  // namespace fault
