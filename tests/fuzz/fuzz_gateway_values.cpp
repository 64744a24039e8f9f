/// Batches and pages of values.
///
/// Input: the message, which is decoded as both. What is accepted is encoded to a message that
/// gives the same, of the size that is computed.
///
/// Corpus: `batch`, `heartbeat`, `page`, `unknown_keys`, `lying_count`.

#include <string>

#include "gateway/wire/values.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace modelgate;
using fuzz::require;

void checkSizes(const Batch& batch) {
  Batch heartbeat = batch;
  heartbeat.values.clear();
  std::size_t size = encodeBatch(heartbeat).size();
  for (const PositionedValue& value : batch.values) {
    size += encodedSize(value);
  }
  const std::size_t whole = encodeBatch(batch).size();
  require(size <= whole && whole <= size + 8, "the sizes of values add up but for the count");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::string_view message = input.restAsText();
  if (const auto batch = decodeBatch(message)) {
    require(decodeBatch(encodeBatch(*batch)) == batch, "a batch comes back as it was");
    checkSizes(*batch);
    require(decodeValuePage(message).has_value(), "a batch has all that a page has");
  }
  if (const auto page = decodeValuePage(message)) {
    require(decodeValuePage(encodeValuePage(*page)) == page, "a page comes back as it was");
  }
  return 0;
}
