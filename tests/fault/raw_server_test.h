#pragma once

#include <thread>

#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

namespace fault {

/// A test of a client whose server is the test itself.
class RawServerTest : public FaultTest {
 protected:
  /// Connects `client`; the server replies to its hello with `welcome`.
  Reply connect(Client& client, const std::string& welcome) {
    std::thread acceptor([&] { EXPECT_TRUE(server_.accept(welcome)); });
    Reply reply = client.connect(port);
    acceptor.join();
    return reply;
  }

  void connect(Client& client) {
    EXPECT_EQ(connect(client, wire::frame(wire::welcome, 0, 0, {})).result,
              ModelSrv::ModelRes_Success);
  }

  /// Reads a request of operation `code` and replies to it.
  void reply(std::uint16_t code, std::uint16_t result, std::string_view payload = {}) {
    const auto request = server_.readRequest();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->code, code);
    EXPECT_TRUE(
        server_.replies.write(wire::frame(wire::reply, result, request->sequence, payload)));
  }

  RawServer server_{mailbox};
};

}  // namespace fault
