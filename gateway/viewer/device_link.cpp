#include "gateway/viewer/device_link.h"

#include <algorithm>
#include <utility>

namespace modelgate {

using std::chrono::microseconds;
using std::chrono::milliseconds;

namespace {

/// How long a probe waits for its reply, and how long it is until the next one at most.
constexpr milliseconds probeLimit{2'000};
constexpr std::chrono::seconds longestProbePause{30};

milliseconds realTime() {
  return std::chrono::duration_cast<milliseconds>(
      std::chrono::system_clock::now().time_since_epoch());
}

}  // namespace

DeviceLink::DeviceLink(ViewerContext& context, std::string name,
                       std::function<void()> presenceChanged)
    : context_(context),
      name_(std::move(name)),
      topics_(context.names().fleet, name_),
      presenceChanged_(std::move(presenceChanged)) {
  if (context_.isConnected()) {
    presence_.connected(ViewerContext::now());
  }
}

std::optional<milliseconds> DeviceLink::age() const {
  const auto heard = presence_.lastHeard();
  return heard ? std::optional(
                     std::chrono::duration_cast<milliseconds>(ViewerContext::now() - *heard))
               : std::nullopt;
}

bool DeviceLink::request(Verb verb, const Request& request, milliseconds limit,
                         RequestTable::Done done) {
  const bool measures = verb != Verb::sync;
  return context_.request(
      name_, verb, request, limit,
      [this, measures, done = std::move(done)](const RequestTable::Answer& answer) {
        if (answer.reply != nullptr) {
          heardReply(*answer.reply, answer.roundTrip, measures);
        }
        done(answer);
      });
}

void DeviceLink::heardReply(const Reply& reply, std::chrono::steady_clock::duration roundTrip,
                            bool measures) {
  if (reply.epoch == epoch_) {
    clock_.heard(reply.monotonic, ViewerContext::now());
  }
  if (measures) {
    roundTrip_ = std::chrono::duration_cast<microseconds>(roundTrip);
    skew_ = milliseconds(reply.time) - realTime() +
            std::chrono::duration_cast<milliseconds>(roundTrip / 2);
  }
  if (changePresence([this] { presence_.heard(ViewerContext::now()); })) {
    presenceChanged_();
  }
}

void DeviceLink::heard(const Batch& batch) {
  if (batch.epoch == epoch_) {
    clock_.heard(batch.monotonic, ViewerContext::now());
  }
  if (changePresence([this] { presence_.heard(ViewerContext::now()); })) {
    presenceChanged_();
  }
}

bool DeviceLink::stated(const DevicePresence::Statement& statement) {
  if (statement.epoch != epoch_) {
    epoch_ = statement.epoch;
    clock_.reset();
  }
  return changePresence([&] { presence_.stated(statement, ViewerContext::now()); });
}

bool DeviceLink::cleared() {
  return changePresence([this] { presence_.cleared(); });
}

bool DeviceLink::connected() {
  // The pause after a probe was for the connection before.
  probeTimer_ = {};
  isProbing_ = false;
  return changePresence([this] { presence_.connected(ViewerContext::now()); });
}

void DeviceLink::disconnected() {
  static_cast<void>(changePresence([this] { presence_.disconnected(ViewerContext::now()); }));
}

void DeviceLink::changeWatched(int by) {
  watched_ += by;
  presence_.watch(watched_ > 0, ViewerContext::now());
  setTimer();
}

bool DeviceLink::changePresence(const std::function<void()>& change) {
  const bool wasOnline = presence_.isOnline();
  change();
  setTimer();
  probe();
  return presence_.isOnline() != wasOnline;
}

/// The timer may be early: it is not set anew for each message.
void DeviceLink::setTimer() {
  const auto due = presence_.deadline();
  if (!due || (timerDue_ && *timerDue_ <= *due)) {
    return;
  }
  timerDue_ = due;
  timer_ = context_.loop().at(*due, [this] {
    timerDue_.reset();
    if (changePresence([this] { presence_.advance(ViewerContext::now()); })) {
      presenceChanged_();
    }
  });
}

/// A device that is silent may be there all the same: it was this machine that had no connection.
void DeviceLink::probe() {
  if (isProbing_ || !presence_.needsProbe() || probedServer_.empty()) {
    return;
  }
  Request request;
  request.server = probedServer_;
  request.path = "/";
  isProbing_ = context_.request(
      name_, Verb::get, request, probeLimit, [this](const RequestTable::Answer& answer) {
        if (answer.reply != nullptr) {
          isProbing_ = false;
          return heardReply(*answer.reply, answer.roundTrip, true);
        }
        if (answer.ending == RequestTable::Ending::disconnected) {
          isProbing_ = false;
          return;
        }
        const auto pause =
            std::min<DevicePresence::Clock::duration>(presence_.limit(), longestProbePause);
        probeTimer_ = context_.loop().after(pause, [this] {
          isProbing_ = false;
          probe();
        });
      });
}

}  // namespace modelgate
