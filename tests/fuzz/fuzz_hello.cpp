/// The mailbox: hellos found among garbage, in reads of any size.
///
/// Input: one byte that says how the stream is cut, then the stream. The scanner finds the
/// same hellos as a search at every offset of the stream.
///
/// Corpus: `hello`, `foreign_order`, `garbage_then_hello`, `magic_in_magic` (the
/// beginning of a hello before a complete one), `bad_checksum_then_hello`,
/// `two_hellos`.

#include <cstring>

#include "evtsrv/source/hello.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace EvtSrv::internal;
using fuzz::require;
using Bytes = std::vector<std::uint8_t>;

void takeAll(HelloScanner& scanner, std::vector<Hello>& hellos) {
  while (const std::optional<Hello> hello = scanner.next()) {
    hellos.push_back(*hello);
  }
}

std::vector<Hello> scanPieces(fuzz::Pieces pieces) {
  std::vector<Hello> hellos;
  HelloScanner scanner;
  while (!pieces.isEmpty()) {
    const Bytes piece = pieces.next();
    scanner.feed(piece);
    if (pieces.random() % 4 != 0) {
      takeAll(scanner, hellos);
    }
  }
  takeAll(scanner, hellos);
  return hellos;
}

// Whether the checksum, in either byte order, is that of the bytes before it.
bool hasChecksum(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t checksumAt = helloSize - sizeof(std::uint32_t);
  const std::uint32_t sum = crc32(bytes.first(checksumAt));
  std::uint32_t stored = 0;
  std::memcpy(&stored, bytes.data() + checksumAt, sizeof stored);
  return stored == sum || __builtin_bswap32(stored) == sum;
}

std::vector<Hello> scanEveryOffset(std::span<const std::uint8_t> stream) {
  std::vector<Hello> hellos;
  while (stream.size() >= helloSize) {
    const std::span<const std::uint8_t> window = stream.first(helloSize);
    std::size_t step = 1;
    if (hasChecksum(window)) {
      HelloScanner scanner;
      scanner.feed(window);
      const std::size_t before = hellos.size();
      takeAll(scanner, hellos);
      step = hellos.size() > before ? helloSize : 1;
    }
    stream = stream.subspan(step);
  }
  return hellos;
}

bool sameHello(const Hello& a, const Hello& b) {
  return a.token == b.token && a.behaviour == b.behaviour;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t seed = input.u8();
  const std::span<const std::uint8_t> stream = input.rest();
  const std::vector<Hello> found = scanPieces(fuzz::Pieces(stream, seed));
  const std::vector<Hello> expected = scanEveryOffset(stream);
  require(std::equal(found.begin(), found.end(), expected.begin(), expected.end(), sameHello),
          "exactly the hellos are found");
  for (const Hello& hello : found) {
    HelloScanner scanner;
    scanner.feed(encodeHello(hello));
    const std::optional<Hello> again = scanner.next();
    require(again && sameHello(*again, hello), "a hello is decoded as it was encoded");
  }
  return 0;
}
