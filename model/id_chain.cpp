#include "model/id_chain.h"

#include <utility>

namespace treescope {

void NamedChain::append(std::uint16_t id, std::string name) {
  ids.push_back(id);
  names.push_back(std::move(name));
}

void NamedChain::removeLast() {
  ids.pop_back();
  names.pop_back();
}

std::string childName(const std::string& served, std::uint16_t id) {
  return served.empty() ? std::string(unnamedChildPrefix) + std::to_string(id) : served;
}

}  // namespace treescope
