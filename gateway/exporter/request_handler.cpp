#include "gateway/exporter/request_handler.h"

#include <algorithm>
#include <utility>

#include "gateway/wire/limits.h"

namespace modelgate {

using ModelSrv::ModelRes;
using ModelSrv::ModelRes_Success;
using Clock = std::chrono::steady_clock;

namespace {

/// The longest correlation data, in bytes.
constexpr std::size_t maxCorrelation = 64;
/// A reply expires then: its request has given up long before.
constexpr std::chrono::seconds replyExpiry{10};
/// How long a request lives.
constexpr std::chrono::seconds requestLife{2};
/// A value of at most that many bytes does not count; there may be 256 of them for each server.
constexpr std::size_t smallValue = 4096;
/// The most bytes of values that wait for servers.
constexpr std::size_t maxWaitingBytes = std::size_t{16} * 1024 * 1024;

/// How long a store may wait that has just arrived, by what the broker says of it.
std::optional<std::chrono::seconds> patienceWith(const Message& message) {
  if (!message.expiry || *message.expiry > requestLife) {
    return std::nullopt;
  }
  return message.isDelayed ? std::chrono::seconds(0) : *message.expiry;
}

bool isStore(Verb verb) {
  return verb == Verb::set || verb == Verb::load;
}

Publication replyPublication(std::string topic, std::string correlation, std::string payload,
                             Format format) {
  Publication publication;
  publication.topic = std::move(topic);
  publication.payload = std::move(payload);
  publication.qos = 1;
  publication.expiry = replyExpiry;
  publication.contentType = contentType(format);
  publication.correlation = std::move(correlation);
  return publication;
}

}  // namespace

bool RequestHandler::isOwnResponseTopic(std::string_view topic, std::string_view user) const {
  const std::string prefix = context_.topics.reply(user, {});
  return topic.starts_with(prefix) && isTopicLevel(topic.substr(prefix.size()));
}

void RequestHandler::handle(std::string_view rest, const Message& message) {
  const std::size_t slash = rest.find('/');
  const std::optional<Verb> verb = findVerb(rest.substr(0, slash));
  const std::string_view user =
      slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
  const bool isProper = verb && isTopicLevel(user) && !message.retained &&
                        isOwnResponseTopic(message.responseTopic, user) &&
                        message.correlation.size() <= maxCorrelation;
  if (!isProper) {
    context_.log("a request is dropped: it is retained, or its topics are wrong", true);
    return;
  }
  const Requester requester{formatOf(message.payload, message.contentType), *verb,
                            std::string(message.responseTopic), std::string(message.correlation),
                            patienceWith(message)};
  if (!begin(requester)) {
    return;
  }
  std::string error;
  const std::optional<Request> request = decodeRequest(message.payload, message.contentType, error);
  if (!request) {
    return reply(requester, ModelSrv::ModelRes_BadRequest, error);
  }
  carryOut(requester, *request);
}

/// Whether the request is to be carried out; a repeated one gets the reply that it had.
bool RequestHandler::begin(const Requester& requester) {
  const std::string& topic = requester.responseTopic;
  const std::string& correlation = requester.correlation;
  switch (memory_.begin(topic, correlation, Clock::now())) {
    case ReplyMemory::State::isNew:
      return true;
    case ReplyMemory::State::isInProgress:
      return false;
    case ReplyMemory::State::isAnswered:
      context_.outbox.pushReply(replyPublication(
          topic, correlation, memory_.reply(topic, correlation), requester.format));
      return false;
    case ReplyMemory::State::isForgotten:
      reply(requester, ModelSrv::ModelRes_OutcomeUnknown,
            "the store was carried out before, and its result is no longer known");
      return false;
    case ReplyMemory::State::isFull:
      break;
  }
  if (isStore(requester.verb)) {
    reply(requester, ModelSrv::ModelRes_LimitReached,
          "the device has had too many requests within 10 s, nothing was stored");
    return false;
  }
  return true;  // A repetition changes nothing.
}

void RequestHandler::carryOut(const Requester& requester, const Request& request) {
  ServerExport* server = find_(request.server);
  if (server == nullptr || server->tree() == nullptr) {
    return reply(requester, ModelSrv::ModelRes_NoSuchPart, "there is no such server");
  }
  if (request.chain && request.path) {
    return reply(requester, ModelSrv::ModelRes_BadRequest, "expected \"id\" or \"path\", got both");
  }
  const TreeIndex& index = server->tree()->index;
  std::optional<Position> position = rootPosition;
  if (request.chain) {
    position = index.find(*request.chain);
  } else if (request.path) {
    position = index.findPath(*request.path);
  }
  if (!position) {
    return reply(requester, ModelSrv::ModelRes_NoSuchPart);
  }
  carryOut(requester, request, *server, *position);
}

void RequestHandler::carryOut(const Requester& requester, const Request& request,
                              ServerExport& server, Position position) {
  switch (requester.verb) {
    case Verb::watch:
      return lease(requester, server, position);
    case Verb::sync:
      return sync(requester, request, server, position);
    case Verb::set:
    case Verb::load:
      if (std::optional<Reply> error = checkStore(requester, request, server, position)) {
        return reply(requester, std::move(*error));
      }
      return pass(requester, request, server, position);
    case Verb::get:
      return pass(requester, request, server, position);
  }
}

void RequestHandler::lease(const Requester& requester, ServerExport& server, Position position) {
  if (!server.lease(requester.responseTopic, position)) {
    return reply(requester, ModelSrv::ModelRes_LimitReached);
  }
  Reply granted;
  granted.sequence = server.sequence();
  granted.lease = static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Leases::duration).count());
  reply(requester, std::move(granted));
}

void RequestHandler::sync(const Requester& requester, const Request& request, ServerExport& server,
                          Position position) {
  if (requester.format == Format::json) {
    return reply(requester, ModelSrv::ModelRes_NotSupported,
                 "a sync is answered in CBOR, so it is requested in CBOR");
  }
  const std::uint64_t since = request.epoch == context_.epoch ? request.since : 0;
  const bool isTaken =
      server.sync(position, since, [this, requester](const Batch& batch, bool more) {
        Reply part;
        part.sequence = batch.sequence;
        part.batch = encodeBatch(batch);
        part.more = more;
        if (more) {
          context_.outbox.pushReply(replyPublication(requester.responseTopic, requester.correlation,
                                                     encodeReply(part, requester.format),
                                                     requester.format));
        } else {
          reply(requester, std::move(part));
        }
      });
  if (!isTaken) {
    reply(requester, ModelSrv::ModelRes_LimitReached);
  }
}

std::optional<Reply> RequestHandler::checkStore(const Requester& requester, const Request& request,
                                                const ServerExport& server,
                                                Position position) const {
  Reply error;
  if (!request.value) {
    error.result = ModelSrv::ModelRes_BadRequest;
    error.reason = "expected \"value\"";
  } else if (request.until && !request.epoch) {
    error.result = ModelSrv::ModelRes_BadRequest;
    error.reason = "expected \"epoch\" with \"until\"";
  } else if (!request.until && !requester.patience) {
    error.result = ModelSrv::ModelRes_BadRequest;
    error.reason = "expected a message expiry of at most 2 s, or \"until\"";
  } else if (!context_.allowSet.allow(server.name(), server.tree()->index.names(position))) {
    error.result = ModelSrv::ModelRes_Denied;
    error.reason = "the device does not allow stores here";
  } else if (request.epoch && request.epoch != context_.epoch) {
    error.result = ModelSrv::ModelRes_Timeout;
    error.reason = "the device's exporter has begun anew, nothing was stored";
  } else if (request.until ? Clock::now() > lastMoment(requester, request)
                           : requester.patience == std::chrono::seconds(0)) {
    error.result = ModelSrv::ModelRes_Timeout;
    error.reason = "the request came too late, nothing was stored";
  } else {
    return std::nullopt;
  }
  return error;
}

Clock::time_point RequestHandler::lastMoment(const Requester& requester, const Request& request) {
  const Clock::time_point now = Clock::now();
  if (!request.until) {
    return now + requester.patience.value_or(std::chrono::seconds(0));
  }
  const std::uint64_t latest = monotonicMilliseconds(now + requestLife);
  return Clock::time_point(std::chrono::milliseconds(std::min(*request.until, latest)));
}

/// To the thread that has the connection to the server.
void RequestHandler::pass(const Requester& requester, const Request& request, ServerExport& server,
                          Position position) {
  if (!server.isUp()) {
    return reply(requester, ModelSrv::ModelRes_Unreachable, "the server does not run");
  }
  const TreeIndex& index = server.tree()->index;
  WorkerRequest passed;
  passed.verb = requester.verb;
  passed.chain = index.chain(position);
  const std::vector<std::string_view> names = index.names(position);
  passed.names.assign(names.begin(), names.end());
  passed.index = request.index;
  passed.value = request.value.value_or(std::string());
  passed.until = lastMoment(requester, request);
  const auto reserved = reserve(passed.value.size());
  if (!reserved) {
    return reply(requester, ModelSrv::ModelRes_LimitReached, "too many large values wait");
  }
  passed.done = [this, requester, &server, held = *reserved](const WorkerResult& result) {
    Reply answer;
    answer.result = result.result;
    answer.reason = result.reason;
    answer.value = result.value;
    answer.sequence = server.sequence();
    reply(requester, std::move(answer));
  };
  if (!server.request(std::move(passed))) {
    reply(requester, ModelSrv::ModelRes_LimitReached, "too many requests wait for the server");
  }
}

std::optional<std::shared_ptr<const void>> RequestHandler::reserve(std::size_t size) const {
  if (size <= smallValue) {
    return nullptr;
  }
  if (*waitingBytes_ + size > maxWaitingBytes) {
    return std::nullopt;
  }
  *waitingBytes_ += size;
  return std::shared_ptr<const void>(
      this, [size, bytes = waitingBytes_](const void*) { *bytes -= size; });
}

void RequestHandler::reply(const Requester& requester, ModelRes result, std::string reason) {
  Reply error;
  error.result = result;
  error.reason = std::move(reason);
  reply(requester, std::move(error));
}

/// Sends the last reply to a request.
void RequestHandler::reply(const Requester& requester, Reply reply) {
  if (reply.result != ModelRes_Success && reply.reason.empty()) {
    reply.reason = ModelSrv::describe(reply.result);
  }
  reply.epoch = context_.epoch;
  reply.monotonic = monotonicMilliseconds();
  reply.time = realMilliseconds();
  std::string payload = encodeReply(reply, requester.format);
  if (payload.size() > maxPayload) {
    reply.value.reset();
    if (reply.result == ModelRes_Success && !isStore(requester.verb)) {
      reply.result = ModelSrv::ModelRes_TooLarge;
      reply.reason = ModelSrv::describe(reply.result);
    }
    payload = encodeReply(reply, requester.format);
  }
  // Of other requests a repetition is carried out again, which changes nothing.
  if (isStore(requester.verb)) {
    memory_.complete(requester.responseTopic, requester.correlation, payload, Clock::now());
  } else {
    memory_.forget(requester.responseTopic, requester.correlation);
  }
  const bool isSent = context_.outbox.pushReply(replyPublication(
      requester.responseTopic, requester.correlation, std::move(payload), requester.format));
  if (!isSent) {
    context_.log("a reply is dropped: the broker takes too few", true);
  }
}

}  // namespace modelgate
