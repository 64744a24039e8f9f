/// The mailbox: hellos found among garbage, in reads of any size.
///
/// Input: one byte that says how the stream is cut, then the stream. What is found
/// is what looking at every place of the stream in turn finds.
///
/// Corpus: `hello`, `foreign_order`, `garbage_then_hello`, `magic_in_magic` (the
/// beginning of a hello in front of a whole one), `bad_checksum_then_hello`,
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

// Whether the checksum, in either order, is the one of what stands before it.
bool hasChecksum(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t checksumAt = helloSize - sizeof(std::uint32_t);
  const std::uint32_t sum = crc32(bytes.first(checksumAt));
  std::uint32_t held = 0;
  std::memcpy(&held, bytes.data() + checksumAt, sizeof held);
  return held == sum || __builtin_bswap32(held) == sum;
}

std::vector<Hello> scanEveryPlace(std::span<const std::uint8_t> stream) {
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
  const std::vector<Hello> expected = scanEveryPlace(stream);
  require(std::equal(found.begin(), found.end(), expected.begin(), expected.end(), sameHello),
          "every hello is found, and nothing else");
  for (const Hello& hello : found) {
    HelloScanner scanner;
    scanner.feed(encodeHello(hello));
    const std::optional<Hello> again = scanner.next();
    require(again && sameHello(*again, hello), "a hello survives being written");
  }
  return 0;
}
