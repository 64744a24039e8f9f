#include "tests/fault/matrix/system_calls.h"

#include <sys/syscall.h>

#include <cerrno>
#include <cstring>
#include <map>

namespace fault_matrix {

namespace {

using Errors = std::vector<int>;

struct Call {
  const char* name;
  Errors errors;
};

const Errors openErrors{EACCES, EAGAIN,    EEXIST, EINTR,   EINVAL, EIO,    EISDIR,
                        ELOOP,  EMFILE,    ENFILE, ENOENT,  ENOMEM, ENOSPC, ENOTDIR,
                        ENXIO,  EOVERFLOW, EROFS,  ETXTBSY, EPERM};
const Errors readErrors{EAGAIN, EBADF, EINTR, EINVAL, EIO, EISDIR, ENOBUFS, ENOMEM, ENXIO};
const Errors writeErrors{EAGAIN, EBADF, EFBIG, EINTR, EINVAL, EIO, ENOBUFS, ENOSPC, ENXIO, EPIPE};
const Errors noSignalWriteErrors{EAGAIN, EBADF,  EFBIG, EINTR, EINVAL, EIO,       ENOBUFS,
                                 ENOSPC, ENOSYS, ENXIO, EPERM, EPIPE,  EOPNOTSUPP};
const Errors statErrors{EACCES, EBADF, EIO, ELOOP, ENOENT, ENOMEM, ENOTDIR, EOVERFLOW};
const Errors unlinkErrors{EACCES, EBUSY, ELOOP, ENOENT, ENOTDIR, EPERM, EROFS};
const Errors renameErrors{EACCES, EBUSY,  EEXIST, EIO,     EISDIR, ELOOP,
                          ENOENT, ENOSPC, EPERM,  ENOTDIR, EROFS,  EXDEV};
const Errors makeNodeErrors{EACCES, EEXIST, EINVAL,  EIO,   ELOOP,
                            ENOENT, ENOSPC, ENOTDIR, EPERM, EROFS};
const Errors modeErrors{EACCES, EINTR, EINVAL, EIO, ELOOP, ENOENT, ENOTDIR, EPERM, EROFS};
const Errors pollErrors{EAGAIN, EINTR, EINVAL, ENOMEM};
const Errors forkErrors{EAGAIN, ENOMEM};
const Errors execErrors{E2BIG,  EACCES,  EAGAIN, EINVAL,  ELOOP,
                        ENOENT, ENOEXEC, ENOMEM, ENOTDIR, ETXTBSY};
const Errors descriptorErrors{EMFILE, ENFILE, ENOMEM};
const Errors duplicateErrors{EBADF, EINTR, EMFILE};
const Errors waitErrors{ECHILD, EINTR, EINVAL};
const Errors nothing{};

const std::map<int, Call>& table() {
  static const std::map<int, Call> calls{
#ifdef SYS_open
      {SYS_open, {"open", openErrors}},
      {SYS_creat, {"creat", openErrors}},
      {SYS_stat, {"stat", statErrors}},
      {SYS_lstat, {"lstat", statErrors}},
      {SYS_access, {"access", statErrors}},
      {SYS_unlink, {"unlink", unlinkErrors}},
      {SYS_rename, {"rename", renameErrors}},
      {SYS_mknod, {"mknod", makeNodeErrors}},
      {SYS_mkdir, {"mkdir", makeNodeErrors}},
      {SYS_chmod, {"chmod", modeErrors}},
      {SYS_chown, {"chown", modeErrors}},
      {SYS_readlink, {"readlink", statErrors}},
      {SYS_poll, {"poll", pollErrors}},
      {SYS_select, {"select", {EBADF, EINTR, EINVAL}}},
      {SYS_epoll_wait, {"epoll_wait", {EINTR}}},
      {SYS_pipe, {"pipe", {EMFILE, ENFILE}}},
      {SYS_dup2, {"dup2", duplicateErrors}},
      {SYS_fork, {"fork", forkErrors}},
      {SYS_vfork, {"vfork", forkErrors}},
      {SYS_getpgrp, {"getpgrp", nothing}},
      {SYS_getdents, {"getdents", {EBADF, ENOENT, EOVERFLOW}}},
#endif
      {SYS_openat, {"openat", openErrors}},
      {SYS_read, {"read", readErrors}},
      {SYS_readv, {"readv", readErrors}},
      {SYS_pread64, {"pread64", readErrors}},
      {SYS_write, {"write", writeErrors}},
      {SYS_writev, {"writev", writeErrors}},
      {SYS_pwrite64, {"pwrite64", writeErrors}},
      {SYS_pwritev2, {"pwritev2", noSignalWriteErrors}},
      {SYS_close, {"close", {EBADF, EINTR, EIO, ENOSPC}}},
      {SYS_lseek, {"lseek", {EBADF, EINVAL, EOVERFLOW, ESPIPE}}},
#ifdef SYS_newfstatat
      {SYS_newfstatat, {"newfstatat", statErrors}},
#endif
#ifdef SYS_fstat
      {SYS_fstat, {"fstat", statErrors}},
#endif
      {SYS_statx, {"statx", statErrors}},
      {SYS_faccessat, {"faccessat", statErrors}},
      {SYS_statfs, {"statfs", {EACCES, EINTR, EIO, ELOOP, ENOENT, ENOTDIR, EOVERFLOW, ENOSYS}}},
      {SYS_fstatfs, {"fstatfs", {EBADF, EINTR, EIO, EOVERFLOW, ENOSYS}}},
      {SYS_unlinkat, {"unlinkat", unlinkErrors}},
      {SYS_renameat2, {"renameat2", renameErrors}},
      {SYS_mknodat, {"mknodat", makeNodeErrors}},
      {SYS_mkdirat, {"mkdirat", makeNodeErrors}},
      {SYS_fchmod, {"fchmod", modeErrors}},
      {SYS_fchmodat, {"fchmodat", modeErrors}},
      {SYS_fchown, {"fchown", modeErrors}},
      {SYS_fchownat, {"fchownat", modeErrors}},
      {SYS_readlinkat, {"readlinkat", statErrors}},
      {SYS_getdents64, {"getdents64", {EBADF, ENOENT, EOVERFLOW}}},
      {SYS_ftruncate, {"ftruncate", {EBADF, EFBIG, EINTR, EINVAL, EIO, EPERM}}},
      {SYS_fsync, {"fsync", {EBADF, EINTR, EINVAL, EIO}}},
      {SYS_fdatasync, {"fdatasync", {EBADF, EINTR, EINVAL, EIO}}},
      {SYS_flock, {"flock", {EINTR, ENOLCK, EWOULDBLOCK}}},
      // Not those of locks, which the programs take with flock(2).
      {SYS_fcntl, {"fcntl", {EBADF, EBUSY, EINVAL, EMFILE, EPERM}}},
      {SYS_ioctl, {"ioctl", {EBADF, EINTR, EINVAL, EIO, ENOTTY, ENXIO}}},
      {SYS_dup, {"dup", {EBADF, EMFILE}}},
      {SYS_dup3, {"dup3", duplicateErrors}},
      {SYS_pipe2, {"pipe2", {EMFILE, ENFILE}}},
      {SYS_ppoll, {"ppoll", pollErrors}},
      {SYS_pselect6, {"pselect6", {EBADF, EINTR, EINVAL}}},
      {SYS_epoll_create1, {"epoll_create1", descriptorErrors}},
      {SYS_epoll_ctl, {"epoll_ctl", {EEXIST, ENOENT, ENOMEM, ENOSPC, EPERM}}},
      {SYS_epoll_pwait, {"epoll_pwait", {EINTR}}},
      {SYS_eventfd2, {"eventfd2", {EMFILE, ENFILE, ENODEV, ENOMEM}}},
      {SYS_signalfd4, {"signalfd4", {EMFILE, ENFILE, ENODEV, ENOMEM}}},
      {SYS_timerfd_create, {"timerfd_create", {EMFILE, ENFILE, ENODEV, ENOMEM}}},
      {SYS_timerfd_settime, {"timerfd_settime", {EINVAL}}},
      {SYS_inotify_init1, {"inotify_init1", descriptorErrors}},
      {SYS_inotify_add_watch, {"inotify_add_watch", {EACCES, ENOENT, ENOMEM, ENOSPC, ENOTDIR}}},
      {SYS_inotify_rm_watch, {"inotify_rm_watch", {EINVAL}}},
      {SYS_io_setup, {"io_setup", {EAGAIN, EINVAL, ENOMEM, ENOSYS}}},
      {SYS_io_submit, {"io_submit", {EAGAIN, EINVAL, ENOSYS}}},
      {SYS_io_getevents, {"io_getevents", {EINTR, EINVAL, ENOSYS}}},
      {SYS_io_destroy, {"io_destroy", {EINVAL, ENOSYS}}},
      {SYS_memfd_create, {"memfd_create", descriptorErrors}},
      {SYS_mmap, {"mmap", {EACCES, EAGAIN, EINVAL, EMFILE, ENODEV, ENOMEM, ENXIO, EPERM}}},
      {SYS_mremap, {"mremap", {EAGAIN, ENOMEM}}},
      {SYS_mprotect, {"mprotect", {EACCES, EAGAIN, ENOMEM}}},
      {SYS_munmap, {"munmap", {EINVAL, ENOMEM}}},
      {SYS_madvise, {"madvise", {EAGAIN, ENOMEM}}},
      {SYS_brk, {"brk", {ENOMEM}}},
      {SYS_getrandom, {"getrandom", {EAGAIN, EINTR, ENOSYS}}},
      {SYS_clone, {"clone", forkErrors}},
      {SYS_clone3, {"clone3", {EAGAIN, ENOMEM, ENOSYS}}},
      {SYS_execve, {"execve", execErrors}},
      {SYS_wait4, {"wait4", waitErrors}},
      {SYS_waitid, {"waitid", waitErrors}},
      {SYS_kill, {"kill", {EPERM, ESRCH}}},
      {SYS_tgkill, {"tgkill", {EAGAIN, ESRCH}}},
      {SYS_setpgid, {"setpgid", {EACCES, EPERM, ESRCH}}},
      {SYS_setsid, {"setsid", {EPERM}}},
      {SYS_rt_sigaction, {"rt_sigaction", {EINVAL}}},
      {SYS_rt_sigprocmask, {"rt_sigprocmask", {EINVAL}}},
      {SYS_rt_sigtimedwait, {"rt_sigtimedwait", {EAGAIN, EINTR, EINVAL}}},
      {SYS_rt_sigsuspend, {"rt_sigsuspend", {EINTR}}},
      {SYS_sigaltstack, {"sigaltstack", {ENOMEM, EPERM}}},
      {SYS_clock_nanosleep, {"clock_nanosleep", {EINTR, EINVAL}}},
      {SYS_nanosleep, {"nanosleep", {EINTR, EINVAL}}},
      {SYS_clock_gettime, {"clock_gettime", {EINVAL, EOVERFLOW}}},
      {SYS_prlimit64, {"prlimit64", {EINVAL, EPERM}}},
      {SYS_getgroups, {"getgroups", {EINVAL}}},
      {SYS_chdir, {"chdir", {EACCES, EIO, ELOOP, ENOENT, ENOTDIR}}},
      {SYS_uname, {"uname", {EFAULT}}},
      {SYS_sysinfo, {"sysinfo", {EFAULT}}},
      {SYS_sched_getaffinity, {"sched_getaffinity", {EINVAL, ESRCH}}},
      {SYS_socket, {"socket", {EACCES, EAFNOSUPPORT, EMFILE, ENFILE, ENOBUFS, ENOMEM}}},
      {SYS_connect, {"connect", {EACCES, EAGAIN, ECONNREFUSED, EINTR, EIO, ENOENT}}},
      {SYS_bind, {"bind", {EACCES, EADDRINUSE, EINVAL, ENOMEM}}},
      {SYS_listen, {"listen", {EADDRINUSE, EINVAL, EOPNOTSUPP}}},
      {SYS_accept4, {"accept4", {EAGAIN, ECONNABORTED, EINTR, EMFILE, ENFILE, ENOMEM, EPERM}}},
      {SYS_getsockopt, {"getsockopt", {EINVAL, ENOBUFS, ENOMEM, ENOPROTOOPT}}},
      {SYS_setsockopt, {"setsockopt", {EDOM, EINVAL, ENOMEM, ENOPROTOOPT}}},
      // These cannot fail, or end the program.
      {SYS_getpid, {"getpid", nothing}},
      {SYS_getppid, {"getppid", nothing}},
      {SYS_getpgid, {"getpgid", nothing}},
      {SYS_gettid, {"gettid", nothing}},
      {SYS_getuid, {"getuid", nothing}},
      {SYS_geteuid, {"geteuid", nothing}},
      {SYS_getgid, {"getgid", nothing}},
      {SYS_getegid, {"getegid", nothing}},
      {SYS_umask, {"umask", nothing}},
      {SYS_exit, {"exit", nothing}},
      {SYS_exit_group, {"exit_group", nothing}},
      {SYS_rt_sigreturn, {"rt_sigreturn", nothing}},
      {SYS_set_tid_address, {"set_tid_address", nothing}},
      {SYS_rt_sigpending, {"rt_sigpending", nothing}},
      {SYS_sched_yield, {"sched_yield", nothing}},
      // The C library's own, with no error that POSIX knows; it aborts on one.
      {SYS_futex, {"futex", nothing}},
      {SYS_rseq, {"rseq", nothing}},
      {SYS_set_robust_list, {"set_robust_list", nothing}},
      {SYS_arch_prctl, {"arch_prctl", nothing}},
      {SYS_prctl, {"prctl", nothing}},
      {SYS_restart_syscall, {"restart_syscall", nothing}},
  };
  return calls;
}

}  // namespace

std::string callName(int number) {
  const auto found = table().find(number);
  return found != table().end() ? found->second.name : "call " + std::to_string(number);
}

const std::vector<int>& errorsOf(int number) {
  static const Errors ofAnyCall{EINTR, EINVAL, ENOMEM, ENOSYS, EPERM};
  const auto found = table().find(number);
  return found != table().end() ? found->second.errors : ofAnyCall;
}

std::string errorName(int error) {
  const char* name = strerrorname_np(error);
  return name != nullptr ? name : std::to_string(error);
}

}  // namespace fault_matrix
