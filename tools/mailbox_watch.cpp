#include "tools/mailbox_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace treectl {

MailboxWatch::MailboxWatch() : descriptor_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  // The opening of a mailbox that a killed server has left is not among these: the probes of this
  // program open it, too.
  constexpr unsigned events = IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
  if (descriptor_ >= 0 && ::inotify_add_watch(descriptor_, "/tmp", events) < 0) {
    ::close(descriptor_);
    descriptor_ = -1;
  }
}

MailboxWatch::~MailboxWatch() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
}

void MailboxWatch::wait(double seconds) {
  pollfd wait{descriptor_, POLLIN, 0};
  const int milliseconds = static_cast<int>(seconds * 1000) + 1;
  if (::poll(&wait, 1, milliseconds) > 0) {
    char events[4096];
    while (::read(descriptor_, events, sizeof events) > 0) {
    }
  }
}

}  // namespace treectl
