#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>

#include "modelsrv/model_part.h"
#include "modelsrv/source/linked_queue.h"

namespace ModelSrv::internal {

/// The changes of one watch that are to be sent: at most one entry for each part and index, in
/// the order of the first change. With a period, a part of which an entry was sent rests for that
/// time; its further changes wait for the end of it, and are one entry then: of the element if
/// there is only one, else of the whole value. Knows no clock. Guarded by the client mutex.
class PendingValues {
 public:
  /// Changes that are reported as one.
  struct Change {
    ModelPart* part = nullptr;
    ModelPartIndex index = ModelPartIndex_All;
    std::uint32_t count = 0;
    std::int64_t timeNs = 0;  ///< of the last change
  };

  /// Adds a change. Returns whether an entry was queued for it now. If it throws `std::bad_alloc`,
  /// the change is lost.
  bool add(ModelPart& part, ModelPartIndex index, std::int64_t timeNs);

  /// Whether an entry is queued.
  [[nodiscard]] bool isEmpty() const { return queue_.isEmpty(); }
  /// The first queued entry, which there is.
  [[nodiscard]] Change first() const;
  /// Removes the first queued entry. If `restsUntil` is not 0, other changes of its part wait until
  /// `wake` is called with at least that time. The times of successive calls ascend.
  void pop(std::int64_t restsUntil);

  /// Ends the rest of parts up to `now`.
  void wake(std::int64_t now);
  /// When the next rest ends; 0 if there is none.
  [[nodiscard]] std::int64_t nextWake() const;

  /// Drops all entries of `part`, which may be destroyed after that.
  void drop(const ModelPart& part);
  void clear();

  /// An estimate of the memory that the entries take, with the containers, in bytes.
  [[nodiscard]] std::size_t bytes() const {
    constexpr std::size_t ofPart = 160;
    constexpr std::size_t ofElement = 112;
    return parts_.size() * ofPart + elements_ * ofElement;
  }
  [[nodiscard]] std::size_t parts() const { return parts_.size(); }

 private:
  struct Entry {
    ModelPart* part = nullptr;
    ModelPartIndex index = ModelPartIndex_All;
    std::uint32_t changes = 0;  ///< 0: nothing is pending
    std::int64_t timeNs = 0;
    QueueLinks<Entry> links;  ///< queued unless the part rests
  };
  using Elements = std::map<ModelPartIndex, Entry>;
  struct OfPart {
    Entry whole;
    std::unique_ptr<Elements> elements;  ///< those that are pending; null if there are none
    std::int64_t restsUntil = 0;         ///< 0: it does not rest
    QueueLinks<OfPart> links;            ///< of those that rest
  };
  using Parts = std::unordered_map<const ModelPart*, OfPart>;

  static void count(Entry& entry, std::uint32_t changes, std::int64_t timeNs);
  static Entry& elementOf(OfPart& ofPart, ModelPartIndex index);
  void addElementsToWhole(OfPart& ofPart);
  void unlink(Entry& entry);
  void unlinkAll(OfPart& ofPart);
  void removePending(OfPart& ofPart, Entry& entry);
  void eraseIfUnused(Parts::iterator at);

  Parts parts_;
  std::size_t elements_ = 0;
  LinkedQueue<Entry> queue_;     ///< to be sent
  LinkedQueue<OfPart> resting_;  ///< in the order of the ends of their rest
};

}  // namespace ModelSrv::internal
