#include "gateway/exporter/reply_memory.h"

namespace modelgate {

ReplyMemory::State ReplyMemory::begin(std::string_view responseTopic, std::string_view correlation,
                                      Clock::time_point now) {
  expire(now);
  if (correlation.empty()) {
    return State::isNew;
  }
  const auto [request, isNew] = requests_.try_emplace(Key(responseTopic, correlation));
  if (isNew) {
    return State::isNew;
  }
  return request->second.isAnswered ? State::isAnswered : State::isInProgress;
}

const std::string& ReplyMemory::reply(std::string_view responseTopic,
                                      std::string_view correlation) const {
  return requests_.at(Key(responseTopic, correlation)).reply;
}

void ReplyMemory::complete(std::string_view responseTopic, std::string_view correlation,
                           std::string reply, Clock::time_point now) {
  expire(now);
  const auto request = requests_.find(Key(responseTopic, correlation));
  if (request == requests_.end() || request->second.isAnswered) {
    return;
  }
  bytes_ += reply.size();
  request->second = {true, std::move(reply)};
  answered_.push_back({request, now + duration});
  expire(now);
}

void ReplyMemory::forget(std::string_view responseTopic, std::string_view correlation) {
  const auto request = requests_.find(Key(responseTopic, correlation));
  if (request != requests_.end() && !request->second.isAnswered) {
    requests_.erase(request);
  }
}

void ReplyMemory::expire(Clock::time_point now) {
  while (!answered_.empty() && (answered_.front().end <= now || answered_.size() > maxReplies ||
                                (bytes_ > maxBytes && answered_.size() > 1))) {
    bytes_ -= answered_.front().request->second.reply.size();
    requests_.erase(answered_.front().request);
    answered_.pop_front();
  }
}

}  // namespace modelgate
