#include "gateway/viewer/request_table.h"

#include <charconv>

namespace modelgate {

std::string RequestTable::correlationOf(std::uint64_t number) const {
  return prefix_ + std::to_string(number);
}

std::string RequestTable::add(std::string device, std::string topic, Time now,
                              std::chrono::steady_clock::duration limit, Done done) {
  const std::uint64_t number = ++last_;
  const Time due = now + limit;
  entries_.emplace(number,
                   Entry{std::move(device), std::move(topic), now, limit, due, std::move(done)});
  due_.emplace(due, number);
  return correlationOf(number);
}

bool RequestTable::take(std::string_view device, std::string_view correlation, const Reply& reply,
                        Time now) {
  if (!correlation.starts_with(prefix_)) {
    return false;
  }
  const std::string_view digits = correlation.substr(prefix_.size());
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const auto at = entries_.find(number);
  if (error != std::errc() || end != digits.data() + digits.size() || at == entries_.end() ||
      at->second.device != device) {
    return false;
  }
  const Answer answer{Ending::replied, &reply, now - at->second.sent};
  if (!reply.more) {
    this->end(at, answer);
    return true;
  }
  Entry& entry = at->second;
  due_.erase({entry.due, number});
  entry.due = now + entry.limit;
  due_.emplace(entry.due, number);
  // The function may end all requests.
  const Done done = entry.done;
  done(answer);
  return true;
}

void RequestTable::end(Entries::iterator at, const Answer& answer) {
  due_.erase({at->second.due, at->first});
  const Done done = std::move(at->second.done);
  entries_.erase(at);
  done(answer);
}

void RequestTable::expire(Time now) {
  while (!due_.empty() && due_.begin()->first <= now) {
    end(entries_.find(due_.begin()->second), {Ending::timedOut, nullptr, {}});
  }
}

void RequestTable::refuse(std::string_view topic) {
  for (auto at = entries_.begin(); at != entries_.end(); ++at) {
    if (at->second.topic == topic) {
      return end(at, {Ending::refused, nullptr, {}});
    }
  }
}

void RequestTable::disconnect() {
  // Those that are added meanwhile are of the next connection.
  const std::uint64_t last = last_;
  while (!entries_.empty() && entries_.begin()->first <= last) {
    end(entries_.begin(), {Ending::disconnected, nullptr, {}});
  }
}

std::optional<RequestTable::Time> RequestTable::deadline() const {
  return due_.empty() ? std::nullopt : std::optional(due_.begin()->first);
}

}  // namespace modelgate
