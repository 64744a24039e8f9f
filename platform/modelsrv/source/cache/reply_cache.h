#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "evtsrv/source/frame.h"
#include "modelsrv/model_part.h"
#include "modelsrv/source/cache/status_page.h"
#include "modelsrv/source/id_chain.h"

namespace ModelSrv::internal {

/// An prefetch of a server's tree in a client's hand, and whether it still holds.
///
/// An prefetch holds as long as the server lives and has not taken back what it told
/// (`StatusPageReader`): its values for an epoch, the shape, which is children and elements,
/// for an era. With the client mutex held.
class ReplyCache {
 public:
  explicit ReplyCache(EvtSrv::internal::System& system) : page_(system) {}

  /// What is held of a part. There are thousands at a time: it is to be small.
  struct Part {
    std::uint32_t hash = 0;  ///< of its chain
    std::uint32_t parent = 0;
    std::uint16_t depth = 0;
    ModelPartId id = ModelPartId_Void;
    // Where in the prefetch each piece begins, which ends where the next one begins;
    // what is not held is empty.
    std::uint32_t childIds = 0;
    std::uint32_t childNames = 0;
    std::uint32_t elements = 0;  ///< how many, and their names
    std::uint32_t value = 0;     ///< the result of reading it; texts, each behind its length
    std::uint32_t end = 0;
    std::uint16_t elementCount = 0;
    bool asked = false;
  };

  /// Which answers of a part are wanted.
  enum class Wanted { value, shape };

  /// What is held of the part at `chain`, for an answer of that kind alone; null where
  /// nothing is or it does not hold any more.
  const Part* find(ChainView chain, Wanted wanted);

  /// How many parts to ask for with the next prefetch: few at first, more as those
  /// of the last one turned out to be wanted.
  [[nodiscard]] std::uint16_t partsToPrefetch() const;

  /// Takes a server's reply about `chain` in the place of what was held. Gives what
  /// it says of that part, which was true when the server answered; null where the
  /// reply is malformed. Others are given by `find` only where the server's page
  /// can be seen.
  const Part* take(ChainView chain, std::span<const std::uint8_t> reply,
                   EvtSrv::internal::ByteOrder order);

  /// Whether the server's page can be seen and says that the server lives; if not
  /// there is no use in asking for more than what is wanted.
  [[nodiscard]] bool isUsable() const { return page_.isServerAlive(); }

  /// Forgets everything.
  void clear();

  // Answers of a part that `find` or `take` gave, until the next call of these or
  // `clear`. False where that piece is not held: the server is to be asked.

  bool childIds(const Part& part, std::vector<ModelPartId>& ids) const;
  bool childNames(const Part& part, std::vector<std::string>& names) const;
  bool elementSum(const Part& part, std::uint16_t& sum) const;
  bool elementNames(const Part& part, std::vector<std::string>& names) const;
  /// `result` is what the server would have answered.
  bool save(const Part& part, ModelPartIndex index, std::ostringstream& text,
            ModelRes& result) const;

 private:
  /// For the piece that lies between two places of the prefetch.
  [[nodiscard]] EvtSrv::internal::PayloadReader reader(std::uint32_t begin,
                                                       std::uint32_t end) const;
  static bool readHandle(EvtSrv::internal::PayloadReader& in, StatusPageHandle& handle,
                         std::uint64_t& epoch);
  void addAbove(ChainView chain);
  Part* add(std::uint16_t depth, ModelPartId id);
  void makeIndex();
  [[nodiscard]] std::uint32_t lookUp(ChainView chain) const;
  [[nodiscard]] bool isAt(std::uint32_t part, ChainView chain) const;

  StatusPageReader page_;
  EvtSrv::internal::ByteOrder order_ = EvtSrv::internal::nativeOrder;
  std::uint64_t epoch_ = 0;  ///< 0: nothing is held
  std::vector<std::uint8_t> bytes_;
  /// Those above the first one are there without an answer.
  std::vector<Part> parts_;
  std::vector<std::uint32_t> index_;  ///< a hash table of places in `parts_`
  std::uint32_t last_ = 0;            ///< the part that was asked about last
  std::size_t told_ = 0;              ///< how many parts the prefetch tells of
  std::size_t asked_ = 0;             ///< how many of them were asked for
};

}  // namespace ModelSrv::internal
