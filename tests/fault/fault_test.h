#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/fault/client.h"
#include "tests/fault/peer.h"
#include "tests/support/port_name.h"

namespace fault {

/// A test with a port name of its own. Removes the mailbox at the end, because a killed
/// server leaves it.
class FaultTest : public testing::Test {
 protected:
  FaultTest() : port(test_support::uniquePortName("fault_")), mailbox(pathOf(port)) {}
  ~FaultTest() override {
    // A server that was not killed has removed it already.
    ::unlink(mailbox.c_str());
  }

  static std::string pathOf(const std::string& name) { return test_support::mailboxPath(name); }

  /// A result as the peer program prints it.
  static std::string number(ModelSrv::ModelRes result) {
    return std::to_string(static_cast<unsigned>(result));
  }
  static std::string success() { return number(ModelSrv::ModelRes_Success); }

  const std::string port;
  const std::string mailbox;
};

}  // namespace fault
