#include "gateway/exporter/reply_memory.h"

namespace modelgate {

ReplyMemory::State ReplyMemory::begin(std::string_view responseTopic, std::string_view correlation,
                                      Clock::time_point now) {
  expire(now);
  if (correlation.empty()) {
    return State::isNew;
  }
  const Key key(responseTopic, correlation);
  if (const auto found = requests_.find(key); found != requests_.end()) {
    return found->second.state;
  }
  if (requests_.size() >= maxRequests) {
    return State::isFull;
  }
  const auto request = requests_.try_emplace(key).first;
  request->second.end = now + longestProgress;
  request->second.place = begun_.insert(begun_.end(), request);
  return State::isNew;
}

const std::string& ReplyMemory::reply(std::string_view responseTopic,
                                      std::string_view correlation) const {
  return requests_.at(Key(responseTopic, correlation)).reply;
}

void ReplyMemory::complete(std::string_view responseTopic, std::string_view correlation,
                           std::string reply, Clock::time_point now) {
  expire(now);
  const auto found = requests_.find(Key(responseTopic, correlation));
  if (found == requests_.end() || found->second.state != State::isInProgress) {
    return;
  }
  Request& request = found->second;
  bytes_ += reply.size();
  ++replies_;
  request.state = State::isAnswered;
  request.end = now + duration;
  request.reply = std::move(reply);
  done_.splice(done_.end(), begun_, request.place);
  if (firstReply_ == done_.end()) {
    firstReply_ = request.place;
  }
  while (replies_ > maxReplies || (bytes_ > maxBytes && replies_ > 1)) {
    dropReply();
  }
}

void ReplyMemory::forget(std::string_view responseTopic, std::string_view correlation) {
  const auto request = requests_.find(Key(responseTopic, correlation));
  if (request != requests_.end() && request->second.state == State::isInProgress) {
    begun_.erase(request->second.place);
    requests_.erase(request);
  }
}

void ReplyMemory::expire(Clock::time_point now) {
  while (firstReply_ != done_.end() && (*firstReply_)->second.end <= now) {
    dropReply();
  }
  expire(done_, now);
  expire(begun_, now);
}

void ReplyMemory::expire(Order& order, Clock::time_point now) {
  while (!order.empty() && order.front()->second.end <= now) {
    requests_.erase(order.front());
    order.pop_front();
  }
}

/// Drops the oldest reply and keeps its request.
void ReplyMemory::dropReply() {
  Request& request = (*firstReply_)->second;
  bytes_ -= request.reply.size();
  --replies_;
  request.state = State::isForgotten;
  request.reply = {};
  ++firstReply_;
}

}  // namespace modelgate
