#pragma once

#include <string>
#include <string_view>

/// Names for the ports that tests serve, so that tests run side by side.
namespace test_support {

/// A port name that no other call and no other running test gives: begins with
/// `prefix` and holds this process's id, a count and the running test's name. At
/// most 150 bytes, so that a test may append to it. The mailbox of a port named
/// like this that is still there at the end of the test fails it.
std::string uniquePortName(std::string_view prefix = "Model_");

/// What every `uniquePortName` of this process holds.
std::string portNameMark();

/// Where the port library keeps the mailbox of `port`.
std::string mailboxPath(std::string_view port);

}  // namespace test_support
