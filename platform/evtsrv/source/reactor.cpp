#include "evtsrv/source/reactor.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace EvtSrv::internal {

namespace {

constexpr unsigned generationShift = 32;

std::uint64_t makeToken(std::uint32_t slot, std::uint32_t generation) {
  return (static_cast<std::uint64_t>(generation) << generationShift) | slot;
}

}  // namespace

Registration::Registration(Registration&& other) noexcept
    : reactor_(std::exchange(other.reactor_, nullptr)),
      token_(other.token_),
      interest_(other.interest_) {}

Registration& Registration::operator=(Registration&& other) noexcept {
  if (this != &other) {
    end();
    reactor_ = std::exchange(other.reactor_, nullptr);
    token_ = other.token_;
    interest_ = other.interest_;
  }
  return *this;
}

int Registration::change(std::uint32_t interest) {
  const int result = reactor_ == nullptr ? -ENOENT : reactor_->setInterest(token_, interest);
  if (result == 0) {
    interest_ = interest;
  }
  return result;
}

void Registration::end() {
  if (reactor_ != nullptr) {
    std::exchange(reactor_, nullptr)->remove(token_);
  }
}

int Reactor::open() {
  return epoll_.adopt(system_, system_.createEpoll());
}

int Reactor::add(int descriptor, std::uint32_t interest, ReadyHandler& handler, unsigned role,
                 Registration& registration) {
  clientMutex_.assertHeld();
  std::uint32_t slot = 0;
  if (free_.empty()) {
    slot = static_cast<std::uint32_t>(slots_.size());
    if (slots_.size() == slots_.capacity()) {
      slots_.reserve(std::max<std::size_t>(4, slots_.size() * 2));
    }
    // So that remove() allocates nothing.
    free_.reserve(slots_.capacity());
    slots_.emplace_back();
  } else {
    slot = free_.back();
    free_.pop_back();
  }
  Slot& used = slots_[slot];
  const std::uint32_t generation = ++used.generation;
  used = {&handler, role, descriptor, generation};
  const std::uint64_t token = makeToken(slot, generation);
  const int result = system_.epollCtl(epoll_.number(), EPOLL_CTL_ADD, descriptor, interest, token);
  if (result < 0) {
    used.handler = nullptr;
    free_.push_back(slot);
    return result;
  }
  registration = Registration(*this, token, interest);
  return 0;
}

int Reactor::wait(std::span<epoll_event> events, int milliseconds) {
  return system_.waitEpoll(epoll_.number(), events, milliseconds);
}

bool Reactor::dispatch(const epoll_event& event) {
  clientMutex_.assertHeld();
  const Slot* slot = find(event.data.u64);
  return slot != nullptr && slot->handler->ready(slot->role, event.events);
}

Reactor::Slot* Reactor::find(std::uint64_t token) {
  const auto index = static_cast<std::uint32_t>(token);
  const auto generation = static_cast<std::uint32_t>(token >> generationShift);
  if (index >= slots_.size()) {
    return nullptr;
  }
  Slot& slot = slots_[index];
  return slot.handler != nullptr && slot.generation == generation ? &slot : nullptr;
}

void Reactor::remove(std::uint64_t token) {
  clientMutex_.assertHeld();
  Slot* slot = find(token);
  if (slot == nullptr) {
    return;
  }
  // Closing the descriptor would not be enough: a forked child that has not yet called
  // exec may hold the pipe open.
  static_cast<void>(system_.epollCtl(epoll_.number(), EPOLL_CTL_DEL, slot->descriptor, 0, 0));
  slot->handler = nullptr;
  free_.push_back(static_cast<std::uint32_t>(token));
}

int Reactor::setInterest(std::uint64_t token, std::uint32_t interest) {
  clientMutex_.assertHeld();
  const Slot* slot = find(token);
  return slot == nullptr
             ? -ENOENT
             : system_.epollCtl(epoll_.number(), EPOLL_CTL_MOD, slot->descriptor, interest, token);
}

}  // namespace EvtSrv::internal
