#include "tests/support/sample_server.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <thread>

namespace test_support {

SampleServer::SampleServer(const std::string& name, Prefetch prefetch) {
  fillTree();
  // Clients cache replies only while the thread that started the service runs.
  if (prefetch == Prefetch::enabled) {
    start(name);
  } else {
    std::thread([&] { start(name); }).join();
  }
  resume();
}

SampleServer::SampleServer(const std::string& name,
                           const std::function<void(SampleServer&)>& prepare) {
  fillTree();
  prepare(*this);
  start(name);
  resume();
}

void SampleServer::fillTree() {
  const auto addAll = [](ModelSrv::ModelNode& node,
                         std::initializer_list<ModelSrv::ModelPart*> all) {
    for (ModelSrv::ModelPart* part : all) {
      EXPECT_EQ(node.add(part), ModelSrv::ModelRes_Success) << part->name();
    }
  };
  addAll(inner, {&deep});
  addAll(drive, {&speed, &label, &gains, &raw, &serial, &offset, &secret, &limited, &unnamed,
                 &speedAgain, &inner});
  addAll(unnamedNode, {&x});
  addAll(root, {&drive, &empty, &unnamedNode, &odd, &top});
  secret.setSubscribable(false);
  limited.setStoreCheck([](const std::int32_t& value, ModelSrv::ModelPartIndex) {
    return value > 10 ? ModelSrv::ModelRes_Vetoed : ModelSrv::ModelRes_Success;
  });
}

void SampleServer::start(const std::string& name) {
  EXPECT_EQ(root.startAsServer(name), ModelSrv::ModelRes_Success) << name;
}

SampleServer::~SampleServer() {
  end();
}

std::string SampleServer::oddName() {
  return "\xff od[d\x1b[1m\n";
}

void SampleServer::end() {
  pump.reset();
  root.stop(true);
}

}  // namespace test_support
