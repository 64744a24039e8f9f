#include "evtsrv/source/pending_output.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace EvtSrv::internal {

namespace {

// A reader that empties a pipe while it is being filled must not keep the server.
constexpr std::size_t maxWritten = std::size_t{256} * 1024;

}  // namespace

PendingOutput::Progress PendingOutput::write(System& system, int pipe,
                                             std::vector<std::uint8_t>& bytes) {
  std::size_t written = 0;
  const Progress progress = writeFrom(system, pipe, bytes, written);
  if (progress == Progress::blocked) {
    bytes_ = std::move(bytes);
    written_ = written;
  }
  return progress;
}

PendingOutput::Progress PendingOutput::resume(System& system, int pipe) {
  if (bytes_.empty()) {
    return Progress::all;
  }
  const Progress progress = writeFrom(system, pipe, bytes_, written_);
  if (progress == Progress::all) {
    *this = {};
  }
  return progress;
}

PendingOutput::Progress PendingOutput::writeFrom(System& system, int pipe,
                                                 std::span<const std::uint8_t> bytes,
                                                 std::size_t& written) {
  const std::size_t end = std::min(bytes.size(), written + maxWritten);
  while (written < end) {
    const ssize_t count = system.write(pipe, bytes.subspan(written, end - written));
    if (count == -EAGAIN) {
      return Progress::blocked;
    }
    if (count <= 0) {
      return Progress::failed;
    }
    written += static_cast<std::size_t>(count);
  }
  return written == bytes.size() ? Progress::all : Progress::blocked;
}

}  // namespace EvtSrv::internal
