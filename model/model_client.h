#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kstd/thread_mutex.h"
#include "model/child_list.h"
#include "model/child_list_cache.h"
#include "model/derived_model_part.h"
#include "model/id_chain.h"
#include "modelsrv/model_root.h"
#include "term/listing_node.h"
#include "term/standard_output.h"

namespace treescope {

/// A client's root whose event hook ignores every event. A derived class overrides
/// the hook to handle events.
class DerivedModelRoot : public ModelSrv::ModelRoot {
 public:
  using ModelSrv::ModelRoot::ModelRoot;
  ~DerivedModelRoot() override;

  /// Ignores the event and returns `EvtRes_Success`. The library calls the hook from
  /// the thread that dispatches events, with the client mutex held.
  unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                             EvtSrv::MemoryHolder* reply) override;
};

/// The client of a model server: the connection to one server at a time, and every
/// request about the server's tree.
///
/// A request is one exchange with the client mutex held. `lock` says who holds it:
/// with true the operation takes the mutex, as commands need it; with false the
/// caller holds it already, as inside the library's event processing. Operations
/// without `lock` take it. While not connected every request fails.
///
/// Threads: one thread, the command thread, connects, disconnects, subscribes and
/// makes the requests that take the mutex. Requests that do not take it are for
/// whichever thread holds it. Errors are reported by result codes
/// (`shell/results.h`) or by an unchanged output. Nothing throws except
/// std::bad_alloc.
class ModelClient : public DerivedModelRoot {
 public:
  /// `manager` is not owned and outlives the client.
  explicit ModelClient(EvtSrv::EventPortManager* manager);
  ~ModelClient() override;

  // The connection.

  /// Connects to the server `name`, with the current location at the server's root.
  /// Returns false and changes nothing if the library cannot connect. Called while
  /// not connected.
  [[nodiscard]] bool openServer(const std::string& name);

  /// While it exists, the user leaves the server: no request begins once all have taken 0.5 s,
  /// and none for the display of an update. So a server that does not reply in time delays the
  /// user by one request, however many subscriptions there are; what is left of them ends with
  /// the connection. For the thread that runs the commands.
  class Leaving {
   public:
    explicit Leaving(ModelClient& client) : client_(client) {
      client_.leaveEnd_ = nowMs() + milliseconds;
    }
    ~Leaving() { client_.leaveEnd_ = 0; }
    Leaving(const Leaving&) = delete;
    Leaving& operator=(const Leaving&) = delete;

   private:
    static constexpr std::int64_t milliseconds = 500;

    ModelClient& client_;
  };

  /// Whether a `Leaving` exists. Any thread.
  [[nodiscard]] bool isLeaving() const { return leaveEnd_ != 0; }

  /// Deletes the mirror part and with it the location and the list of
  /// subscriptions. The library keeps its connection until the next `openServer` or
  /// until the root is stopped; but a connection that is left and whose server did not
  /// reply in time ends.
  void closeServer();

  /// The mirror part; null while not connected.
  [[nodiscard]] DerivedModelPart* currentPart() const { return currentPart_.get(); }
  [[nodiscard]] bool connected() const { return currentPart_ != nullptr; }

  // Paths and children.

  /// Resolves the path `text`, from the server's root if it begins with "/", else
  /// from the current location. Returns whether every component was found;
  /// `reached` is the last part that was. Empty components are skipped; ".." at the
  /// root is not found.
  [[nodiscard]] bool resolveChain(const std::string& text, NamedChain& reached);

  /// The name of each part along `chain`. A part that has no name, or that the
  /// server does not list, is named "noname-" and its id.
  [[nodiscard]] std::vector<std::string> namePathOf(const IdChain& chain, bool lock);

  /// `namePathOf` for the part of an update, without a request if the mirror part
  /// has cached the names. Called while connected, with the client mutex held.
  [[nodiscard]] std::vector<std::string> cachedNamePathOf(const IdChain& chain);

  /// Whether the server lists at least one child: `chain` is a node.
  [[nodiscard]] bool hasChildren(const IdChain& chain, bool lock);

  /// The children of `chain`; none for a part. Returns false and leaves `children`
  /// unchanged if a request failed.
  [[nodiscard]] bool fetchChildren(const IdChain& chain, ChildList& children, bool lock);

  // The two halves of `fetchChildren`, one exchange each. The output is unchanged
  // if the request failed.
  [[nodiscard]] bool fetchChildIds(const IdChain& chain, std::vector<std::uint16_t>& ids,
                                   bool lock);
  [[nodiscard]] bool fetchChildNames(const IdChain& chain, std::vector<std::string>& names,
                                     bool lock);

  /// Caches the children that `fetchChildren` returns with `lock`, for as long as
  /// the result exists. For commands that resolve many paths, on the command thread.
  [[nodiscard]] ChildListCache::Use useChildListCache() {
    return ChildListCache::Use(childListCache_);
  }

  /// While it exists, requests that begin more than 2 s after its construction fail. For the
  /// display of an update, for which commands wait: a server that takes long for each reply
  /// must not make it endless. Constructed and destroyed with the client mutex held.
  class TimeLimit {
   public:
    explicit TimeLimit(ModelClient& client) : client_(client) {
      client_.requestsEnd_ = nowMs() + milliseconds;
    }
    ~TimeLimit() { client_.requestsEnd_ = 0; }
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

   private:
    static constexpr std::int64_t milliseconds = 2000;

    ModelClient& client_;
  };

  // Elements and values.

  /// The number of elements of an array part; 0 for other parts and if the request
  /// failed.
  [[nodiscard]] std::uint16_t elementSum(const IdChain& chain, bool lock);

  /// 1 and the names of the part's elements, 3 if they have none, 7 if the request
  /// failed.
  [[nodiscard]] int fetchElementNames(const IdChain& chain, std::vector<std::string>& names,
                                      bool lock);

  /// 1 and the index of the first element with exactly that name, 3 if there is
  /// none, 7 if the request failed.
  [[nodiscard]] int findElementIndex(const IdChain& chain, const std::string& name,
                                     std::uint16_t& index, bool lock);

  /// The text of the whole value; `text` is unchanged if the request failed.
  void readValueText(const IdChain& chain, std::string& text, bool lock);

  /// The text of one element; `text` is unchanged if the request failed.
  void readElementText(const IdChain& chain, std::string& text, std::uint16_t index, bool lock);

  /// The text of the element that `element` chooses if the part is an array, else of
  /// the whole value.
  void readValue(const IdChain& chain, const ElementIndexText& element, std::string& text,
                 bool lock);

  /// Stores `text`, with the loader's `flag`: into the named element if the part is
  /// an array and a name is given, else as the whole value. 3 and no store if no
  /// element has that name; else 1, whether or not the server accepted the value.
  [[nodiscard]] int writeValue(const IdChain& chain, const ElementName& element,
                               const std::string& text, bool flag);

  /// The same for an element chosen by index. An array requires an index: 4 and no
  /// store without one. The index is ignored if the part is no array, and its range
  /// is left to the server.
  [[nodiscard]] int writeValue(const IdChain& chain, const ElementIndexText& element,
                               const std::string& text, bool flag);

  // Subscriptions.

  /// Subscribes the part and adds it to the list: 1, or 2 if the server refuses; 8 if the
  /// subscriptions take too much memory already.
  [[nodiscard]] int subscribePath(const IdChain& chain);

  /// Cancels one subscription of the part and removes its first entry from the list.
  /// Returns false and changes nothing if the cancellation fails.
  [[nodiscard]] bool unsubscribePath(const IdChain& chain);

  // Listings.

  /// An option bit besides those of the commands: the top part's own value is not
  /// read. For a display that shows only what is below the top.
  static constexpr unsigned optionBelowOnly = 16;

  /// Fills `node`, a new one, with the listing of `chain`: a part with its elements,
  /// or a node with its children. `options` are the command option bits: recursive,
  /// long (with values) and count (with kind marks). `name` is the label; if empty it
  /// is made from the last id, or is "root". `depth` is the number of levels listed
  /// below the node without the recursive bit. `top` is false for a node that is
  /// itself a child in the listing: without the recursive bit it is only marked as
  /// having content. A failed request leaves its part of the listing out. Returns false if the
  /// listing would take too much memory (`MemoryBudget`); it then ends somewhere.
  bool buildTree(ListingNode& node, unsigned options, const IdChain& chain, std::string name,
                 std::uint8_t depth, bool top, bool lock);

 private:
  /// Holds the client mutex for one request: takes it if `lock` is true, else the
  /// caller holds it already.
  class KRV_SCOPED_CAPABILITY RequestLock {
   public:
    RequestLock(KSTD::KThreadMutex& mutex, bool lock)
        KRV_ACQUIRE(mutex) KRV_NO_THREAD_SAFETY_ANALYSIS : locked_(lock ? &mutex : nullptr) {
      if (lock) {
        // The command may have printed, and the server may let it wait.
        flushToTerminal();
        mutex.lock();
      } else {
        mutex.assertHeld();
      }
    }
    ~RequestLock() KRV_RELEASE() KRV_NO_THREAD_SAFETY_ANALYSIS {
      if (locked_ != nullptr) {
        locked_->unlock();
      }
    }
    RequestLock(const RequestLock&) = delete;
    RequestLock& operator=(const RequestLock&) = delete;

   private:
    KSTD::KThreadMutex* const locked_;
  };

  /// The time of a monotonic clock, as exact as the scheduler's ticks: a reading takes a few
  /// nanoseconds, and a request that is served from the cache not many more.
  [[nodiscard]] static std::int64_t nowMs();

  /// Whether a request may be made now. Requires the client mutex.
  [[nodiscard]] bool mayRequest() const;

  /// `namePathOf`; returns whether the server listed every part.
  bool nameChain(const IdChain& chain, std::vector<std::string>& names, bool lock);

  /// The mirror part with `chain` as its target.
  ModelSrv::ModelPart* target(const IdChain& chain) KRV_REQUIRES(clientMutex_);
  /// The same for requests about children, which need the root for an empty chain.
  ModelSrv::ModelPart* childrenTarget(const IdChain& chain) KRV_REQUIRES(clientMutex_);

  void readText(const IdChain& chain, std::string& text, std::uint16_t index, bool lock);
  void loadText(const IdChain& chain, const std::string& text, bool flag, std::uint16_t index);

  KSTD::KThreadMutex& clientMutex_;

  // Written by the command thread with the client mutex held; that thread reads it
  // without.
  std::unique_ptr<DerivedModelPart> currentPart_;

  std::atomic<std::int64_t> leaveEnd_{0};  ///< see `Leaving`, in milliseconds; 0: not leaving
  std::int64_t requestsEnd_ = 0;           ///< of a `TimeLimit`, in milliseconds; 0: none

  std::ostringstream valueStream_ KRV_GUARDED_BY(clientMutex_);  ///< reused by `readText`

  // Used by the command thread. Null except while a command uses the cache.
  ChildListCache* childListCache_ = nullptr;
};

}  // namespace treescope
