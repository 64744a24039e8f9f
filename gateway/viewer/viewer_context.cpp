#include "gateway/viewer/viewer_context.h"

#include <malloc.h>

#include <utility>

#include "gateway/wire/limits.h"
#include "gateway/wire/topics.h"

namespace modelgate {

namespace {

/// How long the broker keeps a request for a device.
constexpr std::chrono::seconds requestExpiry{2};

}  // namespace

ViewerContext::ViewerContext(EventLoop& loop, EvtSrv::EventPortManager& manager, Names names,
                             Log log, std::optional<gid_t> group, ViewerTimes times,
                             std::size_t maxMirrors)
    : loop_(loop),
      manager_(manager),
      names_(std::move(names)),
      log_(std::move(log)),
      group_(group),
      times_(times),
      maxMirrors_(maxMirrors),
      requests_(names_.clientId + "/") {}

void ViewerContext::log(std::string_view line) const {
  if (log_) {
    log_(line, false);
  }
}

void ViewerContext::logOften(std::string_view line) {
  constexpr unsigned maxLines = 10;
  if (now() - loggedSince_ >= std::chrono::minutes(1)) {
    loggedSince_ = now();
    logged_ = 0;
  }
  if (++logged_ <= maxLines) {
    log(line);
  } else {
    logDetail(line);
  }
  if (logged_ == maxLines) {
    log("there may be more like that, which are logged with -v");
  }
}

void ViewerContext::logDetail(std::string_view line) const {
  if (log_) {
    log_(line, true);
  }
}

void ViewerContext::subscribe(const std::string& filter, int qos) {
  if (link_ != nullptr) {
    static_cast<void>(link_->subscribe(filter, qos));
  }
}

void ViewerContext::unsubscribe(const std::string& filter) {
  if (link_ != nullptr) {
    static_cast<void>(link_->unsubscribe(filter));
  }
}

bool ViewerContext::request(const std::string& device, Verb verb, const Request& request,
                            std::chrono::milliseconds limit, RequestTable::Done done) {
  if (!isConnected()) {
    return false;
  }
  const Topics topics(names_.fleet, device);
  Publication publication;
  publication.topic = topics.request(verb, names_.user);
  publication.payload = encodeRequest(request, Format::cbor);
  publication.qos = 1;
  publication.expiry = requestExpiry;
  publication.contentType = contentType(Format::cbor);
  publication.responseTopic = topics.reply(names_.user, names_.clientId);
  publication.correlation = requests_.add(device, publication.topic, now(), limit, std::move(done));
  // If it cannot be sent the connection is ending, which ends the request too.
  static_cast<void>(link_->publish(publication));
  setTimer();
  return true;
}

void ViewerContext::takeReply(std::string_view device, const Message& message, const Reply& reply) {
  static_cast<void>(requests_.take(device, message.correlation, reply, now()));
  setTimer();
}

void ViewerContext::refused(std::string_view topic) {
  requests_.refuse(topic);
}

void ViewerContext::disconnected() {
  requests_.disconnect();
}

/// The timer may be early: it is not set anew for each request.
void ViewerContext::setTimer() {
  const auto due = requests_.deadline();
  if (!due || (timerDue_ && *timerDue_ <= *due)) {
    return;
  }
  timerDue_ = due;
  timer_ = loop_.at(*due, [this] {
    timerDue_.reset();
    requests_.expire(now());
    setTimer();
  });
}

bool ViewerContext::addMirror() {
  if (mirrors_ < maxMirrors_) {
    ++mirrors_;
    return true;
  }
  if (!std::exchange(saidTooMany_, true)) {
    log("there are too many servers: only the first " + std::to_string(maxMirrors_) + " are shown");
  }
  return false;
}

void ViewerContext::addIdleTree(std::optional<IdleTrees::Entry>& entry, std::size_t bytes,
                                bool canBeFetched, std::function<void()> giveBack) {
  const auto due = canBeFetched ? std::optional(now() + times_.treeRetention) : std::nullopt;
  idleTrees_.add(entry, bytes, due, std::move(giveBack));
  if (idleTrees_.areTooLarge()) {
    trimTimer_ = loop_.after({}, [this] { trimTrees(); });
  }
}

void ViewerContext::trimTrees() {
  if (idleTrees_.trim(now())) {
    ::malloc_trim(0);  // The parts are many small pieces, which are of no use to anything else.
  }
}

void ViewerContext::review() {
  portNames_.review();
  trimTrees();
}

void ViewerContext::beginFetch(std::weak_ptr<std::function<void()>> begin) {
  waitingFetches_.push_back(std::move(begin));
  beginNextFetches();
}

void ViewerContext::endFetch() {
  --fetches_;
  beginNextFetches();
}

void ViewerContext::beginNextFetches() {
  // One that has all pages at once ends within its turn.
  if (std::exchange(isBeginningFetches_, true)) {
    return;
  }
  while (fetches_ < maxFetches && !waitingFetches_.empty()) {
    const auto begin = waitingFetches_.front().lock();
    waitingFetches_.pop_front();
    if (begin != nullptr) {
      ++fetches_;
      (*begin)();
    }
  }
  isBeginningFetches_ = false;
}

}  // namespace modelgate
