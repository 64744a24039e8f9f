#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <fstream>
#include <string>

#include "tests/servers/server_process.h"

namespace modelsrvd {
namespace {

/// A description of `parts` values, its lines as long as in a file that a program
/// has indented.
std::string described(std::size_t parts) {
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

/// How much memory a server of that description had in use at the most, in bytes.
double peakBeside(std::size_t parts) {
  const ScratchFile file(described(parts));
  ServerProcess server({"--tree", file.path()});
  std::ifstream status("/proc/" + std::to_string(server.process().pid()) + "/status");
  double kilobytes = 0;
  for (std::string word; kilobytes == 0 && status >> word;) {
    if (word == "VmHWM:") {
      status >> kilobytes;
    }
  }
  EXPECT_GT(kilobytes, 0);
  EXPECT_TRUE(server.ends(SIGTERM));
  return kilobytes * 1024;
}

TEST(DescriptionMemory, IsAtMost300BytesAValueWhateverTheTextTakes) {
  constexpr std::size_t parts = 50'000;
  EXPECT_LE((peakBeside(parts) - peakBeside(1)) / static_cast<double>(parts - 1), 300);
}

}  // namespace
}  // namespace modelsrvd
