#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "evtsrv/source/server_session.h"
#include "modelsrv/source/requests.h"

/// What tests of one session in a server need instead of a client.
namespace modelsrv_tests {

/// A connection that counts the calls of its session. Events stay pending until the test takes
/// them.
class FakeConnection : public EvtSrv::internal::ServerConnection {
 public:
  void eventsPending() override { ++pendingCalls; }
  void closeOnNextDispatch() override { ++closeCalls; }
  EvtSrv::internal::SessionAccount& account() override { return account_; }
  std::shared_ptr<EvtSrv::internal::DeferredReply> deferReply() override { return nullptr; }
  std::shared_ptr<EvtSrv::internal::RequestHold> holdRequests() override { return nullptr; }
  std::unique_ptr<std::uint8_t[]> takeRequestMemory() override { return std::move(requestMemory); }

  int pendingCalls = 0;
  int closeCalls = 0;
  std::unique_ptr<std::uint8_t[]> requestMemory;  ///< of the request that is being served

 private:
  EvtSrv::internal::SessionAccount account_{std::make_shared<EvtSrv::internal::Accounts>(), 0};
};

inline std::vector<std::uint8_t> payloadOf(const ModelSrv::internal::Request& request) {
  std::vector<std::uint8_t> payload;
  encodeRequest(request.view(), payload);
  return payload;
}

}  // namespace modelsrv_tests
