#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/wire/format.h"
#include "modelsrv/model_part.h"

namespace modelgate {

/// What a request wants; the level V of its topic.
enum class Verb {
  get,    ///< the value of a part, or of one of its elements
  set,    ///< a store
  load,   ///< a store with the loader's flag, which protected parts require
  sync,   ///< all values that have changed since a sequence number
  watch,  ///< a lease: batches of a subtree for 60 s
};

[[nodiscard]] std::string_view verbName(Verb verb);
[[nodiscard]] std::optional<Verb> findVerb(std::string_view name);

/// A request (topic `req/V/U`), in CBOR or JSON: a map with the keys "server", "id" or "path",
/// "index", "value", "epoch", "since" and "until". Other keys, of later versions, are ignored.
struct Request {
  std::string server;  ///< S
  /// The part: its id chain, or its path ("/cpu/load"); neither for the whole tree.
  std::optional<std::vector<ModelSrv::ModelPartId>> chain = {};
  std::optional<std::string> path = {};  ///< begins with "/"
  ModelSrv::ModelPartIndex index = ModelSrv::ModelPartIndex_All;
  /// For a store: the value text. JSON allows a number or true and false, too.
  std::optional<std::string> value = {};
  std::optional<std::uint64_t> epoch = {};  ///< for a sync, or with `until`
  std::uint64_t since = 0;                  ///< for a sync; 0: everything
  /// The last moment at which the request may be carried out, in milliseconds of the monotonic
  /// clock of the exporter of `epoch`.
  std::optional<std::uint64_t> until = {};

  bool operator==(const Request&) const = default;
};

/// The reply (topic `rsp/U/C`) to a get, set, load or watch. That to a sync is one or several
/// replies, each with a `batch`. The keys are "result", "reason", "value", "epoch", "seq", "mono",
/// "time", "lease", "batch" and "more"; in JSON also "text", that of the result.
struct Reply {
  ModelSrv::ModelRes result = ModelSrv::ModelRes_Success;
  /// Without success: a line for a person, of at most `ModelSrv::ModelReason_Max` bytes. One that
  /// is too long or no line is not encoded.
  std::string reason;
  std::optional<std::string> value;  ///< get: the value; set and load: the value after the store
  std::uint64_t epoch = 0;
  std::uint64_t sequence = 0;   ///< of the value, or the last that there is
  std::uint64_t monotonic = 0;  ///< as in `Batch`, when the reply was made
  std::int64_t time = 0;        ///< as in `Batch`
  std::uint64_t lease = 0;      ///< watch: the length of the lease in milliseconds
  /// Sync: the encoded `Batch`; CBOR only (a JSON sync is `ModelRes_NotSupported`).
  std::optional<std::string> batch;
  bool more = false;  ///< sync: another reply with the same correlation follows

  bool operator==(const Reply&) const = default;
};

/// `type` is the message's content type ("application/cbor" or "application/json"); without one
/// the first byte decides. Empty, with the reason in `error`, if the payload is wrong.
[[nodiscard]] std::optional<Request> decodeRequest(std::string_view payload, std::string_view type,
                                                   std::string& error);
[[nodiscard]] std::string encodeRequest(const Request& request, Format format);
[[nodiscard]] std::optional<Reply> decodeReply(std::string_view payload, std::string_view type,
                                               std::string& error);
/// In JSON a value that is no UTF-8 has U+FFFD for each wrong byte.
[[nodiscard]] std::string encodeReply(const Reply& reply, Format format);

}  // namespace modelgate
