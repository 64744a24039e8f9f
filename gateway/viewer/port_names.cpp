#include "gateway/viewer/port_names.h"

#include <algorithm>
#include <utility>

namespace modelgate {

PortClaim* PortNames::ownerOf(const std::string& name) const {
  const auto at = owners_.find(name);
  return at != owners_.end() ? at->second : nullptr;
}

bool PortNames::canTake(const PortClaim& claim) const {
  return std::all_of(claim.wanted_.begin(), claim.wanted_.end(), [this](const std::string& name) {
    const PortClaim* const owner = ownerOf(name);
    return owner == nullptr || owner->handlers_.isGone();
  });
}

void PortNames::add(PortClaim& claim) {
  if (canTake(claim)) {
    take(claim);
  } else {
    waiting_.push_back(&claim);
  }
}

/// Those that have some of the names lose all of theirs, and wait.
void PortNames::take(PortClaim& claim) {
  std::vector<PortClaim*> losers;
  for (const std::string& name : claim.wanted_) {
    PortClaim* const owner = std::exchange(owners_[name], &claim);
    if (owner != nullptr && std::find(losers.begin(), losers.end(), owner) == losers.end()) {
      losers.push_back(owner);
    }
  }
  claim.isGranted_ = true;
  for (PortClaim* const loser : losers) {
    release(*loser);
    loser->isGranted_ = false;
    waiting_.push_back(loser);
    loser->handlers_.changed();
  }
}

void PortNames::remove(PortClaim& claim) {
  std::erase(waiting_, &claim);
  release(claim);
}

/// Makes the names free that it has.
void PortNames::release(const PortClaim& claim) {
  for (const std::string& name : claim.wanted_) {
    if (ownerOf(name) == &claim) {
      owners_.erase(name);
    }
  }
}

void PortNames::review() {
  const std::vector<PortClaim*> waiting = waiting_;
  for (PortClaim* const claim : waiting) {
    // Among those that have gone, the names stay where they are.
    if (!claim->handlers_.isGone() && canTake(*claim)) {
      std::erase(waiting_, claim);
      take(*claim);
      claim->handlers_.changed();
    }
  }
}

PortClaim::PortClaim(PortNames& names, std::vector<std::string> wanted, std::string server,
                     Handlers handlers)
    : names_(names),
      wanted_(std::move(wanted)),
      server_(std::move(server)),
      handlers_(std::move(handlers)) {
  names_.add(*this);
}

PortClaim::~PortClaim() {
  names_.remove(*this);
}

std::string PortClaim::obstacle() const {
  for (const std::string& name : isGranted_ ? std::vector<std::string>() : wanted_) {
    if (const PortClaim* const owner = names_.ownerOf(name)) {
      return name + " is " + owner->server_;
    }
  }
  return {};
}

}  // namespace modelgate
