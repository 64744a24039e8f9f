#include "evtsrv/source/reply_batch.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

namespace EvtSrv::internal {

ReplyBatch::~ReplyBatch() {
  if (collected_ != nullptr) {
    system_.destroyWriteQueue(queue_);
  }
}

bool ReplyBatch::prepare() {
  if (collected_ == nullptr) {
    // Whatever the error is, replies can be written one by one.
    std::unique_ptr<Collected> collected(new (std::nothrow) Collected);
    isSupported_ = collected != nullptr && system_.createWriteQueue(queue_) == 0;
    if (isSupported_) {
      collected_ = std::move(collected);
    }
  }
  return isSupported_;
}

bool ReplyBatch::add(ReplyWriter& writer, int pipe, std::span<const std::uint8_t> bytes,
                     std::int64_t sinceBegin) {
  if (!collects_ || !isSupported_ || bytes.size() > maxReply || !prepare()) {
    return false;
  }
  if (count_ == maxQueuedWrites || bytesAtOnce - size_ < bytes.size()) {
    writeAll();
  }
  const auto copy = std::span(collected_->bytes).subspan(size_, bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.begin());
  collected_->writers[count_] = &writer;
  collected_->writes[count_] = {pipe, copy};
  size_ += bytes.size();
  if (count_++ == 0) {
    firstAt_ = sinceBegin;
    pending_.store(true, std::memory_order_relaxed);
  }
  return true;
}

void ReplyBatch::writeAll() noexcept {
  const auto writes = std::span(collected_->writes).first(count_);
  const int result = count_ > 1 ? system_.submitWrites(queue_, writes) : 0;
  isSupported_ = isSupported_ && result >= 0;
  const std::size_t made = result > 0 ? static_cast<std::size_t>(result) : 0;
  for (std::size_t i = 0; i < writes.size(); ++i) {
    collected_->writers[i]->replyWritten(writes[i].bytes, i < made ? writes[i].result : -EAGAIN);
  }
  count_ = 0;
  size_ = 0;
  pending_.store(false, std::memory_order_relaxed);
}

}  // namespace EvtSrv::internal
