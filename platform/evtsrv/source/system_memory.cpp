// The calls of PosixSystem for memory that processes share.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "evtsrv/source/signal_block.h"
#include "evtsrv/source/system.h"
#include "evtsrv/source/value_or_errno.h"

namespace EvtSrv::internal {

int PosixSystem::createMemory(std::size_t size) {
  const int descriptor = valueOrErrno(::memfd_create("krv", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (descriptor < 0) {
    return descriptor;
  }
  // It raises SIGXFSZ if this process may not make files of that size (RLIMIT_FSIZE).
  SignalBlock block(SIGXFSZ);
  const int result = valueOrErrno(::ftruncate(descriptor, static_cast<off_t>(size)));
  if (result == -EFBIG) {
    block.takeRaised();
  }
  if (result < 0) {
    close(descriptor);
    return result;
  }
  return descriptor;
}

int PosixSystem::addSeals(int descriptor, int seals) {
  return valueOrErrno(::fcntl(descriptor, F_ADD_SEALS, seals));
}

int PosixSystem::seals(int descriptor) {
  return valueOrErrno(::fcntl(descriptor, F_GET_SEALS));
}

int PosixSystem::map(int descriptor, std::size_t size, bool writable, void*& mapping) {
  const int access = writable ? PROT_READ | PROT_WRITE : PROT_READ;
  void* const mapped = ::mmap(nullptr, size, access, MAP_SHARED, descriptor, 0);
  if (mapped == MAP_FAILED) {
    return -errno;
  }
  mapping = mapped;
  return 0;
}

void PosixSystem::unmap(const void* mapping, std::size_t size) {
  // It fails only if the address is not a mapping.
  static_cast<void>(::munmap(const_cast<void*>(mapping), size));
}

bool PosixSystem::reportsOwnerDeath() {
  constexpr int thisThread = 0;
  void* list = nullptr;
  std::size_t size = 0;
  return ::syscall(SYS_get_robust_list, thisThread, &list, &size) == 0 && list != nullptr;
}

}  // namespace EvtSrv::internal
