#include "gateway/exporter/outbox.h"

#include <utility>

namespace modelgate {

bool Outbox::pushReply(Publication reply) {
  if (!link_.isConnected() || replies_.size() >= maxReplies ||
      replyBytes_ + reply.payload.size() > maxBytes) {
    return false;
  }
  replyBytes_ += reply.payload.size();
  replies_.push_back(std::move(reply));
  pump();
  return true;
}

bool Outbox::pushRetained(Producer producer) {
  if (!link_.isConnected()) {
    return false;
  }
  retained_.push_back(std::move(producer));
  pump();
  return true;
}

bool Outbox::pump() {
  while (link_.hasCapacity()) {
    if (!replies_.empty()) {
      const Publication reply = std::move(replies_.front());
      replies_.pop_front();
      replyBytes_ -= reply.payload.size();
      link_.publish(reply);
    } else if (!retained_.empty()) {
      const Producer producer = std::move(retained_.front());
      retained_.pop_front();
      if (const std::optional<Publication> publication = producer()) {
        link_.publish(*publication);
      }
    } else {
      return true;
    }
  }
  return false;
}

void Outbox::clear() {
  replies_.clear();
  replyBytes_ = 0;
  retained_.clear();
}

}  // namespace modelgate
