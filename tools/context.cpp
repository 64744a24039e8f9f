#include "tools/context.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "tools/discovery.h"
#include "tools/nearest.h"
#include "tools/stop_signals.h"

namespace treectl {

namespace {

std::string userName(uid_t user) {
  passwd entry{};
  passwd* found = nullptr;
  char buffer[1024];
  if (::getpwuid_r(user, &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr) {
    return found->pw_name;
  }
  return std::to_string(user);
}

/// Colours are for people, and not for those who set NO_COLOR.
bool wantsColor(Color color) {
  if (color != Color::automatic) {
    return color == Color::always;
  }
  const char* const noColor = ::getenv("NO_COLOR");
  return (noColor == nullptr || *noColor == 0) && ::isatty(STDOUT_FILENO) == 1;
}

}  // namespace

std::string connectionError(const std::string& server, ModelSrv::ModelRes result) {
  if (result != ModelSrv::ModelRes_NotConnected) {
    return ModelSrv::describe(result);
  }
  return "no server " + server + " (" + otherServers(server, discoverLivingServers()) + ')';
}

Context::Context(Options options)
    : options_(std::move(options)), colored_(wantsColor(options_.color)) {
  messages_.setQuiet(options_.quiet);
}

void Context::fail(Status status, std::string_view subject, std::string_view reason) {
  if (kept_) {
    if (kept_->status == Status::success) {
      kept_ = {status, std::string(subject), std::string(reason)};
    }
    return;
  }
  const int signal = status == Status::timeout ? StopSignals::received() : 0;
  if (signal != 0) {
    note(statusOfSignal(signal));  // The signal ended the wait, not the time limit.
    return;
  }
  // What was printed before the error stands before its message.
  output_.flush();
  messages_.print(subject, reason);
  note(status);
}

void Context::fail(std::string_view subject, ModelSrv::ModelRes result, RequestKind kind) {
  fail(statusOf(result, kind), subject, ModelSrv::describe(result));
}

void Context::failFile(const std::string& path, int number) {
  const int signal = number == EINTR ? StopSignals::received() : 0;
  if (signal != 0) {
    note(statusOfSignal(signal));
  } else {
    fail(Status::ioError, path == "-" ? "standard input" : printable(path), errorText(number));
  }
}

Context::KeptError Context::takeError() {
  KeptError error = std::move(*kept_);
  kept_.reset();
  return error;
}

void Context::note(Status status) {
  if (status_ == Status::success) {
    status_ = status;
  }
}

double Context::requestLimit() const {
  // A server that answers at once does so in this time.
  constexpr double least = 0.05;
  const double limit = std::max(options_.timeout.value_or(defaultLimit), least);
  // Of `wait` it limits the whole.
  return options_.command == Command::wait ? std::min(limit, defaultLimit) : limit;
}

Context::Opened& Context::open(const std::string& server) {
  const auto [at, isNew] = servers_.try_emplace(server);
  Opened& opened = at->second;
  if (isNew) {
    opened.connection = std::make_unique<Connection>(requestLimit(), reconnects_);
    opened.result = opened.connection->open(server);
    if (opened.result == ModelSrv::ModelRes_Success) {
      reportOwner(server, *opened.connection);
    }
  }
  return opened;
}

void Context::reportOwner(const std::string& server, const Connection& connection) const {
  constexpr uid_t root = 0;
  if (::geteuid() != root) {
    return;
  }
  if (const auto owner = connection.owner(); owner && *owner != root) {
    messages_.print(server, "the server of user " + userName(*owner));
  }
}

Connection* Context::connect(const std::string& server, std::string_view subject) {
  Opened& opened = open(server);
  if (opened.result == ModelSrv::ModelRes_Success) {
    return opened.connection.get();
  }
  fail(statusOf(opened.result), subject, connectionError(server, opened.result));
  return nullptr;
}

ModelSrv::ModelRes Context::tryConnect(const std::string& server) {
  const auto known = servers_.find(server);
  if (known != servers_.end() && known->second.result != ModelSrv::ModelRes_Success) {
    servers_.erase(known);
  }
  return open(server).result;
}

Connection* Context::connectIfLiving(const std::string& server) {
  Opened& opened = open(server);
  return opened.result == ModelSrv::ModelRes_Success ? opened.connection.get() : nullptr;
}

}  // namespace treectl
