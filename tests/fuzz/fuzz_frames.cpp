/// Frames: decoding of headers, and reassembly from reads of any size.
///
/// Input: one byte that says how the stream is cut, then the stream. Whatever the cuts, the
/// reader returns the same frames, and the last status is the same.
///
/// Corpus: `request`, `reply_and_events` (three frames), `foreign_order`,
/// `cut_in_payload`, `lying_length`, `unknown_kind`.

#include <array>

#include "evtsrv/source/frame_reader.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace EvtSrv::internal;
using fuzz::require;
using Bytes = std::vector<std::uint8_t>;

struct Reading {
  std::vector<FrameHeader> headers;
  Bytes payloads;
  bool malformed = false;
};

// Reads the available frames; at most `limit`.
void take(FrameReader& reader, Reading& reading, std::uint32_t limit) {
  Frame frame;
  for (std::uint32_t taken = 0; taken < limit; ++taken) {
    switch (reader.next(frame)) {
      case FrameReader::Status::frame:
        require(frame.payload.size() == frame.header.length,
                "a payload has the length of its header");
        reading.headers.push_back(frame.header);
        reading.payloads.insert(reading.payloads.end(), frame.payload.begin(), frame.payload.end());
        break;
      case FrameReader::Status::malformed:
        reading.malformed = true;
        return;
      case FrameReader::Status::incomplete:
      case FrameReader::Status::skipped:
        return;
    }
  }
  reader.bufferRest();
}

Reading readWhole(std::span<const std::uint8_t> stream) {
  Reading reading;
  FrameReader reader;
  reader.feed(stream);
  take(reader, reading, ~0U);
  return reading;
}

// Some pieces are read completely; of others one frame or none is read before the next
// piece is fed.
Reading readPieces(fuzz::Pieces pieces) {
  Reading reading;
  FrameReader reader;
  while (!pieces.isEmpty() && !reading.malformed) {
    const Bytes piece = pieces.next();
    const std::uint32_t choice = pieces.random() % 4;
    reader.feed(piece);
    take(reader, reading, choice < 2 ? choice : ~0U);
  }
  if (!reading.malformed) {
    reader.feed({});
    take(reader, reading, ~0U);
  }
  return reading;
}

bool sameFields(const FrameHeader& a, const FrameHeader& b) {
  return a.kind == b.kind && a.code == b.code && a.sequence == b.sequence && a.length == b.length;
}

void checkHeader(const FrameHeader& header, std::span<const std::uint8_t> wire) {
  require(header.length <= maxPayload, "no frame is longer than the limit");
  std::array<std::uint8_t, FrameHeader::size> encoded{};
  encodeHeader(header, encoded.data());
  const auto again = decodeHeader(encoded.data());
  require(again && again->order == nativeOrder && sameFields(*again, header),
          "a header is decoded as it was encoded");
  // The reserved field is not read, and is written as 0.
  const auto isUnchanged = [&](std::size_t begin, std::size_t end) {
    return std::equal(encoded.data() + begin, encoded.data() + end, wire.data() + begin);
  };
  constexpr std::size_t reservedBegin = 8;
  constexpr std::size_t reservedEnd = 12;
  require(header.order != nativeOrder ||
              (isUnchanged(0, reservedBegin) && isUnchanged(reservedEnd, FrameHeader::size)),
          "a header in this machine's byte order is encoded as it was received");
}

void checkStream(const Reading& reading, std::span<const std::uint8_t> stream) {
  std::span<const std::uint8_t> payloads(reading.payloads);
  for (const FrameHeader& header : reading.headers) {
    require(stream.size() >= FrameHeader::size + header.length, "a frame is complete");
    checkHeader(header, stream);
    const auto wire = stream.subspan(FrameHeader::size, header.length);
    require(std::equal(wire.begin(), wire.end(), payloads.begin()),
            "a payload is what follows its header");
    payloads = payloads.subspan(header.length);
    stream = stream.subspan(FrameHeader::size + header.length);
  }
  if (reading.malformed) {
    require(!decodeHeader(stream.data()), "only an invalid header is rejected");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t seed = input.u8();
  const std::span<const std::uint8_t> stream = input.rest();
  const Reading whole = readWhole(stream);
  const Reading cut = readPieces(fuzz::Pieces(stream, seed));
  checkStream(whole, stream);
  require(whole.malformed == cut.malformed, "a malformed stream is malformed whatever the cuts");
  require(whole.payloads == cut.payloads &&
              std::equal(whole.headers.begin(), whole.headers.end(), cut.headers.begin(),
                         cut.headers.end(), sameFields),
          "the frames are the same whatever the cuts");
  return 0;
}
