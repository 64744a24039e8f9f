#include "evtsrv/source/accounts.h"

#include <utility>

namespace EvtSrv::internal {

bool Accounts::mayOpenSession(uid_t user) const {
  const auto found = users_.find(user);
  return found == users_.end() || found->second.sessions < limits::sessionsOfUser;
}

SessionAccount::SessionAccount(std::shared_ptr<Accounts> accounts, uid_t user)
    : accounts_(std::move(accounts)), user_(accounts_->users_.try_emplace(user).first) {
  ++user_->second.sessions;
}

SessionAccount::~SessionAccount() {
  remove(bytes_);
  removeSubscriptions(subscriptions_);
  if (--user_->second.sessions == 0) {
    accounts_->users_.erase(user_);
  }
}

bool SessionAccount::allows(std::size_t bytes) const {
  return bytes_ + bytes <= limits::bytesOfSession &&
         user_->second.bytes + bytes <= limits::bytesOfUser &&
         accounts_->bytes_ + bytes <= limits::bytesInAll;
}

bool SessionAccount::add(std::size_t bytes) {
  if (!allows(bytes)) {
    return false;
  }
  bytes_ += bytes;
  user_->second.bytes += bytes;
  accounts_->bytes_ += bytes;
  return true;
}

void SessionAccount::remove(std::size_t bytes) {
  bytes_ -= bytes;
  user_->second.bytes -= bytes;
  accounts_->bytes_ -= bytes;
}

bool SessionAccount::addSubscription() {
  if (subscriptions_ >= limits::subscriptionsOfSession ||
      user_->second.subscriptions >= limits::subscriptionsOfUser) {
    return false;
  }
  ++subscriptions_;
  ++user_->second.subscriptions;
  return true;
}

void SessionAccount::removeSubscriptions(std::size_t count) {
  subscriptions_ -= count;
  user_->second.subscriptions -= count;
}

}  // namespace EvtSrv::internal
