#include <vector>

#include "evtsrv/source/frame_reader.h"
#include "tests/fuzz/fuzz_input.h"

using EvtSrv::internal::Frame;
using EvtSrv::internal::FrameReader;

namespace {

struct Taken {
  std::vector<std::vector<std::uint8_t>> payloads;
  bool malformed = false;
  bool operator==(const Taken&) const = default;
};

Taken read(std::span<const std::uint8_t> bytes, std::size_t chunk) {
  Taken taken;
  FrameReader reader;
  while (!bytes.empty() && !taken.malformed) {
    const auto part = bytes.first(std::min(chunk, bytes.size()));
    bytes = bytes.subspan(part.size());
    // A copy of its own size, so that a read past it is seen.
    const std::vector<std::uint8_t> fed(part.begin(), part.end());
    reader.feed(fed);
    for (;;) {
      Frame frame;
      const FrameReader::Status status = reader.next(frame);
      if (status != FrameReader::Status::frame) {
        taken.malformed = status == FrameReader::Status::malformed;
        break;
      }
      require(frame.payload.size() == frame.header.length);
      taken.payloads.emplace_back(frame.payload.begin(), frame.payload.end());
    }
    reader.keepRest();
  }
  return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  const std::size_t chunk = std::size_t{input.byte()} + 1;
  const auto bytes = input.rest();
  // However the bytes come, the frames are the same.
  require(read(bytes, bytes.size()) == read(bytes, chunk));
  return 0;
}
