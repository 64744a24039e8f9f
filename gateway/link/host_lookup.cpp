#include "gateway/link/host_lookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace modelgate {

struct HostLookup::Pending {
  std::mutex mutex;
  EventLoop* loop = nullptr;  ///< protected by `mutex`; null: there is no owner
  Done done;                  ///< of the loop's thread
};

namespace {

struct Found {
  std::vector<std::string> addresses;
  std::string error;
};

Found resolve(const std::string& host) {
  Found found;
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int result = ::getaddrinfo(host.c_str(), nullptr, &hints, &list);
  if (result != 0) {
    found.error = host + ": " +
                  (result == EAI_SYSTEM ? std::generic_category().message(errno)
                                        : std::string(::gai_strerror(result)));
    return found;
  }
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    std::array<char, NI_MAXHOST> text{};
    if (::getnameinfo(entry->ai_addr, entry->ai_addrlen, text.data(), text.size(), nullptr, 0,
                      NI_NUMERICHOST) == 0 &&
        std::find(found.addresses.begin(), found.addresses.end(), text.data()) ==
            found.addresses.end()) {
      found.addresses.emplace_back(text.data());
    }
  }
  ::freeaddrinfo(list);
  if (found.addresses.empty()) {
    found.error = host + ": no address";
  }
  return found;
}

}  // namespace

HostLookup::HostLookup(EventLoop& loop) : loop_(loop) {}

HostLookup::~HostLookup() {
  abandon();
}

void HostLookup::abandon() {
  if (pending_) {
    const std::lock_guard lock(pending_->mutex);
    pending_->loop = nullptr;
    pending_->done = nullptr;
  }
  pending_.reset();
}

void HostLookup::begin(const std::string& host, Done done) {
  abandon();
  pending_ = std::make_shared<Pending>();
  pending_->loop = &loop_;
  pending_->done = std::move(done);
  const auto report = [](const std::shared_ptr<Pending>& pending, Found found) {
    const std::lock_guard lock(pending->mutex);
    if (pending->loop != nullptr) {
      pending->loop->post([pending, found = std::move(found)]() mutable {
        if (const Done call = std::exchange(pending->done, nullptr)) {
          call(std::move(found.addresses), std::move(found.error));
        }
      });
    }
  };
  try {
    std::thread([pending = pending_, host, report] {
      Found found;
      try {
        found = resolve(host);
      } catch (const std::bad_alloc&) {
        found.addresses.clear();
      }
      report(pending, std::move(found));
    }).detach();
  } catch (const std::system_error&) {
    report(pending_, {{}, host + ": no thread to resolve it"});
  }
}

bool isNumericHost(const std::string& host) {
  in6_addr address{};
  // A scope ("%eth0") is part of an address, too.
  const std::string plain = host.substr(0, host.find('%'));
  return ::inet_pton(AF_INET, host.c_str(), &address) == 1 ||
         ::inet_pton(AF_INET6, plain.c_str(), &address) == 1;
}

}  // namespace modelgate
