#include <vector>

#include "evtsrv/source/hello.h"
#include "tests/fuzz/fuzz_input.h"

using EvtSrv::internal::Hello;
using EvtSrv::internal::HelloScanner;
using EvtSrv::internal::Token;

namespace {

std::vector<Token> scan(std::span<const std::uint8_t> bytes, std::size_t chunk) {
  std::vector<Token> tokens;
  HelloScanner scanner;
  while (!bytes.empty()) {
    const auto part = bytes.first(std::min(chunk, bytes.size()));
    bytes = bytes.subspan(part.size());
    scanner.feed(part);
    while (const auto hello = scanner.next()) {
      tokens.push_back(hello->token);
    }
  }
  return tokens;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  const std::size_t chunk = std::size_t{input.byte()} + 1;
  const auto garbage = input.rest();
  const auto found = scan(garbage, garbage.size());
  require(found == scan(garbage, chunk));

  // A hello that stands by itself is found whatever stands before it.
  Hello hello;
  hello.token.fill(0xA5);
  std::vector<std::uint8_t> bytes(garbage.begin(), garbage.end());
  const auto encoded = EvtSrv::internal::encodeHello(hello);
  bytes.insert(bytes.end(), encoded.begin(), encoded.end());
  const auto behind = scan(bytes, chunk);
  require(!behind.empty() && behind.back() == hello.token);
  return 0;
}
