#include "model/element_choice.h"

#include <sstream>

#include "modelsrv/model_part.h"

namespace treescope {

std::uint16_t elementIndex(const ElementIndexText& element) {
  std::istringstream stream(element.text);
  std::uint16_t index = 0;
  // A number that does not fit leaves the largest one, which is no index either.
  stream >> index;
  return index == ModelSrv::ModelPartIndex_All ? ModelSrv::ModelPartIndex_Void : index;
}

}  // namespace treescope
