#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/fault/client.h"
#include "tests/fault/peer.h"
#include "tests/support/port_name.h"

namespace fault {

/// A test with a port name of its own, whose mailbox, which a killed server
/// leaves, is removed at the end.
class FaultTest : public testing::Test {
 protected:
  FaultTest() : port(test_support::uniquePortName("fault_")), mailbox(pathOf(port)) {}
  ~FaultTest() override {
    // Usually it is gone: a server that ends removes it.
    ::unlink(mailbox.c_str());
  }

  static std::string pathOf(const std::string& name) { return test_support::mailboxPath(name); }

  /// A result as the peer program writes it.
  static std::string number(ModelSrv::ModelRes result) {
    return std::to_string(static_cast<unsigned>(result));
  }
  static std::string success() { return number(ModelSrv::ModelRes_Success); }

  const std::string port;
  const std::string mailbox;
};

}  // namespace fault
