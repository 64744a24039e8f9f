#include "model/id_chain.h"

#include <sstream>
#include <utility>

#include "modelsrv/model_part.h"

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

std::uint16_t elementIndex(const ElementIndexText& element) {
  std::istringstream stream(element.text);
  std::uint16_t index = 0;
  // The stream stores the largest value for a number that does not fit.
  stream >> index;
  return index == ModelSrv::ModelPartIndex_All ? ModelSrv::ModelPartIndex_Void : index;
}

}  // namespace treescope
