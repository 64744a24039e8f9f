#include "bench/concurrent_clients.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

namespace bench {
namespace {

constexpr char success = 'y';
constexpr char failure = 'n';

}  // namespace

ConcurrentClients::ConcurrentClients(const std::string& server, unsigned processor) {
  if (::pipe2(starts_, O_CLOEXEC) != 0 || ::pipe2(results_, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2");
  }
  for (unsigned i = 0; i < processes; ++i) {
    processes_.push_back(
        std::make_unique<Child>([this, server, processor] { run(server, processor); }));
  }
  if (!allSucceed()) {
    throw std::runtime_error("not every client could connect");
  }
}

ConcurrentClients::~ConcurrentClients() {
  processes_.clear();
  for (const int end : {starts_[0], starts_[1], results_[0], results_[1]}) {
    ::close(end);
  }
}

bool ConcurrentClients::ask() const {
  const std::string start(size, success);
  return ::write(starts_[1], start.data(), start.size()) == static_cast<ssize_t>(start.size()) &&
         allSucceed();
}

bool ConcurrentClients::allSucceed() const {
  bool succeed = true;
  for (std::size_t i = 0; i < size; ++i) {
    char said = failure;
    succeed = ::read(results_[0], &said, 1) == 1 && said == success && succeed;
  }
  return succeed;
}

void ConcurrentClients::run(const std::string& server, unsigned processor) const {
  const bool pinned = pinTo(processor);
  std::vector<std::thread> clients;
  for (unsigned i = 0; i < clientsEach; ++i) {
    clients.emplace_back([this, &server, pinned] { live(server, pinned); });
  }
  for (std::thread& client : clients) {
    client.join();
  }
}

void ConcurrentClients::live(const std::string& server, bool pinned) const {
  char said = failure;
  const auto tell = [&] { return ::write(results_[1], &said, 1) == 1 && said == success; };
  try {
    ElementSumClient client(server);
    said = pinned ? success : failure;
    char start = 0;
    while (tell() && ::read(starts_[0], &start, 1) == 1) {
      for (unsigned i = 0; i < questionsEach && said == success; ++i) {
        said = client.ask() ? success : failure;
      }
    }
  } catch (const std::exception&) {
    said = failure;
    static_cast<void>(tell());
  }
}

}  // namespace bench
