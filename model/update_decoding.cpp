#include "model/update_decoding.h"

#include <cstring>

#include "modelsrv/model_part.h"

namespace treescope {

IdChain decodeUpdate(EvtSrv::MemoryHolder& data) {
  IdChain chain;
  while (!data.atEnd()) {
    const std::size_t offset = data.getCurrentOffset(sizeof(std::uint16_t));
    if (offset + sizeof(std::uint16_t) > data.size()) {
      break;
    }
    const std::uint8_t* bytes = data.bytes() + offset;
    std::uint16_t id = 0;
    if (data.bytes()[0] == 1) {
      id = static_cast<std::uint16_t>(bytes[0] * 256 + bytes[1]);
    } else {
      std::memcpy(&id, bytes, sizeof id);
    }
    if (id == ModelSrv::ModelPartIndex_Void) {
      break;
    }
    chain.push_back(id);
  }
  return chain;
}

}  // namespace treescope
