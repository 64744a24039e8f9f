#include <algorithm>
#include <utility>

#include "tools/commands.h"
#include "tools/condition.h"
#include "tools/mailbox_watch.h"
#include "tools/stop_signals.h"
#include "tools/watcher.h"

namespace treectl {

namespace {

using Clock = Watcher::Clock;

/// Waits until the value of one part fulfils a condition.
class Waiter {
 public:
  Waiter(Context& context, Condition condition)
      : context_(context), condition_(std::move(condition)) {
    if (context.options().timeout) {
      end_ = Watcher::after(*context.options().timeout);
    }
  }

  void run(const Address& address) {
    const StopSignals signals;
    address_ = address.text;
    server_ = address.server.bytes();
    if (!start(address)) {
      return;
    }
    while (!isDone_) {
      std::optional<Clock::time_point> deadline = end_;
      if (holdsUntil_ && (!deadline || *holdsUntil_ < *deadline)) {
        deadline = holdsUntil_;
      }
      for (const Change& change : watcher_->wait(deadline)) {
        take(change);
      }
      checkTime();
    }
  }

 private:
  /// Starts the watch. False if the command has ended.
  bool start(const Address& address) {
    while (awaitServer(address)) {
      watcher_.emplace(context_, WatchNeeds{.typed = true, .repeats = true});
      context_.keepError();
      const bool isStarted = isPart(address) && watcher_->start({address});
      const Context::KeptError error = context_.takeError();
      if (error.status == Status::success) {
        return isStarted && !isDone_;
      }
      if (error.status != Status::noServer && error.status != Status::timeout) {
        context_.fail(error.status, error.subject, error.reason);
        return false;
      }
      // The server went meanwhile.
      watcher_.reset();
      context_.disconnect(address.server.bytes());
      pause();
    }
    return false;
  }

  /// Waits a moment for a server to appear.
  void pause() {
    constexpr double longest = 0.5;
    const double left =
        end_ ? std::chrono::duration<double>(*end_ - Clock::now()).count() : longest;
    mailboxes_.wait(std::clamp(left, 0.0, longest));
    checkTime();
  }

  /// Waits until the server accepts a connection. Other errors end the command.
  bool awaitServer(const Address& address) {
    context_.reconnect();
    while (!isDone_) {
      const ModelSrv::ModelRes result = context_.tryConnect(address.server.bytes());
      connection_ = result;
      if (result == ModelSrv::ModelRes_Success) {
        return true;
      }
      if (result != ModelSrv::ModelRes_NotConnected && result != ModelSrv::ModelRes_Timeout &&
          result != ModelSrv::ModelRes_Refused) {
        context_.fail(statusOf(result), address_, connectionError(address.server.bytes(), result));
        return false;
      }
      pause();
    }
    return false;
  }

  /// Whether it stands for a part, of which more has to be known.
  bool isPart(const Address& address) {
    bool isFound = false;
    forEachMatch(context_, address, [&](const Match& match) {
      ModelSrv::ModelRes result = ModelSrv::ModelRes_Success;
      if (match.index == ModelSrv::ModelPartIndex_All &&
          isNode(*match.connection, match.chain, result)) {
        context_.fail(Status::notFound, match.shown(), "a node has no value");
      } else if (result == ModelSrv::ModelRes_Success) {
        isFound = true;
        checkPresent(match);
      } else {
        context_.fail(match.shown(), result);
      }
      return Visit::taken;
    });
    return isFound && !isDone_;
  }

  /// Ends at once if the condition holds, which needs no watch.
  void checkPresent(const Match& match) {
    ModelSrv::PartDescription description;
    Value value;
    isDone_ =
        !condition_.isChange() && !context_.options().duration &&
        match.connection->readDescription(match.chain, description) == ModelSrv::ModelRes_Success &&
        match.connection->readValue(match.chain, match.index, value) ==
            ModelSrv::ModelRes_Success &&
        holds(value, description).value_or(false);
  }

  [[nodiscard]] std::optional<bool> holds(const Value& value,
                                          const ModelSrv::PartDescription& description) const {
    std::string text;
    for (std::size_t i = 0; i < value.texts.size(); ++i) {
      text += (i == 0 ? "" : " ") + value.texts[i];
    }
    return condition_.holds(text, value.isArray ? "" : description.type);
  }

  void take(const Change& change) {
    if (isDone_) {
      return;
    }
    if (change.event == Change::Event::noValue) {
      present_ = {};
      holdsUntil_.reset();
      return;
    }
    if (change.event != Change::Event::value) {
      // Whether it holds meanwhile is unknown. When the server is back, its values come again,
      // before or after the report of that.
      connection_ = ModelSrv::ModelRes_Success;
      if (change.event == Change::Event::lost) {
        connection_ = ModelSrv::ModelRes_NotConnected;
        holdsUntil_.reset();
      }
      return;
    }
    if (condition_.isChange()) {
      isDone_ = !change.isFirst && !change.isRepeated;
      return;
    }
    if (change.index == ModelSrv::ModelPartIndex_All) {
      present_ = change.value;
    } else if (change.index < present_.texts.size()) {
      present_.texts[change.index] = change.value.texts.front();
    }
    const auto holdsNow = holds(present_, *change.description);
    if (!holdsNow) {
      context_.fail(Status::usage, address_, "expected a number to compare with");
      isDone_ = true;
      return;
    }
    // A change that stands for several may have been a break.
    if (!*holdsNow || change.changes > 1) {
      holdsUntil_.reset();
    }
    if (*holdsNow && !holdsUntil_) {
      holdsUntil_ = Watcher::after(context_.options().duration.value_or(0));
    }
  }

  void checkTime() {
    const auto now = Clock::now();
    if (isDone_) {
      return;
    }
    if (const int signal = StopSignals::received()) {
      isDone_ = true;
      context_.note(statusOfSignal(signal));
    } else if (holdsUntil_ && *holdsUntil_ <= now) {
      isDone_ = true;
    } else if (end_ && *end_ <= now) {
      isDone_ = true;
      std::string reason = "the condition did not hold in time";
      if (connection_ != ModelSrv::ModelRes_Success) {
        reason += ": " + connectionError(server_, connection_);
      }
      context_.fail(Status::timeout, address_, reason);
    }
  }

  Context& context_;
  Condition condition_;
  MailboxWatch mailboxes_;
  std::optional<Watcher> watcher_;
  std::string address_;
  std::string server_;
  ModelSrv::ModelRes connection_ = ModelSrv::ModelRes_Success;  ///< the last attempt, or a loss
  Value present_;  ///< the whole value after the last change
  std::optional<Clock::time_point> end_;
  std::optional<Clock::time_point> holdsUntil_;  ///< set while the condition holds
  bool isDone_ = false;
};

}  // namespace

void runWait(Context& context) {
  const std::vector<std::string>& operands = context.options().operands;
  const std::string* const value = operands.size() == 3 ? &operands[2] : nullptr;
  std::vector<Address> addresses;
  if (!parseAddresses(context, {operands[0]}, addresses)) {
    return;
  }
  auto problem = Condition::check(operands[1], value);
  if (addresses.front().hasWildcards()) {
    problem = printable(operands[0]) + ": no wildcards in an address of wait";
  }
  if (problem) {
    context.messages().print(*problem);
    context.note(Status::usage);
    return;
  }
  Waiter(context, Condition(operands[1], value == nullptr ? "" : *value)).run(addresses.front());
}

}  // namespace treectl
