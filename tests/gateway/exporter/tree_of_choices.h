#pragma once

#include <string>

namespace gateway_test {

/// The description of a tree with so many parts, each of which has 1,000 choices: with more than
/// 1,000 parts it cannot be exported.
inline std::string treeOfChoices(unsigned parts) {
  std::string choices;
  for (unsigned i = 0; i < 1000; ++i) {
    choices += (i > 0 ? ",\"" : "\"") + std::to_string(i) + '"';
  }
  std::string tree = R"({"name": "Model_x", "children": [)";
  for (unsigned i = 1; i <= parts; ++i) {
    tree += (i > 1 ? R"(,{"id": )" : R"({"id": )") + std::to_string(i) + R"(, "name": "p)" +
            std::to_string(i) + R"(", "type": "text", "value": "0", "choices": [)" + choices + "]}";
  }
  return tree + "]}";
}

}  // namespace gateway_test
