#include "bench/concurrent_clients.h"

#include <unistd.h>

#include <stdexcept>
#include <thread>

namespace bench {
namespace {

constexpr char success = 'y';
constexpr char failed = 'n';

}  // namespace

ConcurrentClients::ConcurrentClients(const std::string& server, unsigned processor) {
  for (unsigned i = 0; i < processes; ++i) {
    processes_.push_back(
        std::make_unique<Child>([this, server, processor] { runProcess(server, processor); }));
  }
  if (!allSucceed()) {
    throw std::runtime_error("a client cannot connect");
  }
}

ConcurrentClients::~ConcurrentClients() {
  processes_.clear();
  for (const int end : {starts_.reading, starts_.writing, results_.reading, results_.writing}) {
    ::close(end);
  }
}

bool ConcurrentClients::run() const {
  const std::string start(size, success);
  return ::write(starts_.writing, start.data(), start.size()) ==
             static_cast<ssize_t>(start.size()) &&
         allSucceed();
}

bool ConcurrentClients::allSucceed() const {
  bool succeed = true;
  for (std::size_t i = 0; i < size; ++i) {
    char status = failed;
    succeed = ::read(results_.reading, &status, 1) == 1 && status == success && succeed;
  }
  return succeed;
}

void ConcurrentClients::runProcess(const std::string& server, unsigned processor) const {
  const bool pinned = pinTo(processor);
  std::vector<std::thread> clients;
  for (unsigned i = 0; i < clientsEach; ++i) {
    clients.emplace_back([this, &server, pinned] { runClient(server, pinned); });
  }
  for (std::thread& client : clients) {
    client.join();
  }
}

void ConcurrentClients::runClient(const std::string& server, bool pinned) const {
  char status = failed;
  const auto report = [&] {
    return ::write(results_.writing, &status, 1) == 1 && status == success;
  };
  try {
    ElementSumClient client(server);
    status = pinned ? success : failed;
    char start = 0;
    while (report() && ::read(starts_.reading, &start, 1) == 1) {
      for (unsigned i = 0; i < requestsEach && status == success; ++i) {
        status = client.request() ? success : failed;
      }
    }
  } catch (const std::exception&) {
    status = failed;
    static_cast<void>(report());
  }
}

}  // namespace bench
