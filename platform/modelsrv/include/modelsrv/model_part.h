#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kstd/export.h"
#include "modelsrv/part_name.h"
#include "modelsrv/result.h"

namespace EvtSrv {
class EventPortManager;
}

namespace ModelSrv {

class ModelNode;
class ModelRoot;
struct PartAttributes;
struct PartDescription;

/// The id of a child, unique among its siblings: 0 to 65,533.
using ModelPartId = unsigned short;
/// No id: the part represents the part that its `getId` and `getParentNode` return.
inline constexpr ModelPartId ModelPartId_Void = 0xFFFF;
/// The largest id of a child.
inline constexpr ModelPartId ModelPartId_Max = 0xFFFD;

/// Which clients may access the value of a part.
using ModelPartStatus = unsigned short;
inline constexpr ModelPartStatus ModelPartStatus_Void = 0;       ///< has no value
inline constexpr ModelPartStatus ModelPartStatus_ReadWrite = 1;  ///< any client may store
inline constexpr ModelPartStatus ModelPartStatus_ReadOnly = 2;   ///< no client may store
inline constexpr ModelPartStatus ModelPartStatus_Protected = 3;  ///< only with the loader's flag

/// The index of an element: 0 to 65,533.
using ModelPartIndex = unsigned short;
/// The whole value.
inline constexpr ModelPartIndex ModelPartIndex_All = 0xFFFE;
/// No index: ends the id chain in an update.
inline constexpr ModelPartIndex ModelPartIndex_Void = 0xFFFF;
/// The maximum number of elements of an array.
inline constexpr unsigned ModelPartElements_Max = 65534;

/// The maximum size of a value's text in bytes (16 MiB).
inline constexpr std::size_t ModelValueText_Max = std::size_t{16} * 1024 * 1024;
/// The maximum size of the name of a part or an element in bytes.
inline constexpr std::size_t ModelName_Max = 65535;
/// The maximum number of levels below the root.
inline constexpr std::size_t ModelDepth_Max = 4096;

namespace internal {
struct PartAccess;
struct PartExtras;
class TreeLock;
}  // namespace internal

/// One part of a model tree.
///
/// In a server it is a part of the published tree, usually a typed one (modelsrv/value_parts.h).
/// In a client it represents a part of the connected server's tree. To find out which one, the
/// library calls the virtual `getId` and `getParentNode` from the part upwards until it reaches
/// the root, each exactly once per level and per request. So one object may represent any part.
///
/// Parts are neither copied nor moved. A part removes itself from its parent when it is
/// destroyed. A derived class with a value of its own must call `detach` first in its
/// destructor, before its value is destroyed.
///
/// Threads: a part in the tree of a root is guarded by the client mutex of that root's manager.
/// The public operations lock it themselves, so any thread may call them. A part that is not in
/// the tree of a root has no lock; only one thread may use it until it has been added.
class KRV_EXPORT ModelPart {
 public:
  /// `id` must be at most `ModelPartId_Max` for a part that is published. `name` may be empty
  /// and need not be unique. It is truncated to `ModelName_Max` bytes.
  explicit ModelPart(ModelPartId id = ModelPartId_Void, std::string_view name = {},
                     ModelPartStatus status = ModelPartStatus_Void);
  virtual ~ModelPart();
  ModelPart(const ModelPart&) = delete;
  ModelPart& operator=(const ModelPart&) = delete;

  /// The id at this level when the library resolves an id chain.
  virtual ModelPartId getId();

  /// The next part towards the root when the library resolves an id chain; null if none.
  virtual ModelPart* getParentNode();

  /// Called in a client when it has received an update of a part that this object subscribed
  /// to. `context` is the pointer given with the subscription; `index` is the element that
  /// changed, or `ModelPartIndex_All`. The library ignores the result.
  virtual ModelRes update(void* context, unsigned short index);

  /// Stores the value that the rest of `text` has: an element if `index` is one, or with
  /// `ModelPartIndex_All` the whole value (for an array the texts of all elements, separated
  /// by line feeds). `flag` is the loader's flag, which a protected part requires.
  ///
  /// In a server, and for a part outside of any root's tree, this is the program's own store:
  /// neither access nor store check applies. On any result but `ModelRes_Success` nothing has
  /// changed.
  ///
  /// In a client this is a request to the server, which applies it at most once: it is never
  /// sent twice. If the connection is found lost before anything of the request was written,
  /// and the manager reconnects, it is sent on the new connection. On any result but
  /// `ModelRes_Success` nothing has changed, except:
  /// - `ModelRes_OutcomeUnknown`: the connection ended before the reply came. The server may
  ///   have applied the store: read the value to find out.
  /// - `ModelRes_Timeout`: the server has not replied in time. It may have applied the store,
  ///   or may still apply it, at any later time while the connection exists.
  /// - `ModelRes_Protocol`: it is unknown what the reply means.
  virtual ModelRes load(std::istringstream& text, bool flag, unsigned short index);

  /// As `load` with the whole of `text`. Without success `reason` says why, for a person: what
  /// the server states about this store, or else the text of the result. One line of UTF-8 of at
  /// most `ModelReason_Max` bytes; unchanged on success, and empty if there is no memory for it.
  ModelRes store(std::string_view text, bool flag, unsigned short index, std::string& reason);

  /// Stores `text` as a client's request would: access, attributes and store check apply. In a
  /// server, and for a part outside of any root's tree; `ModelRes_BadArgument` in a client. Results
  /// and `reason` as for `store`.
  ModelRes storeAsClient(std::string_view text, bool flag, unsigned short index,
                         std::string& reason);

  /// Appends the text of the whole value or of one element to `text`. On any result but
  /// `ModelRes_Success` nothing has been appended, except if memory ran out in the middle;
  /// then `text` is in the bad state. In a client this is a request to the server, or it is
  /// served from the cache.
  virtual ModelRes save(std::ostringstream& text, unsigned short index);

  /// Sets what the part is (modelsrv/part_description.h). In a client this is a request to the
  /// server, which nothing caches. A server that does not know the request still gives the
  /// elements. On any result but `ModelRes_Success` the output is unchanged;
  /// `ModelRes_TooLarge` if the description does not fit into a reply.
  ModelRes describe(PartDescription& description);

  /// States attributes of a part of a server, in place of earlier ones; clients get them from
  /// `describe`. Limits and choices also apply to what clients store in a part with a value of
  /// one of `ValueTypes`: a value outside of the limits is refused with `ModelRes_OutOfRange`,
  /// one that is not a choice with `ModelRes_Vetoed`, before the store check runs. The present
  /// value and what the server itself sets are not checked.
  ///
  /// `ModelRes_BadArgument` for a text that is too long or not one line of UTF-8, for limits of
  /// a part that has no number or that are in the wrong order, for limits or choices that are no
  /// value of the part's type or not a number, and for those of a node. Nothing has changed then.
  ModelRes setAttributes(PartAttributes attributes);

  /// What was last set.
  [[nodiscard]] PartAttributes attributes() const;

  /// Subscribes to updates of this part at the server of `root`: to those of element `index`,
  /// or to all with `ModelPartIndex_All`. The part must be in the tree of `root`. `period` is
  /// the minimum time between two updates in milliseconds and must be 0: each change is sent
  /// as soon as the client can receive it. `context` is passed to `update`.
  ///
  /// If an object subscribes twice it must cancel twice, but it receives each update once. A
  /// subscription ends when this object is removed from the tree of `root`. It outlasts the part
  /// in the server: if the part is taken out of the server's tree it receives nothing, and when
  /// a part with the same id chain and names is there again, an update and then each change. It
  /// is renewed when the connection is, also if the new server does not have the part yet; if
  /// the server refuses that, it receives nothing until the server of a later connection accepts
  /// it.
  ///
  /// `ModelRes_BadArgument` for another period or a part of another tree; `ModelRes_NotConnected`
  /// for a root that is no client; `ModelRes_NoSuchPart`, `ModelRes_NoSuchIndex`,
  /// `ModelRes_NotSubscribable`, `ModelRes_LimitReached` or an error of the connection. There is no
  /// new subscription then.
  ModelRes subscribeToServer(ModelRoot* root, unsigned period, void* context, unsigned short index);

  /// Cancels the most recent subscription of this part, whatever its index.
  /// `ModelRes_NotSubscribed` if this object has no subscription for the part. If the server
  /// refuses (which result it is says why) or does not reply, the subscription stays. If the
  /// connection to the server is lost the subscription ends all the same.
  ModelRes unsubscribeToServer(ModelRoot* root);

  /// The name given at construction. Valid as long as the part.
  [[nodiscard]] std::string_view name() const { return name_.view(); }

  /// The id given at construction.
  [[nodiscard]] ModelPartId id() const { return id_; }

  [[nodiscard]] ModelPartStatus status() const { return status_; }

  /// Whether clients may subscribe to this part; true unless the server sets it to false.
  /// Existing subscriptions are not affected, nor are watches of the part itself. A watch of a
  /// subtree reports the values of parts while they accept subscriptions, beginning with the
  /// current one.
  [[nodiscard]] bool subscribable() const;
  void setSubscribable(bool subscribable);

  /// Whether a client has subscribed to this part, or watches it or a subtree that has it.
  [[nodiscard]] bool isWatched() const;

  /// Calls `handler(true)` just before the first client subscribes to this part or watches it,
  /// alone or in a subtree (then before the client gets its first value), and `handler(false)`
  /// after the last one has gone, so that the server can save the work of observing a value that no
  /// client waits for. Called with the client mutex held; it must neither throw nor add, remove or
  /// destroy parts. An empty function ends that.
  void setWatchHandler(std::function<void(bool watched)> handler);

  /// The node that the part was added to, or null.
  [[nodiscard]] ModelNode* parent() const;

  /// The root of the tree that contains the part, or null.
  [[nodiscard]] ModelRoot* findRoot() const;

 protected:
  friend class ModelNode;
  friend class ModelRoot;
  friend struct internal::PartAccess;
  friend class internal::TreeLock;

  /// The number of elements of an array; 0 for a single value or a part without a value.
  [[nodiscard]] virtual unsigned elementCount() const { return 0; }

  /// The names of the elements: none, or one for each element.
  [[nodiscard]] virtual const std::vector<std::string>& elementNames() const;

  /// Appends the text of the whole value or of one element to `out`. Called with the client
  /// mutex held, also while a reply about several parts is being written: must not add or
  /// remove parts.
  virtual ModelRes appendText(std::string& out, ModelPartIndex index) const;

  /// Stores a value for a client (`fromClient`), or for the server itself. Called with the
  /// client mutex held.
  virtual ModelRes storeText(std::string_view text, bool flag, ModelPartIndex index,
                             bool fromClient);

  /// As `storeText` for a client. If it refuses the store it may set `reason` to a line for a
  /// person. The default calls `storeText`.
  virtual ModelRes storeFromClient(std::string_view text, bool flag, ModelPartIndex index,
                                   std::string& reason);

  /// The name of the type of value, as in a description; empty by default.
  [[nodiscard]] virtual std::string_view typeName() const { return {}; }

  /// Whether limits and choices fit the part: `ModelRes_BadArgument` if not. Called with the
  /// client mutex held. The default accepts all of them unless the part is a node; a class that
  /// does so checks its stores itself.
  [[nodiscard]] virtual ModelRes checkLimits(const PartAttributes& attributes) const;

  /// Whether clients may cache what the part returns from `asNode`, `elementCount`,
  /// `elementNames` and `appendText`. A class that returns true must call `invalidate` before
  /// each change of any of these results, or `invalidateValue` if only the result of
  /// `appendText` changes. (`add` and `remove` do so for the children of a node.)
  [[nodiscard]] virtual bool isCacheable() const { return false; }

  /// Invalidates everything that clients have cached of this part, its value included. Call
  /// it with the client mutex held, before anything changes. It costs almost nothing if no
  /// client has cached the part since the last call.
  void invalidate();
  /// The same if only the result of `appendText` changes, its text or its error. What clients
  /// have cached of the children and elements (their number and names) stays valid.
  void invalidateValue();

  /// The part as a node, or null if it has no children. A node that hides its children
  /// sometimes must call `invalidate` before it hides or shows them, whatever `isCacheable`
  /// returns: clients may have cached its descendants.
  [[nodiscard]] virtual ModelNode* asNode() { return nullptr; }
  [[nodiscard]] virtual ModelRoot* asRoot() { return nullptr; }

  /// Queues an update for each client that subscribed to `index` of this part. Call it with
  /// the client mutex held, after the value has changed.
  void notifySubscribers(ModelPartIndex index);

  /// Removes the part from its parent, if it has one. The first step of a destructor, so that
  /// no other thread sees a part that is partly destroyed.
  void detach();

 private:
  /// `load` and `store`; `reason` may be null.
  ModelRes storeAnywhere(std::string_view text, bool flag, ModelPartIndex index,
                         std::string* reason);
  /// Sets `reason` to `stated` or, if that is empty, to the text of `result`, which is no success.
  static void setReason(ModelRes result, std::string stated, std::string& reason);

  // A tree may have very many parts: each byte counts. A derived class uses what is left of the
  // last 8.

  /// The manager whose client mutex guards the part; null outside of any root's tree. It
  /// changes with that mutex held only, and is read without it by `TreeLock`.
  std::atomic<EvtSrv::EventPortManager*> treeManager_{nullptr};

  // Guarded by the client mutex.
  ModelNode* parent_ = nullptr;
  std::unique_ptr<internal::PartExtras> extras_;  ///< null if the part has none

  // Constant after construction.
  const internal::PartName name_;
  const ModelPartId id_;
  const ModelPartStatus status_;

  // Guarded by the client mutex.
  /// The stamp of the last prefetch reply that had this part. 0 if there was none since
  /// `invalidate`.
  std::uint32_t cacheStamp_ = 0;
  bool subscribable_ : 1 = true;
  /// Whether subscriptions to this object sleep or have slept. An object that has taken the place
  /// of a destroyed one in memory is distinguished by that.
  bool hasSleeping_ : 1 = false;
  /// What the watch handler was called with last.
  bool watchReported_ : 1 = false;
  /// Whether a client may have cached the present value.
  bool valueCached_ : 1 = false;

  /// Whether this is a `ModelNode`, whatever `asNode` returns. Constant after construction.
  bool isNode_ = false;
};

}  // namespace ModelSrv
