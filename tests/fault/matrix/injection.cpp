#include "tests/fault/matrix/injection.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <span>
#include <utility>

namespace fault_matrix {

namespace {

constexpr std::uint32_t numberOffset = offsetof(seccomp_data, nr);

sock_filter load(std::uint32_t offset) {
  return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset);
}

/// Goes to the instruction after the next if the loaded number is not `number`.
sock_filter skipUnless(int number) {
  return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1);
}

sock_filter decide(std::uint32_t action) {
  return BPF_STMT(BPF_RET | BPF_K, action);
}

int installFilter(std::span<sock_filter> filter) {
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
    return -1;
  }
  return static_cast<int>(
      ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

/// A message of one byte with space for one descriptor.
struct DescriptorMessage {
  char byte = 0;
  iovec part{&byte, 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  msghdr header{};

  DescriptorMessage() {
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
  }
  DescriptorMessage(const DescriptorMessage&) = delete;
  DescriptorMessage& operator=(const DescriptorMessage&) = delete;
};

}  // namespace

Injection::Injection(const Fault& fault, std::string program)
    : fault_(fault), program_(std::move(program)) {}

bool Injection::install(int channel) const {
  // sendmsg(2) passes: it is how the descriptor of the filter gets out.
  std::array<sock_filter, 8> all{load(numberOffset),        skipUnless(SYS_sendmsg),
                                 decide(SECCOMP_RET_ALLOW), skipUnless(SYS_exit_group),
                                 decide(SECCOMP_RET_ALLOW), skipUnless(SYS_rt_sigreturn),
                                 decide(SECCOMP_RET_ALLOW), decide(SECCOMP_RET_USER_NOTIF)};
  std::array<sock_filter, 6> one{
      load(numberOffset),      skipUnless(SYS_execve),         decide(SECCOMP_RET_USER_NOTIF),
      skipUnless(fault_.call), decide(SECCOMP_RET_USER_NOTIF), decide(SECCOMP_RET_ALLOW)};
  const int listener = fault_.call < 0 ? installFilter(all) : installFilter(one);
  if (listener < 0) {
    return false;
  }
  DescriptorMessage message;
  cmsghdr* const header = CMSG_FIRSTHDR(&message.header);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof listener);
  std::memcpy(CMSG_DATA(header), &listener, sizeof listener);
  // The descriptor closes at the exec: the kernel sets FD_CLOEXEC.
  return ::sendmsg(channel, &message.header, 0) == 1;
}

bool Injection::attach(int channel, pid_t process) {
  DescriptorMessage message;
  if (::recvmsg(channel, &message.header, MSG_CMSG_CLOEXEC) != 1) {
    return false;
  }
  const cmsghdr* const header = CMSG_FIRSTHDR(&message.header);
  if (header == nullptr || header->cmsg_type != SCM_RIGHTS) {
    return false;
  }
  int listener = -1;
  std::memcpy(&listener, CMSG_DATA(header), sizeof listener);
  listener_ = test_support::Descriptor(listener);
  process_ = process;
  return true;
}

bool Injection::serve() {
  seccomp_notif request{};
  if (::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) {
    // ENOENT: a signal has ended the call, or the process.
    return errno == ENOENT || errno == EINTR;
  }
  const int call = request.data.nr;
  const int error =
      errorFor(call, static_cast<pid_t>(request.pid), request.data.instruction_pointer);
  if (error != 0 && call == SYS_close) {
    closeInProgram(request.id, request.data.args[0]);
  }
  seccomp_notif_resp response{};
  response.id = request.id;
  response.error = -error;
  response.flags = error == 0 ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
  if (error != 0 && call == SYS_brk) {
    // brk(2) reports an error by the present end of the data, and 0 is before any.
    response.error = 0;
  }
  if (::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_SEND, &response) != 0) {
    return errno == ENOENT || errno == EINTR;
  }
  injected_ = injected_ || error != 0;
  return true;
}

/// The error that the call is to return; 0: it is made.
int Injection::errorFor(int call, pid_t thread, std::uint64_t address) {
  if (call == SYS_execve) {
    const bool counts = executed_ && isOurs(thread);
    ours_.erase(thread);
    if (!std::exchange(executed_, true) || !counts) {
      return 0;
    }
  } else if (!executed_ || !isOurs(thread) || isLinker(address)) {
    return 0;
  }
  const int count = ++counts_[call];
  return call == fault_.call && count == fault_.occurrence ? fault_.error : 0;
}

bool Injection::isOurs(pid_t thread) {
  const auto [entry, isNew] = ours_.try_emplace(thread, false);
  if (isNew) {
    std::array<char, 4096> path{};
    const ssize_t length =
        ::readlink(("/proc/" + std::to_string(thread) + "/exe").c_str(), path.data(), path.size());
    entry->second =
        length > 0 && program_ == std::string(path.data(), static_cast<std::size_t>(length));
  }
  return entry->second;
}

/// Whether the instruction at `address` belongs to the dynamic linker, which is at the
/// same addresses in every process that the program forks.
bool Injection::isLinker(std::uint64_t address) {
  if (!std::exchange(linkerKnown_, true)) {
    std::ifstream maps("/proc/" + std::to_string(process_) + "/maps");
    for (std::string line; std::getline(maps, line);) {
      if (line.find("/ld-") != std::string::npos || line.find("/ld.so") != std::string::npos) {
        const std::size_t dash = line.find('-');
        const auto begin = std::stoull(line.substr(0, dash), nullptr, 16);
        linkerBegin_ = linkerBegin_ == 0 ? begin : linkerBegin_;
        linkerEnd_ = std::stoull(line.substr(dash + 1), nullptr, 16);
      }
    }
  }
  return address >= linkerBegin_ && address < linkerEnd_;
}

/// Linux closes a descriptor even if close(2) reports an error: something that keeps
/// nothing open takes its number.
void Injection::closeInProgram(std::uint64_t request, std::uint64_t descriptor) const {
  const test_support::Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  seccomp_notif_addfd replace{};
  replace.id = request;
  replace.flags = SECCOMP_ADDFD_FLAG_SETFD;
  replace.srcfd = static_cast<std::uint32_t>(nothing.get());
  replace.newfd = static_cast<std::uint32_t>(descriptor);
  replace.newfd_flags = O_CLOEXEC;
  static_cast<void>(::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_ADDFD, &replace));
}

}  // namespace fault_matrix
