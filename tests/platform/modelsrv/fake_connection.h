#pragma once

#include "evtsrv/source/port_server.h"

namespace modelsrv_tests {

/// A connection whose client takes nothing until the test does.
class FakeConnection : public EvtSrv::internal::ServerConnection {
 public:
  void eventsPending() override { ++told; }
  void breakOff() override { ++brokenOff; }

  int told = 0;
  int brokenOff = 0;
};

}  // namespace modelsrv_tests
