#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kstd/export.h"
#include "modelsrv/result.h"

namespace EvtSrv {
class EventPortManager;
}

namespace ModelSrv {

class ModelNode;
class ModelRoot;

/// A child's id among its siblings: 0 to 65,533.
using ModelPartId = unsigned short;
/// No id: a part that stands for whatever its `getId` answers.
inline constexpr ModelPartId ModelPartId_Void = 0xFFFF;
/// The largest id of a child.
inline constexpr ModelPartId ModelPartId_Max = 0xFFFD;

/// Whom a part's value is open to.
using ModelPartStatus = unsigned short;
inline constexpr ModelPartStatus ModelPartStatus_Void = 0;       ///< no value of its own
inline constexpr ModelPartStatus ModelPartStatus_ReadWrite = 1;  ///< any client may store
inline constexpr ModelPartStatus ModelPartStatus_ReadOnly = 2;   ///< no client may store
inline constexpr ModelPartStatus ModelPartStatus_Protected = 3;  ///< only with the loader's flag

/// An element's index: 0 to 65,533.
using ModelPartIndex = unsigned short;
/// The whole value.
inline constexpr ModelPartIndex ModelPartIndex_All = 0xFFFE;
/// No index: ends the id chain of an update.
inline constexpr ModelPartIndex ModelPartIndex_Void = 0xFFFF;
/// How many elements an array has at most.
inline constexpr unsigned ModelPartElements_Max = 65534;

/// How many bytes of text a value has at most (16 MiB).
inline constexpr std::size_t ModelValueText_Max = std::size_t{16} * 1024 * 1024;
/// How many bytes the name of a part or of an element has at most.
inline constexpr std::size_t ModelName_Max = 65535;
/// How many levels below the root a part lies at most.
inline constexpr std::size_t ModelDepth_Max = 4096;

namespace internal {
struct PartAccess;
class PartSubscribers;
class TreeLock;
}  // namespace internal

/// One part of a model tree.
///
/// In a server it is a part of the published tree, usually a typed one
/// (modelsrv/value_parts.h). In a client it stands for a part of the connected
/// server's tree: the library finds out which through the virtual `getId` and
/// `getParentNode`, climbing until it meets the root and calling each exactly
/// once per level and per request, so that an object may answer for any part.
///
/// Parts are neither copied nor moved. A part is taken out of its parent when it
/// is destroyed. Threads: a part that hangs below a root is read and changed with
/// the client mutex of the root's manager held; the operations here take it
/// themselves, so any thread may call them. A part that hangs below no root has
/// nothing to guard it: until it has been added it is one thread's. A class of a program's own that
/// answers for a value of its own takes itself out of its parent (`detach`)
/// before it takes its value down.
class KRV_EXPORT ModelPart {
 public:
  /// `id` must not be above `ModelPartId_Max` for a part that is published.
  /// `name` may be empty, and may repeat among siblings; what is above
  /// `ModelName_Max` is cut.
  explicit ModelPart(ModelPartId id = ModelPartId_Void, std::string name = {},
                     ModelPartStatus status = ModelPartStatus_Void);
  virtual ~ModelPart();
  ModelPart(const ModelPart&) = delete;
  ModelPart& operator=(const ModelPart&) = delete;

  /// This level's id when an id chain is resolved.
  virtual ModelPartId getId();

  /// The next part on the way to the root when an id chain is resolved; null if there is none.
  virtual ModelPart* getParentNode();

  /// Called in a client when an update of a part that this object subscribed has
  /// been received; `context` is what was given with the subscription, `index`
  /// the element or `ModelPartIndex_All`.
  virtual ModelRes update(void* context, unsigned short index);

  /// Stores a value from all that is left in `text`: an element's where `index`
  /// names one, with `ModelPartIndex_All` the whole value (an array's elements'
  /// texts joined by line feeds). `flag` is the loader's flag, which a protected
  /// part wants. Below a client's root this is one request to the server;
  /// elsewhere it is the program's own store, which asks neither access nor check.
  /// On any result but `ModelRes_Success` nothing has changed.
  virtual ModelRes load(std::istringstream& text, bool flag, unsigned short index);

  /// Appends the value's text to `text`, an element's or the whole value's; on
  /// any result but `ModelRes_Success` nothing has been appended, unless there was
  /// no memory for it: `text` is bad then. Below a client's root this is one request
  /// to the server.
  virtual ModelRes save(std::ostringstream& text, unsigned short index);

  /// Asks the server of `root` for updates of this part: of element `index`, or
  /// of all. `period` is the shortest time between two updates in milliseconds;
  /// 0, the only period that this library serves, sends each change when the
  /// client can take it. `context` comes back with `update`. Subscribing twice
  /// wants two cancellations; updates come once. A subscription ends when this
  /// object is taken out of the tree of `root`, in which it must hang; it is
  /// renewed when the connection is.
  ModelRes subscribeToServer(ModelRoot* root, unsigned period, void* context, unsigned short index);

  /// Takes one subscription of this part, the last one with whatever index, back.
  /// `ModelRes_NotSubscribed` where this object holds none of the part. Where the
  /// server has gone there is nobody to tell, and the subscription ends all the
  /// same.
  ModelRes unsubscribeToServer(ModelRoot* root);

  /// The name given at construction.
  [[nodiscard]] const std::string& name() const { return name_; }

  /// The id given at construction.
  [[nodiscard]] ModelPartId id() const { return id_; }

  [[nodiscard]] ModelPartStatus status() const { return status_; }

  /// Whether clients may subscribe; they may unless the server says otherwise.
  /// What has been subscribed stays so.
  [[nodiscard]] bool subscribable() const;
  void setSubscribable(bool subscribable);

  /// The node that the part was added to, null where there is none.
  [[nodiscard]] ModelNode* parent() const;

  /// The root at the top of the tree that the part hangs in, null where its tree
  /// has none.
  [[nodiscard]] ModelRoot* findRoot() const;

 protected:
  friend class ModelNode;
  friend class ModelRoot;
  friend struct internal::PartAccess;
  friend class internal::TreeLock;

  /// How many elements the part is an array of; 0 for a single value and for
  /// what has no value.
  [[nodiscard]] virtual unsigned elementCount() const { return 0; }

  /// The elements' names, empty where they have none; otherwise as many as
  /// elements.
  [[nodiscard]] virtual const std::vector<std::string>& elementNames() const;

  /// Appends the text of the value or of one element to `out`. Called with the
  /// client mutex held, also while several parts are being told of: must not add or
  /// remove parts.
  virtual ModelRes appendText(std::string& out, ModelPartIndex index) const;

  /// A client's store (`fromClient`) or the server's own from text. Called with
  /// the client mutex held.
  virtual ModelRes storeText(std::string_view text, bool flag, ModelPartIndex index,
                             bool fromClient);

  /// Whether everything that `asNode`, `elementCount`, `elementNames` and `appendText`
  /// answer stays the same until the part itself has called `invalidate`, or
  /// `invalidateValue` where `appendText` alone answers otherwise then (what
  /// children a node has is looked after by `add` and `remove`). Clients may
  /// then be told more than they asked for and keep it meanwhile. A class that
  /// answers for a value of its own and says yes must make one of those calls before
  /// each such change.
  [[nodiscard]] virtual bool isCacheable() const { return false; }

  /// Nothing that clients were told of this part, its value included, is true any
  /// more after the change that follows. Called with the client mutex held, before
  /// anything changes; costs next to nothing where nobody was told since the last call.
  void invalidate();
  /// The same where only what `appendText` answers changes, its text or its result:
  /// what clients were told of children and elements, their number and names, stays
  /// true.
  void invalidateValue();

  /// The part itself where it has children, null where it cannot have any. A node that
  /// hides its children at one time and shows them at another calls `invalidate`
  /// before, whatever `isCacheable` says: clients may have been told of what is below.
  [[nodiscard]] virtual ModelNode* asNode() { return nullptr; }
  [[nodiscard]] virtual ModelRoot* asRoot() { return nullptr; }

  /// Queues an update for everyone who subscribed to `index` of this part.
  /// Called with the client mutex held, after the value has changed.
  void notifySubscribers(ModelPartIndex index);

  /// Takes the part out of its parent, if it has one: the first step of a
  /// destructor, so that no other thread meets a part that is half gone.
  void detach();

 private:
  std::string name_;
  ModelNode* parent_ = nullptr;
  /// Whose client mutex guards the part: set while it hangs below a root.
  std::atomic<EvtSrv::EventPortManager*> treeManager_{nullptr};
  std::unique_ptr<internal::PartSubscribers> subscribers_;
  ModelPartId id_;
  ModelPartStatus status_;
  bool subscribable_ = true;
  /// Whether it is a `ModelNode`, whatever it says of its children.
  bool isNode_ = false;
  /// Whether clients were told of the part since its value changed.
  bool valueCached_ = false;
  /// When they were told of it last; 0: not since more than its value changed.
  std::uint32_t cacheStamp_ = 0;
};

}  // namespace ModelSrv
