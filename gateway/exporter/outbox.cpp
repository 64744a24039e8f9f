#include "gateway/exporter/outbox.h"

#include <algorithm>
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

bool Outbox::pushRetained(const void* source, Producer producer, bool isSeries) {
  if (!link_.isConnected()) {
    return false;
  }
  const auto waiting =
      std::find_if(retained_.begin(), retained_.end(),
                   [source](const Retained& retained) { return retained.source == source; });
  if (waiting == retained_.end()) {
    retained_.push_back({source, std::move(producer), isSeries});
  } else {
    *waiting = {source, std::move(producer), isSeries};
  }
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
      publishRetained();
    } else {
      return true;
    }
  }
  return false;
}

/// One message of the first source, if it has one.
void Outbox::publishRetained() {
  const std::optional<Publication> publication = retained_.front().producer();
  if (!publication || !retained_.front().isSeries) {
    retained_.pop_front();
  }
  if (publication) {
    link_.publish(*publication);
  }
}

void Outbox::clear() {
  replies_.clear();
  replyBytes_ = 0;
  retained_.clear();
}

}  // namespace modelgate
