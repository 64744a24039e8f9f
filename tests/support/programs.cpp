#include "tests/support/programs.h"

namespace test_support {

std::string treescopeProgram() {
  return TEST_PROGRAM_DIRECTORY "/treescope";
}
std::string modelsrvdProgram() {
  return TEST_PROGRAM_DIRECTORY "/modelsrvd";
}
std::string sourceDirectory() {
  return TEST_SOURCE_DIRECTORY;
}
std::string buildDirectory() {
  return TEST_BUILD_DIRECTORY;
}

}  // namespace test_support
