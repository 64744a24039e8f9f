#include "gateway/wire/results.h"

namespace modelgate {

using namespace ModelSrv;

ModelRes resultOf(std::uint64_t number) {
  const bool isKnown = number <= ModelRes_Denied ||
                       (number >= ModelRes_NotConnected && number <= ModelRes_NotSupported);
  return isKnown ? static_cast<ModelRes>(number) : ModelRes_SystemError;
}

}  // namespace modelgate
