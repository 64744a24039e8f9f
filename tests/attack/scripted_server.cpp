#include "tests/attack/scripted_server.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>

#include "tests/support/process.h"

namespace attack {

namespace {

namespace wire = fault::wire;

constexpr std::chrono::milliseconds slowReply(1900);
constexpr std::chrono::milliseconds slowByte(150);

std::string replyTo(const wire::Frame& request, const ScriptedReply& reply) {
  return wire::frame(wire::reply, reply.code, request.sequence, reply.payload);
}

}  // namespace

ScriptedServer::ScriptedServer(const std::string& mailbox, Script script, Turn turn)
    : script_(std::move(script)),
      server_(mailbox),
      stop_(::eventfd(0, EFD_CLOEXEC)),
      turn_(std::move(turn)),
      thread_([this] { serve(); }) {}

ScriptedServer::~ScriptedServer() {
  ::eventfd_write(stop_.get(), 1);
  thread_.join();
}

bool ScriptedServer::hasTurned() const {
  return hasTurned_.wait_for(test_support::timeout) == std::future_status::ready;
}

bool ScriptedServer::pause(std::chrono::milliseconds time) const {
  pollfd stop{stop_.get(), POLLIN, 0};
  return ::poll(&stop, 1, static_cast<int>(time.count())) == 0;
}

void ScriptedServer::disconnect() {
  server_.requests.close();
  server_.replies.close();
  server_.events.close();
}

void ScriptedServer::serve() {
  for (;;) {
    std::array<pollfd, 3> waited{{{stop_.get(), POLLIN, 0},
                                  {server_.mailbox().descriptor(), POLLIN, 0},
                                  {server_.requests.descriptor(), POLLIN, 0}}};
    if (::poll(waited.data(), waited.size(), -1) < 0) {
      continue;
    }
    if (waited[0].revents != 0) {
      return;
    }
    if (waited[1].revents != 0) {
      accept();
    } else if (waited[2].revents != 0 && !serveRequests()) {
      disconnect();
    }
  }
}

void ScriptedServer::accept() {
  disconnect();
  const bool isSlow = manner_ == Manner::closing || manner_ == Manner::batches;
  if (!isSlow || pause(slowReply)) {
    static_cast<void>(server_.accept());
  }
}

bool ScriptedServer::serveRequests() {
  if (manner_ != Manner::batches) {
    return serveRequest();
  }
  bool isOpen = pause(slowReply);
  while (isOpen && server_.requests.pendingBytes() > 0) {
    isOpen = serveRequest();
  }
  return isOpen;
}

bool ScriptedServer::serveRequest() {
  const auto request = server_.requests.readFrame();
  if (!request) {
    return false;
  }
  ++requests_;
  deliver(replyTo(*request, script_(*request)));
  if (turn_.count > 0 && request->code == turn_.operation && --turn_.count == 0) {
    manner_ = turn_.manner;
    requests_ = 0;
    turnedAt_ = Clock::now();
    static_cast<void>(server_.events.write(turn_.event));
    turned_.set_value();
    return manner_ != Manner::batches;
  }
  return true;
}

void ScriptedServer::deliver(const std::string& reply) {
  switch (manner_) {
    case Manner::never:
      return;
    case Manner::byteByByte:
      for (const char byte : reply) {
        if (!pause(slowByte) || !server_.replies.write({&byte, 1})) {
          return;
        }
      }
      return;
    case Manner::slow:
      if (!pause(slowReply)) {
        return;
      }
      break;
    case Manner::prompt:
    case Manner::closing:
    case Manner::batches:
      break;
  }
  static_cast<void>(server_.replies.write(reply));
  if (manner_ == Manner::closing) {
    disconnect();
  }
}

std::vector<std::uint16_t> chainOf(const wire::Frame& request) {
  const std::string_view payload = request.payload;
  const auto number = [&](std::size_t at) {
    return static_cast<std::uint16_t>(wire::readNumber(payload.substr(at, 2), request.order));
  };
  std::vector<std::uint16_t> ids(number(0));
  for (std::size_t level = 0; level < ids.size(); ++level) {
    ids[level] = number(2 + 2 * level);
  }
  return ids;
}

std::string updateOf(std::initializer_list<std::uint16_t> ids) {
  constexpr std::uint16_t endOfChain = 0xFFFF;
  constexpr std::uint16_t updateEvent = 2;
  std::string payload;
  for (const std::uint16_t id : ids) {
    payload += wire::u16(id);
  }
  payload += wire::u16(endOfChain) + wire::u16(wire::wholeValue);
  return wire::frame(wire::event, updateEvent, 0, payload);
}

std::string idsPayload(std::size_t count) {
  std::string payload = wire::u16(static_cast<std::uint16_t>(count));
  for (std::size_t id = 1; id <= count; ++id) {
    payload += wire::u16(static_cast<std::uint16_t>(id));
  }
  return payload;
}

std::string namesPayload(std::size_t count, const std::string& name) {
  std::string payload = wire::u16(static_cast<std::uint16_t>(count));
  for (std::size_t i = 0; i < count; ++i) {
    payload += wire::u16(static_cast<std::uint16_t>(name.size())) + name;
  }
  return payload;
}

ScriptedServer::Script groupOf(std::uint16_t count) {
  std::string names = wire::u16(count);
  for (unsigned id = 1; id <= count; ++id) {
    const std::string name = "part" + std::to_string(id);
    names += wire::u16(static_cast<std::uint16_t>(name.size())) + name;
  }
  return [count, names](const wire::Frame& request) -> ScriptedReply {
    const std::size_t depth = chainOf(request).size();
    switch (request.code) {
      case wire::childIds:
        return {0, idsPayload(depth == 0 ? 1 : depth == 1 ? count : 0)};
      case wire::childNames:
        return {0, depth == 0 ? namesPayload(1, "group") : depth == 1 ? names : wire::u16(0)};
      case wire::elementSum:
      case wire::elementNames:
        return {0, wire::u16(0)};
      case wire::save:
        return {0, "0"};
      case wire::load:
      case wire::subscribe:
      case wire::unsubscribe:
        return {};
      default:
        return {wire::badRequest, {}};
    }
  };
}

ScriptedServer::Script endlessTree(std::uint16_t width, const std::string& name) {
  const std::string ids = idsPayload(width);
  const std::string names = namesPayload(width, name);
  return [ids, names](const wire::Frame& request) -> ScriptedReply {
    switch (request.code) {
      case wire::childIds:
        return {0, ids};
      case wire::childNames:
        return {0, names};
      case wire::elementSum:
      case wire::elementNames:
        return {0, wire::u16(0)};
      case wire::save:
        return {0, "0"};
      default:
        return {wire::badRequest, {}};
    }
  };
}

}  // namespace attack
