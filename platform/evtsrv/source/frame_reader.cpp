#include "evtsrv/source/frame_reader.h"

#include <algorithm>

namespace EvtSrv::internal {

namespace {

// The most memory that an idle reader keeps.
constexpr std::size_t idleCapacity = 1024;

}  // namespace

FrameReader::Status FrameReader::next(Frame& frame) {
  dropConsumed();
  return buffered_.empty() ? nextFromFed(frame) : nextFromBuffer(frame);
}

void FrameReader::bufferRest() {
  buffered_.insert(buffered_.end(), fed_.begin(), fed_.end());
  fed_ = {};
}

void FrameReader::dropConsumed() {
  if (consumed_ == 0) {
    return;
  }
  buffered_.erase(buffered_.begin(), buffered_.begin() + static_cast<std::ptrdiff_t>(consumed_));
  consumed_ = 0;
  if (buffered_.empty() && buffered_.capacity() > idleCapacity) {
    std::vector<std::uint8_t>().swap(buffered_);
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
  bufferRest();
  return Status::incomplete;
}

FrameReader::Status FrameReader::nextFromBuffer(Frame& frame) {
  if (!fillBuffer(FrameHeader::size)) {
    return Status::incomplete;
  }
  const auto header = decodeHeader(buffered_.data());
  if (!header) {
    return Status::malformed;
  }
  const std::size_t total = FrameHeader::size + header->length;
  if (!fillBuffer(total)) {
    return Status::incomplete;
  }
  frame.header = *header;
  frame.payload = std::span(buffered_).subspan(FrameHeader::size, header->length);
  consumed_ = total;
  return Status::frame;
}

bool FrameReader::fillBuffer(std::size_t size) {
  if (buffered_.size() < size) {
    const std::size_t count = std::min(size - buffered_.size(), fed_.size());
    const auto taken = fed_.first(count);
    buffered_.insert(buffered_.end(), taken.begin(), taken.end());
    fed_ = fed_.subspan(count);
  }
  return buffered_.size() >= size;
}

}  // namespace EvtSrv::internal
