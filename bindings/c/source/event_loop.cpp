#include "bindings/c/source/event_loop.h"

#include "bindings/c/source/call.h"

namespace treescope_c {

namespace {

thread_local const CallbackScope* innermost = nullptr;

}  // namespace

CallbackScope::CallbackScope(const EventLoop& loop, const void* given)
    : loop_(loop), given_(given), outer_(innermost) {
  innermost = this;
}

bool CallbackScope::isGiven(const void* given) {
  for (const CallbackScope* scope = innermost; scope != nullptr; scope = scope->outer_) {
    if (given != nullptr && scope->given_ == given) {
      return true;
    }
  }
  return false;
}

CallbackScope::~CallbackScope() {
  innermost = outer_;
}

bool EventLoop::isInCallback() const {
  for (const CallbackScope* scope = innermost; scope != nullptr; scope = scope->outer_) {
    if (&scope->loop_ == this) {
      return true;
    }
  }
  return false;
}

treescope_result EventLoop::dispatch(int milliseconds) {
  if (isInCallback()) {
    return fail(TREESCOPE_BUSY, {}, "a callback cannot dispatch the loop that called it");
  }
  const EvtSrv::EvtRes result =
      closed_ ? EvtSrv::EvtRes_Success : manager.receiveEvent(milliseconds);
  if (closed_) {
    // Each wake-up ends one call: the next waiting thread gets its own.
    manager.wake();
    return fail(TREESCOPE_CLOSED);
  }
  // To find nothing is no error, and leaves the message as it is.
  return result == EvtSrv::EvtRes_Timeout ? TREESCOPE_TIMEOUT : finish(result);
}

void EventLoop::close() {
  closed_ = true;
  manager.wake();
}

}  // namespace treescope_c
