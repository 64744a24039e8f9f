#pragma once

#include <string>
#include <string_view>

/// Names for the ports that tests serve, so that tests run side by side.
namespace test_support {

/// A port name that no other call and no other running test returns: `prefix`, this
/// process's id, a count and the name of the running test. At most 150 bytes, so that a
/// test may append to it. If the mailbox of such a port is left at the end of the test,
/// the test fails.
std::string uniquePortName(std::string_view prefix = "Model_");

/// The part that every `uniquePortName` of this process contains.
std::string portNameMark();

/// The path of the mailbox of `port`.
std::string mailboxPath(std::string_view port);

}  // namespace test_support
