#include "evtsrv/source/port_client.h"

#include <new>
#include <optional>
#include <utility>

#include "evtsrv/source/client_link.h"
#include "evtsrv/source/handshake.h"
#include "evtsrv/source/manager_core.h"

namespace EvtSrv::internal {

class PortClient::Impl {
 public:
  Impl(ManagerCore& core, EventSink& sink) : core_(core), sink_(sink) {}
  ~Impl() {
    core_.clientMutex().assertHeld();
    end();
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  EvtRes connect(const std::string& name) {
    core_.clientMutex().assertHeld();
    end();
    return orEnd([&] {
      name_ = name;
      fault_ = core_.state();
      return fault_ == EvtRes_Success ? begin() : fault_;
    });
  }

  EvtRes resume(bool& renewed) {
    core_.clientMutex().assertHeld();
    renewed = false;
    return orEnd([&] { return tryResume(renewed); });
  }

  EvtRes exchange(std::uint16_t operation, std::span<const std::uint8_t> payload, Reply& reply) {
    core_.clientMutex().assertHeld();
    if (handshake_.has_value()) {
      return EvtRes_Stalled;
    }
    if (link_ == nullptr) {
      return fault();
    }
    // A sink's handler may end this connection, but not from inside an exchange.
    return link_->exchange(operation, payload, reply);
  }

  [[nodiscard]] bool isOpen() const {
    core_.clientMutex().assertHeld();
    return link_ != nullptr && link_->fault() == EvtRes_Success;
  }

  void close() {
    core_.clientMutex().assertHeld();
    end();
    name_.clear();
  }

  [[nodiscard]] const std::string& portName() const { return name_; }

 private:
  /// What `operation` gives; where it wants more memory than there is, nothing of a
  /// connection stays, and the next one may be tried.
  template <typename Operation>
  EvtRes orEnd(Operation operation) {
    try {
      return operation();
    } catch (const std::bad_alloc&) {
      end();
      return fault_ = EvtRes_SystemError;
    }
  }

  EvtRes tryResume(bool& renewed) {
    if (link_ != nullptr && link_->look() == EvtRes_Success) {
      return EvtRes_Success;
    }
    EvtRes result = EvtRes_NoServer;
    if (handshake_.has_value()) {
      result = await(0);
      if (result == EvtRes_Timeout) {
        return EvtRes_Stalled;
      }
    }
    if (result == EvtRes_NoServer) {
      if (name_.empty() || (link_ != nullptr && !core_.reconnects())) {
        return fault();
      }
      result = begin();
    }
    renewed = result == EvtRes_Success;
    return result;
  }

  /// Why there is no connection.
  [[nodiscard]] EvtRes fault() const { return link_ != nullptr ? link_->fault() : fault_; }

  void end() {
    handshake_.reset();
    if (link_ != nullptr) {
      std::exchange(link_, nullptr)->close();
    }
    fault_ = EvtRes_Closed;
  }

  EvtRes begin() {
    end();
    handshake_.emplace(core_.system());
    const EvtRes result = handshake_->begin(name_);
    if (result != EvtRes_Success) {
      handshake_.reset();
      return fault_ = result;
    }
    return await(answerTimeoutMs);
  }

  EvtRes await(int milliseconds) {
    Deadline deadline(core_.system(), milliseconds);
    EvtRes result = handshake_->await(deadline);
    if (result == EvtRes_Timeout) {
      return result;
    }
    if (result == EvtRes_Success) {
      link_ = std::make_shared<ClientLink>(core_, sink_, handshake_->takePipes());
      result = link_->open();
    }
    handshake_.reset();
    return fault_ = result;
  }

  ManagerCore& core_;
  EventSink& sink_;
  std::string name_;
  std::optional<Handshake> handshake_;
  std::shared_ptr<ClientLink> link_;
  EvtRes fault_ = EvtRes_Closed;
};

PortClient::PortClient(ManagerCore& core, EventSink& sink)
    : impl_(std::make_unique<Impl>(core, sink)) {}

PortClient::~PortClient() = default;

EvtRes PortClient::connect(const std::string& name) {
  return impl_->connect(name);
}

EvtRes PortClient::resume(bool& renewed) {
  return impl_->resume(renewed);
}

EvtRes PortClient::exchange(std::uint16_t operation, std::span<const std::uint8_t> payload,
                            Reply& reply) {
  return impl_->exchange(operation, payload, reply);
}

bool PortClient::isOpen() const {
  return impl_->isOpen();
}

void PortClient::close() {
  impl_->close();
}

const std::string& PortClient::portName() const {
  return impl_->portName();
}

}  // namespace EvtSrv::internal
