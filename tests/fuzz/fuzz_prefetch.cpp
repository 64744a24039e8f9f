/// Prefetch replies in a client's cache.
///
/// Input: the byte order (lowest bit), the depth of the requested part (0 to 3, with the ids 1,
/// 2, 3), then the reply. Reading from the cache twice gives the same, and a value comes with the
/// number of its elements.
///
/// Corpus: `tree`, `array`, `foreign` (most significant byte first), `cut`.

#include <sstream>
#include <string>
#include <vector>

#include "evtsrv/source/system.h"
#include "modelsrv/source/cache/reply_cache.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace ModelSrv;
using namespace ModelSrv::internal;
using fuzz::require;

void readAll(const ReplyCache& cache, const ReplyCache::Part& part) {
  std::vector<ModelPartId> ids;
  std::vector<std::string> names;
  std::uint16_t sum = 0;
  const bool hasIds = cache.childIds(part, ids);
  require(cache.childIds(part, ids) == hasIds, "reading twice gives the same");
  static_cast<void>(cache.childNames(part, names));
  static_cast<void>(cache.elementNames(part, names));
  const bool hasSum = cache.elementSum(part, sum);
  ModelRes result = ModelRes_Success;
  for (const ModelPartIndex index : {ModelPartIndex_All, ModelPartIndex{0}, ModelPartIndex{7}}) {
    std::ostringstream text;
    if (cache.save(part, index, text, result)) {
      require(hasSum, "a value comes with the number of its elements");
      require(index == ModelPartIndex_All || index < sum, "there is no element after the last");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const auto order = static_cast<EvtSrv::internal::ByteOrder>(input.u8() & 1U);
  std::vector<ModelPartId> chain{1, 2, 3};
  chain.resize(input.u8() % 4U);
  static EvtSrv::internal::PosixSystem system;
  ReplyCache cache(system);
  if (const ReplyCache::Part* part = cache.replace(chain, input.rest(), order)) {
    require(part->depth == chain.size(), "the first part is the requested one");
    readAll(cache, *part);
  }
  require(!cache.isUsable() && cache.find(chain, ReplyCache::Data::structure) == nullptr,
          "without a page nothing is cached");
  return 0;
}
