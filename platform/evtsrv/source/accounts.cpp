#include "evtsrv/source/accounts.h"

#include <utility>

namespace EvtSrv::internal {

bool Accounts::mayOpenSession(uid_t user) const {
  const auto found = users_.find(user);
  return found == users_.end() || found->second.sessions < limits::sessionsOfUser;
}

/// Adds the account of a user, and removes those that need not be kept.
std::map<uid_t, UserAccount>::iterator Accounts::open(uid_t user) {
  const auto [account, isNew] = users_.try_emplace(user);
  if (isNew) {
    std::erase_if(
        users_, [&](const auto& each) { return each.first != user && isForgettable(each.second); });
  }
  return account;
}

SessionAccount::SessionAccount(std::shared_ptr<Accounts> accounts, uid_t user)
    : accounts_(std::move(accounts)), user_(accounts_->open(user)) {
  ++user_->second.sessions;
}

SessionAccount::~SessionAccount() {
  remove(bytes_);
  removeSubscriptions(subscriptions_);
  --user_->second.sessions;
  if (accounts_->isForgettable(user_->second)) {
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
