#include "evtsrv/source/frame_reader.h"

#include <algorithm>

namespace EvtSrv::internal {

namespace {

// What an idle reader may keep allocated.
constexpr std::size_t idleCapacity = 1024;

}  // namespace

FrameReader::Status FrameReader::next(Frame& frame) {
  dropServed();
  return kept_.empty() ? nextFromFed(frame) : nextFromKept(frame);
}

void FrameReader::keepRest() {
  kept_.insert(kept_.end(), fed_.begin(), fed_.end());
  fed_ = {};
}

void FrameReader::dropServed() {
  if (served_ == 0) {
    return;
  }
  kept_.erase(kept_.begin(), kept_.begin() + static_cast<std::ptrdiff_t>(served_));
  served_ = 0;
  if (kept_.empty() && kept_.capacity() > idleCapacity) {
    std::vector<std::uint8_t>().swap(kept_);
  }
}

FrameReader::Status FrameReader::nextFromFed(Frame& frame) {
  if (fed_.size() >= FrameHeader::size) {
    const auto header = decodeHeader(fed_.data());
    if (!header) {
      return Status::malformed;
    }
    const std::size_t total = FrameHeader::size + header->length;
    if (fed_.size() >= total) {
      frame.header = *header;
      frame.payload = fed_.subspan(FrameHeader::size, header->length);
      fed_ = fed_.subspan(total);
      return Status::frame;
    }
  }
  keepRest();
  return Status::incomplete;
}

FrameReader::Status FrameReader::nextFromKept(Frame& frame) {
  if (!fillKept(FrameHeader::size)) {
    return Status::incomplete;
  }
  const auto header = decodeHeader(kept_.data());
  if (!header) {
    return Status::malformed;
  }
  const std::size_t total = FrameHeader::size + header->length;
  if (!fillKept(total)) {
    return Status::incomplete;
  }
  frame.header = *header;
  frame.payload = std::span(kept_).subspan(FrameHeader::size, header->length);
  served_ = total;
  return Status::frame;
}

bool FrameReader::fillKept(std::size_t size) {
  if (kept_.size() < size) {
    const std::size_t count = std::min(size - kept_.size(), fed_.size());
    const auto taken = fed_.first(count);
    kept_.insert(kept_.end(), taken.begin(), taken.end());
    fed_ = fed_.subspan(count);
  }
  return kept_.size() >= size;
}

}  // namespace EvtSrv::internal
