#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "model/model_client.h"
#include "tests/support/port_name.h"
#include "tests/support/sample_server.h"

namespace treescope::test {

using test_support::SampleServer;

/// A client and a server of the sample tree, not yet connected.
class ClientFixture : public testing::Test {
 protected:
  void connect() { ASSERT_TRUE(client_.openServer(name_)); }

  std::string name_ = test_support::uniquePortName();
  SampleServer server_{name_};
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Void, true};
  ModelClient client_{&manager_};
};

}  // namespace treescope::test
