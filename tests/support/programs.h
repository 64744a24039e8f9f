#pragma once

#include <string>

/// Where the build put the programs that tests run. A test program that uses one
/// names it among its dependencies.
namespace test_support {

std::string treescopeProgram();
std::string modelsrvdProgram();

/// The top of the source tree and of the build tree.
std::string sourceDirectory();
std::string buildDirectory();

}  // namespace test_support
