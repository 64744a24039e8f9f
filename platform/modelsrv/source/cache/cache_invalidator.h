#pragma once

#include <cstdint>

#include "modelsrv/source/cache/status_page.h"

namespace ModelSrv::internal {

/// Whether anything that a server has told its clients still counts, shown on its
/// page. With the client mutex held.
///
/// What is told of values counts until the page's epoch ends, what is told of the
/// tree's shape until its era does. A part that is told of keeps the epoch's stamp;
/// before it changes the epoch or the era ends, if it is still that one, and with it
/// all that was told to anybody. A change of what nobody has been told of costs
/// nothing.
class CacheInvalidator {
 public:
  explicit CacheInvalidator(EvtSrv::internal::System& system) : page_(system) {}

  /// The service begins, on a thread that lives as long as it does. Where the system
  /// has no such page nothing is ever told.
  void start();

  /// Something is going to be told: gives the page that it counts by, null where
  /// there is none.
  const StatusPage* begin();

  /// To be called before the change of the value of a part that was told of with
  /// `stamp`.
  void invalidateValue(std::uint32_t stamp);
  /// To be called before any other change of a part that was told of with `stamp`.
  void invalidate(std::uint32_t stamp);
  /// To be called before a change of the tree's shape.
  void invalidateAll();

  /// Nothing counts from now on.
  void end();

  /// What a part keeps of `epoch`; never 0. Epochs may share a stamp: a part may
  /// then end an epoch, or an era, in which it was not told of.
  static std::uint32_t stampOf(std::uint64_t epoch);

 private:
  StatusPage page_;
  bool cachedInEpoch_ = false;      ///< anything in this epoch
  bool cachedInStructure_ = false;  ///< anything in this era
};

}  // namespace ModelSrv::internal
