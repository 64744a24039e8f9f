#include "evtsrv/source/frame_reader.h"

#include <algorithm>
#include <utility>

namespace EvtSrv::internal {

namespace {

// The most memory that an idle reader keeps.
constexpr std::size_t idleCapacity = 1024;

}  // namespace

FrameReader::Status FrameReader::next(Frame& frame) {
  payloadSize_ = 0;
  if (toSkip_ != 0) {
    return nextSkipped(frame);
  }
  if (start_ == buffered_.size()) {
    releaseBuffer();
    return nextFromFed(frame);
  }
  return nextFromBuffer(frame);
}

void FrameReader::bufferRest() {
  if (!fed_.empty()) {
    buffered_.append(fed_, 0);
    fed_ = {};
  }
}

bool FrameReader::skipFrame() {
  bufferRest();
  const std::size_t arrived = buffered_.size() - start_;
  const auto header =
      arrived < FrameHeader::size ? std::nullopt : decodeHeader(buffered_.data() + start_);
  if (!header || arrived >= FrameHeader::size + header->length) {
    return false;
  }
  skipped_ = *header;
  toSkip_ = FrameHeader::size + header->length - arrived;
  start_ = buffered_.size();
  releaseBuffer();
  return true;
}

std::unique_ptr<std::uint8_t[]> FrameReader::takeMemory() {
  const bool isLast = payloadSize_ != 0 && start_ == buffered_.size();
  if (!isLast || payloadSize_ < buffered_.held() - buffered_.held() / 8) {
    return nullptr;
  }
  payloadSize_ = 0;
  start_ = 0;
  return buffered_.take();
}

std::size_t FrameReader::held() const {
  return buffered_.held() > idleCapacity ? buffered_.held() : 0;
}

void FrameReader::releaseBuffer() {
  buffered_.clear();
  start_ = 0;
  if (buffered_.held() > idleCapacity) {
    buffered_.release();
  }
}

FrameReader::Status FrameReader::nextSkipped(Frame& frame) {
  const std::size_t count = std::min(toSkip_, fed_.size());
  fed_ = fed_.subspan(count);
  toSkip_ -= count;
  frame = {skipped_, {}};
  return toSkip_ == 0 ? Status::skipped : Status::incomplete;
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
  const auto header = decodeHeader(buffered_.data() + start_);
  if (!header) {
    return Status::malformed;
  }
  const std::size_t total = FrameHeader::size + header->length;
  if (!fillBuffer(total)) {
    return Status::incomplete;
  }
  buffered_.finishGrowth();
  frame.header = *header;
  frame.payload = {buffered_.data() + start_ + FrameHeader::size, header->length};
  payloadSize_ = header->length;
  start_ += total;
  return Status::frame;
}

/// Whether the buffer has `size` bytes from `start_` on, after as many were moved to it as that
/// takes.
bool FrameReader::fillBuffer(std::size_t size) {
  const std::size_t arrived = buffered_.size() - start_;
  if (arrived < size && !fed_.empty()) {
    buffered_.discard(std::exchange(start_, 0));
    const auto taken = fed_.first(std::min(size - arrived, fed_.size()));
    buffered_.append(taken, size);
    fed_ = fed_.subspan(taken.size());
  }
  return buffered_.size() - start_ >= size;
}

}  // namespace EvtSrv::internal
