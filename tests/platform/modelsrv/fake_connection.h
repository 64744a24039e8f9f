#pragma once

#include "evtsrv/source/server_session.h"

namespace modelsrv_tests {

/// A connection whose client takes nothing until the test does.
class FakeConnection : public EvtSrv::internal::ServerConnection {
 public:
  void eventsPending() override { ++told; }
  void closeOnNextDispatch() override { ++closed; }

  int told = 0;
  int closed = 0;
};

}  // namespace modelsrv_tests
