#include "evtsrv/source/handshake.h"

#include <fcntl.h>

#include <cerrno>
#include <span>
#include <utility>

#include "evtsrv/source/access.h"
#include "evtsrv/source/mailbox.h"

namespace EvtSrv::internal {

namespace {

// How often another client's sweep may remove the pipes before they are locked.
constexpr int maxTokenAttempts = 16;

// How often the mailbox may be removed and made again while it is being opened.
constexpr int maxMailboxAttempts = 16;

}  // namespace

EvtRes Handshake::begin(const std::string& name, const std::optional<MailboxOwner>& pinned) {
  if (!isPortName(name)) {
    return EvtRes_BadName;
  }
  EvtRes result = openMailbox(name);
  if (result == EvtRes_Success && pinned && *pinned != owner_) {
    result = EvtRes_NotPermitted;
  }
  if (result != EvtRes_Success) {
    return result;
  }
  const int made = makePipes();
  if (made < 0) {
    return resultOfMaking(made);
  }
  result = sendHello();
  return result == EvtRes_Timeout ? EvtRes_Success : result;
}

EvtRes Handshake::openMailbox(const std::string& name) {
  const std::string path = mailboxPath(name);
  struct stat status {};
  for (int attempt = 0; attempt < maxMailboxAttempts; ++attempt) {
    int result = mailbox_.adopt(system_, system_.open(path, O_WRONLY | O_NONBLOCK));
    result = result < 0 ? result : system_.fstat(mailbox_.number(), status);
    if (result < 0) {
      return resultOf(result);
    }
    // If it has been removed meanwhile, its server makes another one.
    if (status.st_nlink > 0) {
      owner_ = {status.st_uid, status.st_gid};
      const auto access = clientAccess(system_, status);
      access_ = access.value_or(PipeAccess{});
      return access ? EvtRes_Success : EvtRes_NotPermitted;
    }
  }
  return EvtRes_NoServer;
}

int Handshake::makePipes() {
  int result = -EEXIST;
  for (int attempt = 0; attempt < maxTokenAttempts && result == -EEXIST; ++attempt) {
    result = system_.random(hello_.token);
    if (result == 0) {
      result = makePipesOf(hello_.token);
    }
  }
  return result;
}

int Handshake::makePipesOf(const Token& token) {
  request_ = {};
  reply_ = {};
  event_ = {};
  int result = request_.make(system_, privatePipePath(token, PipePurpose::request), access_);
  if (result == 0) {
    result = reply_.make(system_, privatePipePath(token, PipePurpose::reply), access_);
  }
  if (result == 0) {
    result = event_.make(system_, privatePipePath(token, PipePurpose::event), access_);
  }
  return result == 0 ? request_.openWriter(requestWriter_) : result;
}

EvtRes Handshake::sendHello() {
  const auto bytes = encodeHello(hello_);
  const ssize_t written = system_.write(mailbox_.number(), bytes);
  if (written == -EAGAIN) {
    return EvtRes_Timeout;
  }
  if (written < 0) {
    return written == -EPIPE ? EvtRes_NoServer : resultOf(written);
  }
  // Up to PIPE_BUF bytes are written completely or not at all (pipe(7)).
  if (static_cast<std::size_t>(written) != bytes.size()) {
    return EvtRes_SystemError;
  }
  helloSent_ = true;
  return EvtRes_Success;
}

EvtRes Handshake::await(Deadline& deadline) {
  int wait = 0;
  while (deadline.nextWait(wait)) {
    const auto mailboxInterest = static_cast<short>(helloSent_ ? 0 : POLLOUT);
    std::array<pollfd, 2> pipes{pollfd{replyReader().number(), POLLIN, 0},
                                pollfd{mailbox_.number(), mailboxInterest, 0}};
    const int ready = system_.poll(pipes, wait);
    if (ready == -EINTR || ready == 0) {
      continue;
    }
    if (ready < 0) {
      return resultOf(ready);
    }
    EvtRes result = EvtRes_Timeout;
    if (pipes[0].revents != 0) {
      result = readWelcome();
    } else if ((pipes[1].revents & POLLERR) != 0) {
      result = EvtRes_NoServer;
    } else if (!helloSent_) {
      result = sendHello();
      result = result == EvtRes_Success ? EvtRes_Timeout : result;
    }
    if (result != EvtRes_Timeout) {
      return result;
    }
  }
  return EvtRes_Timeout;
}

EvtRes Handshake::readWelcome() {
  // Not a byte more than the welcome: the rest belongs to the connection.
  const ssize_t count =
      system_.read(replyReader().number(), std::span(welcome_).subspan(welcomeSize_));
  if (count == -EAGAIN) {
    return EvtRes_Timeout;
  }
  if (count <= 0) {
    return count == 0 ? EvtRes_Closed : resultOf(count);
  }
  welcomeSize_ += static_cast<std::size_t>(count);
  return welcomeSize_ < welcome_.size() ? EvtRes_Timeout : decodeWelcome();
}

EvtRes Handshake::decodeWelcome() const {
  const auto header = decodeHeader(welcome_.data());
  if (!header || header->kind != FrameKind::welcome || header->length != 0) {
    return EvtRes_Protocol;
  }
  switch (header->code) {
    case EvtRes_Success:
      return EvtRes_Success;
    case EvtRes_NoDescriptors:
      return EvtRes_NoDescriptors;
    default:
      return EvtRes_Refused;
  }
}

ConnectionPipes Handshake::takePipes() {
  request_.removeName();
  reply_.removeName();
  event_.removeName();
  sweepPrivatePipes(system_, hello_.token);
  return {std::move(requestWriter_), reply_.takeReader(), event_.takeReader()};
}

}  // namespace EvtSrv::internal
