#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <fstream>
#include <string>

#include "tests/support/model_server.h"

namespace modelsrvd {
namespace {

/// A description of `parts` values, indented as by a program.
std::string describe(std::size_t parts) {
  std::string text = R"({"children": [)";
  for (std::size_t part = 0; part < parts; ++part) {
    constexpr std::size_t siblings = 10'000;
    if (part % siblings == 0) {
      text += part == 0 ? "" : "]},";
      text += R"({"name": "group", "children": [)";
    } else {
      text += ',';
    }
    text += "\n        {\n          \"name\": \"item_" + std::to_string(part) +
            "\",\n          \"type\": \"int32\",\n          \"value\": " + std::to_string(part) +
            "\n        }";
  }
  return text + "]}]}";
}

/// The peak memory use of a server of such a tree, in bytes.
double peakMemory(std::size_t parts) {
  const test_support::TemporaryFile file(describe(parts));
  test_support::ModelServer server({"--tree", file.path()});
  std::ifstream status("/proc/" + std::to_string(server.process().pid()) + "/status");
  double kilobytes = 0;
  for (std::string word; kilobytes == 0 && status >> word;) {
    if (word == "VmHWM:") {
      status >> kilobytes;
    }
  }
  EXPECT_GT(kilobytes, 0);
  EXPECT_TRUE(server.stops(SIGTERM));
  return kilobytes * 1024;
}

TEST(DescriptionMemory, IsAtMost300BytesPerValue) {
  constexpr std::size_t parts = 50'000;
  EXPECT_LE((peakMemory(parts) - peakMemory(1)) / static_cast<double>(parts - 1), 300);
}

}  // namespace
}  // namespace modelsrvd
