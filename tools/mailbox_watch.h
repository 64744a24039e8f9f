#pragma once

namespace treectl {

/// Reports when a server may have come up: a change in the directory of the mailboxes.
class MailboxWatch {
 public:
  MailboxWatch();
  ~MailboxWatch();
  MailboxWatch(const MailboxWatch&) = delete;
  MailboxWatch& operator=(const MailboxWatch&) = delete;

  /// Waits for a change since the last call, at most `seconds`.
  void wait(double seconds);

 private:
  int descriptor_;  ///< negative if the system has none; then only time passes
};

}  // namespace treectl
