#pragma once

#include "tests/platform/modelsrv/test_client.h"
#include "tests/support/port_name.h"
#include "tests/support/sample_server.h"

/// The sample server, for clients that connect over real pipes, and chains of its tree.
namespace modelsrv_tests {

using test_support::Pump;
using Server = test_support::SampleServer;

/// A client that is connected to the sample server.
class ConnectedClient : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(client_.connect(name_), ModelSrv::ModelRes_Success); }

  std::string name_ = test_support::uniquePortName();
  Server server_{name_};
  Client client_;
};

inline const Chain driveChain{1};
inline const Chain speedChain{1, 1};
inline const Chain labelChain{1, 2};
inline const Chain gainsChain{1, 3};
inline const Chain secretChain{1, 7};

}  // namespace modelsrv_tests
