#include "utilsrv/thread.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace UtilSrv {

namespace {

// pthread_setname_np(3) fails if the name is longer, instead of cutting it.
constexpr std::size_t nameSize = 16;

void* exitValue(int code) {
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(code));
}

}  // namespace

Thread::Thread(Entry entry, void* argument, const char* name) : entry_(entry), argument_(argument) {
  started_ = pthread_create(&handle_, nullptr, &Thread::run, this) == 0;
  if (started_ && name != nullptr) {
    std::array<char, nameSize> shortName{};
    std::strncpy(shortName.data(), name, shortName.size() - 1);
    // The name is of no importance to the program.
    static_cast<void>(pthread_setname_np(handle_, shortName.data()));
  }
}

Thread::~Thread() {
  if (started_) {
    pthread_join(handle_, nullptr);
  }
}

bool Thread::started() const {
  return started_;
}

void Thread::exit(int code) {
  pthread_exit(exitValue(code));
}

void* Thread::run(void* self) {
  const Thread& thread = *static_cast<Thread*>(self);
  return exitValue(thread.entry_(thread.argument_));
}

}  // namespace UtilSrv
