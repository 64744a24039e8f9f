// The calls of PosixSystem for several writes at once.

#include <linux/aio_abi.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "evtsrv/source/signal_block.h"
#include "evtsrv/source/system.h"
#include "evtsrv/source/value_or_errno.h"

namespace EvtSrv::internal {

#if defined(SYS_io_setup) && defined(SYS_io_submit) && defined(SYS_io_getevents) && \
    defined(SYS_io_destroy)

namespace {

/// Sets the results of the first `submitted` writes, which are complete: a write to a pipe that
/// does not block is complete when it has been submitted.
void takeResults(std::uint64_t queue, std::span<QueuedWrite> writes, int submitted) {
  std::array<io_event, maxQueuedWrites> events;
  long complete = -1;
  do {
    complete =
        ::syscall(SYS_io_getevents, static_cast<aio_context_t>(queue), static_cast<long>(submitted),
                  static_cast<long>(submitted), events.data(), nullptr);
  } while (complete < 0 && errno == EINTR);
  for (long i = 0; i < complete; ++i) {
    const io_event& event = events[static_cast<std::size_t>(i)];
    writes[static_cast<std::size_t>(event.data)].result = static_cast<ssize_t>(event.res);
  }
}

}  // namespace

int PosixSystem::createWriteQueue(std::uint64_t& queue) {
  if (!submitsWrites) {
    return -ENOSYS;
  }
  aio_context_t context = 0;
  const int result = valueOrErrno(
      static_cast<int>(::syscall(SYS_io_setup, static_cast<unsigned>(maxQueuedWrites), &context)));
  queue = context;
  return result;
}

void PosixSystem::destroyWriteQueue(std::uint64_t queue) {
  // It fails only if there is no such queue.
  static_cast<void>(::syscall(SYS_io_destroy, static_cast<aio_context_t>(queue)));
}

int PosixSystem::submitWrites(std::uint64_t queue, std::span<QueuedWrite> writes) {
  std::array<iocb, maxQueuedWrites> blocks{};
  std::array<iocb*, maxQueuedWrites> order{};
  for (std::size_t i = 0; i < writes.size(); ++i) {
    iocb& block = blocks[i];
    block.aio_data = i;
    block.aio_lio_opcode = IOCB_CMD_PWRITE;
    block.aio_fildes = static_cast<std::uint32_t>(writes[i].descriptor);
    block.aio_buf = reinterpret_cast<std::uintptr_t>(writes[i].bytes.data());
    block.aio_nbytes = writes[i].bytes.size();
    order[i] = &block;
    // Kept if the result cannot be had: it is not known then how much was written.
    writes[i].result = -EIO;
  }
  SignalBlock block(SIGPIPE);
  const int submitted =
      valueOrErrno(static_cast<int>(::syscall(SYS_io_submit, static_cast<aio_context_t>(queue),
                                              static_cast<long>(writes.size()), order.data())));
  if (submitted <= 0) {
    return submitted;
  }
  takeResults(queue, writes, submitted);
  const auto made = writes.first(static_cast<std::size_t>(submitted));
  if (std::any_of(made.begin(), made.end(),
                  [](const QueuedWrite& write) { return write.result == -EPIPE; })) {
    block.takeRaised();
  }
  return submitted;
}

#else

int PosixSystem::createWriteQueue(std::uint64_t& /*queue*/) {
  return -ENOSYS;
}

void PosixSystem::destroyWriteQueue(std::uint64_t /*queue*/) {}

int PosixSystem::submitWrites(std::uint64_t /*queue*/, std::span<QueuedWrite> /*writes*/) {
  return -ENOSYS;
}

#endif

}  // namespace EvtSrv::internal
