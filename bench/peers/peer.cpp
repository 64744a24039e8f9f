#include "bench/peers/peer.h"

#include <array>
#include <cstdio>
#include <fstream>

namespace bench::peers {

std::string pathOf(const Shape& shape, std::size_t number) {
  const std::size_t wrapped = number % shape.total();
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "/group_%03zu/item_%04zu",
                wrapped / Shape::valuesPerGroup, wrapped % Shape::valuesPerGroup);
  return text.data();
}

std::vector<pid_t> withChildren(pid_t pid) {
  std::vector<pid_t> all{pid};
  const std::string process = std::to_string(pid);
  std::ifstream children("/proc/" + process + "/task/" + process + "/children");
  for (pid_t child = 0; children >> child;) {
    all.push_back(child);
  }
  return all;
}

}  // namespace bench::peers
