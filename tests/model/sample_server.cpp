#include "tests/model/sample_server.h"

#include <gmock/gmock.h>

namespace treescope::test {

SampleServer::SampleServer(const std::string& name, Prefetch prefetch) {
  const auto addAll = [](ModelSrv::ModelNode& node,
                         std::initializer_list<ModelSrv::ModelPart*> all) {
    for (ModelSrv::ModelPart* part : all) {
      EXPECT_EQ(node.add(part), ModelSrv::ModelRes_Success) << part->name();
    }
  };
  addAll(inner_, {&deep});
  addAll(drive_, {&speed, &label, &gains, &raw, &serial, &offset, &secret, &limited, &unnamed,
                  &speedAgain, &inner_});
  addAll(unnamedNode_, {&x});
  addAll(root_, {&drive_, &empty_, &unnamedNode_, &odd, &top});
  secret.setSubscribable(false);
  limited.setStoreCheck([](const std::int32_t& value, ModelSrv::ModelPartIndex) {
    return value > 10 ? ModelSrv::ModelRes_Vetoed : ModelSrv::ModelRes_Success;
  });
  const auto start = [&] {
    EXPECT_EQ(root_.startAsServer(name), ModelSrv::ModelRes_Success) << name;
  };
  // Clients cache replies only while the thread that started the service runs.
  if (prefetch == Prefetch::enabled) {
    start();
  } else {
    std::thread(start).join();
  }
  thread_ = std::thread([this] { serve(); });
}

SampleServer::~SampleServer() {
  end();
}

std::string SampleServer::oddName() {
  return "\xff od[d\x1b[1m\n";
}

void SampleServer::serve() {
  while (!ending_) {
    static_cast<void>(manager_.receiveEvent(-1));
  }
}

void SampleServer::hang() {
  hanging_ = std::unique_lock(manager_.clientMutex);
}

void SampleServer::resume() {
  hanging_.unlock();
}

void SampleServer::end() {
  if (!thread_.joinable()) {
    return;
  }
  ending_ = true;
  manager_.wake();
  thread_.join();
  root_.stop(true);
}

}  // namespace treescope::test
