#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "modelsrv/model_part.h"

namespace ModelSrv {

namespace internal {
class ClientWatch;
}  // namespace internal

/// The longest value text that an event of a watch carries, in bytes.
inline constexpr std::size_t ModelWatchText_Max = 4096;

/// What a `Watch` reports, and how often.
struct WatchOptions {
  /// Whether all descendants of the part are watched too. The index must be `ModelPartIndex_All`
  /// then.
  bool subtree = false;
  /// The element to watch, or the whole value.
  ModelPartIndex index = ModelPartIndex_All;
  /// The minimum time between two changes that are reported of one part, in milliseconds. Changes
  /// in between are reported as one, with the last value, which is always delivered: of the element
  /// if it is the only one, else of the whole value. The time begins with a reported change, not
  /// with a current value. 0: none.
  std::uint32_t period = 0;
};

/// One event of a watch. Spans and views are valid during the callback only.
struct WatchEvent {
  enum class Kind {
    /// What was reported before is void, and is reported anew: at the beginning; on a new
    /// connection; after this client has missed so many changes of the structure that the server
    /// did not keep them.
    begin,
    /// A part is in the tree: `chain`, `name`, `isNode`. A node comes before its descendants. (It
    /// may be one that was reported before, when a node shows its children again, or a part
    /// accepts subscriptions again. What was reported of it and of its descendants is void then.)
    added,
    /// The value of a part: at first the current one, right after `added`, and then each change.
    value,
    /// The part at `chain` has left the tree, and its descendants with it. (Also if this client
    /// has not heard of the part.)
    removed,
    /// Every part that is watched has been reported once since `begin`.
    complete,
  };

  Kind kind = Kind::begin;
  std::span<const ModelPartId> chain;         ///< the part's ids, from the root down
  std::string_view name;                      ///< if `added`
  bool isNode = false;                        ///< if `added`
  ModelPartIndex index = ModelPartIndex_All;  ///< if `value`: the element, or the whole value
  /// If `value`: `ModelRes_Success`; `ModelRes_TooLarge` if the text has more than
  /// `ModelWatchText_Max` bytes (`Watch::fetch` reads it); `ModelRes_NoValue` if the part has no
  /// value any more; or why the server cannot read it, such as `ModelRes_Unreachable`.
  ModelRes result = ModelRes_Success;
  std::string_view text;  ///< if `value` with success
  /// If `value`: when the last of the reported changes was made, or for a current value when it was
  /// read. Nanoseconds of the server's real time since 1970-01-01 UTC.
  std::int64_t timeNs = 0;
  /// If `value`: the number of changes that this event stands for, at most 4,294,967,295; 0 for
  /// the current value. A client that is slower than the changes gets the last value only.
  std::uint32_t changes = 0;
};

/// Values that come by themselves: those of a part, or of a part and all its descendants. First
/// the current ones are reported, then each change with its value, and no change in between is
/// lost.
///
/// A watch is of an id chain, as a subscription is. It outlasts reconnections (`begin` follows),
/// and the part: if that leaves the server's tree, `removed` is reported, and `added` when a part
/// with the same id chain and names is there again. In a subtree, parts that do not accept
/// subscriptions are reported without their values, and the children that a node hides are not
/// reported, nor is it reported when a node begins to hide them. When it shows them, the node is
/// reported with them as if all were added then; so is a part with its value that accepts
/// subscriptions again.
///
/// Threads: each operation locks the client mutex of the root's manager, which must outlive the
/// watch. One object is used by one thread at a time, which the program ensures: a thread that may
/// meet another one, or the callback, holds that mutex itself. The callback runs on the thread that
/// dispatches, with that mutex held. It may make requests, and may stop, start or destroy any
/// watch, this one included. What it throws passes through `receiveEvent`. The events of a watch do
/// not go through the root's event hook.
class KRV_EXPORT Watch {
 public:
  using Callback = std::function<void(const WatchEvent& event)>;

  Watch();
  /// Ends the watch. Ignores the result.
  ~Watch();
  /// The watch that is moved from is not active then.
  Watch(Watch&& other) noexcept;
  Watch& operator=(Watch&& other) noexcept;

  /// Watches the part at `chain` of the tree that `root`, a client's, is connected to. A watch
  /// that is active ends first. `callback` gets the events, from the next dispatch on; it is never
  /// called inside this function.
  ///
  /// Results: `ModelRes_NoSuchPart`; `ModelRes_NotSubscribable` for a part that does not accept
  /// subscriptions; `ModelRes_NoSuchIndex`; `ModelRes_LimitReached` if the server accepts no more
  /// subscriptions of this client, or 1000 watches of it; `ModelRes_NotSupported` if the server is
  /// too old to know watches; `ModelRes_BadArgument` for an empty callback, or an index with a
  /// subtree; or an error of the connection. The watch is not active then.
  ModelRes start(ModelRoot& root, std::span<const ModelPartId> chain, const WatchOptions& options,
                 Callback callback);

  /// The same for the part that `part` represents, as in a request (`ModelPart::save`).
  ModelRes start(ModelPart& part, const WatchOptions& options, Callback callback);

  /// Ends the watch: the callback is not called again. Returns the server's result; the watch has
  /// ended whatever it is. `ModelRes_NotSubscribed` if it is not active.
  ModelRes stop();

  /// Whether the watch was started and has not ended. The end of the connection does not end it;
  /// `startAsClient`, `stop` and the end of the root do. A server that refuses it on a new
  /// connection does not end it either: no event comes before the next connection then.
  [[nodiscard]] bool isActive() const;

  /// Requests the whole text of the value that `event` is about, which may have changed since: for
  /// an event with `ModelRes_TooLarge`. Replaces `text` on success. Within the callback, or with
  /// an event that was copied together with its chain.
  ModelRes fetch(const WatchEvent& event, std::string& text);

 private:
  std::shared_ptr<internal::ClientWatch> watch_;
};

}  // namespace ModelSrv
