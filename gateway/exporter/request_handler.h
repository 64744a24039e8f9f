#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/exporter/export_context.h"
#include "gateway/exporter/reply_memory.h"
#include "gateway/exporter/server_export.h"
#include "gateway/link/broker_link.h"
#include "gateway/wire/request.h"

namespace modelgate {

/// Carries out the requests that arrive at the topics `req/V/U`, and replies to them. What is no
/// request, or has no proper response topic, is dropped. For the loop's thread.
class RequestHandler {
 public:
  using FindServer = std::function<ServerExport*(std::string_view name)>;

  /// `find` gives the server S, or null if it is not exported.
  RequestHandler(ExportContext& context, FindServer find)
      : context_(context), find_(std::move(find)) {}
  RequestHandler(const RequestHandler&) = delete;
  RequestHandler& operator=(const RequestHandler&) = delete;

  /// `rest` is what follows "req/" in the topic.
  void handle(std::string_view rest, const Message& message);

 private:
  /// Where the reply goes.
  struct Requester {
    Format format = Format::cbor;
    Verb verb = Verb::get;
    std::string responseTopic;
    std::string correlation;
    /// How long a store may wait from its arrival on, if it states no time itself; none: it may
    /// have waited for any time before.
    std::optional<std::chrono::seconds> patience;
  };

  [[nodiscard]] bool isOwnResponseTopic(std::string_view topic, std::string_view user) const;
  [[nodiscard]] bool begin(const Requester& requester);
  void carryOut(const Requester& requester, const Request& request);
  void carryOut(const Requester& requester, const Request& request, ServerExport& server,
                Position position);
  void lease(const Requester& requester, ServerExport& server, Position position);
  void sync(const Requester& requester, const Request& request, ServerExport& server,
            Position position);
  void pass(const Requester& requester, const Request& request, ServerExport& server,
            Position position);
  /// Empty if the store is allowed; else why it is not.
  [[nodiscard]] std::optional<Reply> checkStore(const Requester& requester, const Request& request,
                                                const ServerExport& server,
                                                Position position) const;
  [[nodiscard]] static std::chrono::steady_clock::time_point lastMoment(const Requester& requester,
                                                                        const Request& request);

  void reply(const Requester& requester, ModelSrv::ModelRes result, std::string reason = {});
  void reply(const Requester& requester, Reply reply);

  /// Counts a value as long as it waits for its server's thread; null for a small one, of which the
  /// number that waits is limited. Empty if there are too many bytes.
  [[nodiscard]] std::optional<std::shared_ptr<const void>> reserve(std::size_t size) const;

  ExportContext& context_;
  FindServer find_;
  /// The bytes of large values that wait. Shared with them: they may end on another thread.
  std::shared_ptr<std::atomic<std::size_t>> waitingBytes_ =
      std::make_shared<std::atomic<std::size_t>>(0);
  ReplyMemory memory_;
};

}  // namespace modelgate
