#pragma once

#include <cstdint>

#include "modelsrv/source/cache/status_page.h"

namespace ModelSrv::internal {

/// Invalidates what the clients of a server have cached, through the server's status page.
/// Guarded by the client mutex.
///
/// A cached value is valid until the page's epoch changes; cached structure (children and
/// elements) is valid until the structure version changes. Each part in a prefetch reply keeps
/// the stamp of the epoch in which the reply was written. Before the part changes, a new epoch
/// or structure version begins, but only if the part may be cached in the present one; this
/// invalidates the caches of all clients. A change of a part that no client has cached costs
/// nothing.
class CacheInvalidator {
 public:
  explicit CacheInvalidator(EvtSrv::internal::System& system) : page_(system) {}

  /// Call when the service begins, on a thread that lives as long as the service. If the system
  /// does not support the page, clients cache nothing.
  void open();

  /// Call before a prefetch reply is written. Returns the page whose epoch the reply is valid
  /// for, or null if there is none.
  const StatusPage* beginPrefetch();

  /// Call before the value of a part with that stamp changes.
  void invalidateValue(std::uint32_t stamp);
  /// Call before anything else of a part with that stamp changes.
  void invalidate(std::uint32_t stamp);
  /// Call before the structure of the tree changes.
  void invalidateAll();

  /// Call before the service ends. Invalidates everything.
  void close();

  /// The stamp that a part keeps for `epoch`; never 0. Several epochs have the same stamp, so a
  /// change of a part may begin a new epoch or structure version although no client has cached
  /// the part in the present one.
  static std::uint32_t stampOf(std::uint64_t epoch);

 private:
  StatusPage page_;
  bool cachedInEpoch_ = false;      ///< whether a reply was written in this epoch
  bool cachedInStructure_ = false;  ///< whether a reply was written in this structure version
};

}  // namespace ModelSrv::internal
