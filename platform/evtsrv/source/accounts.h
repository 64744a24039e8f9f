#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <memory>

#include "evtsrv/source/frame.h"
#include "evtsrv/source/turn_queue.h"

/// What the clients of a port use, and the limits. Everything here requires the client mutex.
namespace EvtSrv::internal {

namespace limits {

inline constexpr std::size_t sessionsOfUser = 256;

// Bytes held: frames of which a part has arrived, and replies and events that wait for space
// in a pipe. A session may also hold one frame.
inline constexpr std::size_t bytesOfSession =
    std::size_t{32} * 1024 * 1024 + FrameHeader::size + maxPayload;
inline constexpr std::size_t bytesOfUser = std::size_t{64} * 1024 * 1024;
inline constexpr std::size_t bytesInAll = std::size_t{256} * 1024 * 1024;

inline constexpr std::size_t subscriptionsOfSession = 100'000;
inline constexpr std::size_t subscriptionsOfUser = 200'000;

}  // namespace limits

/// What the sessions of one user use together.
struct UserAccount {
  std::size_t sessions = 0;
  std::size_t bytes = 0;
  std::size_t subscriptions = 0;
  TurnGroup turns;
};

/// The accounts of the users of one port.
class Accounts {
 public:
  /// Without `turns`, which outlives this, a user without sessions has used nothing.
  explicit Accounts(const TurnQueue* turns = nullptr) : turns_(turns) {}

  /// Whether `user` may have another session.
  [[nodiscard]] bool mayOpenSession(uid_t user) const;

 private:
  friend class SessionAccount;

  /// Whether the user is as one that has never had a session.
  [[nodiscard]] bool isForgettable(const UserAccount& user) const {
    return user.sessions == 0 && (turns_ == nullptr || !turns_->isBehind(user.turns));
  }
  std::map<uid_t, UserAccount>::iterator open(uid_t user);

  const TurnQueue* turns_;
  /// Those with sessions, and those that would shed the time that they have used.
  std::map<uid_t, UserAccount> users_;
  std::size_t bytes_ = 0;
};

/// What one session uses. Its destructor returns everything.
class SessionAccount {
 public:
  SessionAccount(std::shared_ptr<Accounts> accounts, uid_t user);
  ~SessionAccount();
  SessionAccount(const SessionAccount&) = delete;
  SessionAccount& operator=(const SessionAccount&) = delete;

  /// Whether the session may hold `bytes` more.
  [[nodiscard]] bool allows(std::size_t bytes) const;
  /// Adds bytes that the session holds; false, and nothing changes, at a limit.
  [[nodiscard]] bool add(std::size_t bytes);
  void remove(std::size_t bytes);

  /// Adds a subscription; false, and nothing changes, at a limit.
  [[nodiscard]] bool addSubscription();
  void removeSubscriptions(std::size_t count);

  [[nodiscard]] TurnGroup& turns() { return user_->second.turns; }

 private:
  std::shared_ptr<Accounts> accounts_;
  std::map<uid_t, UserAccount>::iterator user_;
  std::size_t bytes_ = 0;
  std::size_t subscriptions_ = 0;
};

}  // namespace EvtSrv::internal
