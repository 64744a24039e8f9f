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

/// A client's cache: the last prefetch reply of its server, an index over the parts in it, and
/// the check whether it is current. Guarded by the client mutex.
///
/// Cached values are current as long as the server is alive and its page has the epoch of the
/// reply; cached structure (children and elements) as long as the page has the same structure
/// version. See the README of this folder.
class ReplyCache {
 public:
  explicit ReplyCache(EvtSrv::internal::System& system) : page_(system) {}

  /// The location of a part's sections in the reply. There may be thousands of them, so this is
  /// kept small.
  struct Part {
    std::uint32_t hash = 0;  ///< of its chain
    std::uint32_t parent = 0;
    std::uint16_t depth = 0;
    ModelPartId id = ModelPartId_Void;
    // The offsets at which the sections begin. Each ends where the next one begins; a section
    // that is not cached is empty.
    std::uint32_t childIds = 0;
    std::uint32_t childNames = 0;
    std::uint32_t elements = 0;  ///< their number and their names
    std::uint32_t value = 0;     ///< the result of reading it, then texts, each after its length
    std::uint32_t end = 0;
    std::uint16_t elementCount = 0;
    bool isUsed = false;
  };

  /// What a request reads: the value, or children and elements.
  enum class Data { value, structure };

  /// The cached part at `chain`, if `data` of it is current; otherwise null. The part may lack
  /// the section that the caller needs.
  const Part* find(ChainView chain, Data data);

  /// The number of parts to request with the next prefetch: one at first, then four times as
  /// many as were used of the last reply.
  [[nodiscard]] std::uint16_t partsToPrefetch() const;

  /// Replaces the cache by a server's prefetch reply about the part at `chain`, and returns that
  /// part; it was current when the server wrote the reply. Null if the reply is malformed; the
  /// cache is then empty. If the server's page is not readable, `find` returns nothing.
  const Part* replace(ChainView chain, std::span<const std::uint8_t> reply,
                      EvtSrv::internal::ByteOrder order);

  /// Whether the server's page is readable and says that the server is alive. If not, further
  /// prefetches are useless.
  [[nodiscard]] bool isUsable() const { return page_.isServerAlive(); }

  void clear();

  // Read the data of a part that `find` or `replace` returned, until the next call of one of
  // these or of `clear`. False if the section is not cached: a request to the server is needed.

  bool childIds(const Part& part, std::vector<ModelPartId>& ids) const;
  bool childNames(const Part& part, std::vector<std::string>& names) const;
  bool elementSum(const Part& part, std::uint16_t& sum) const;
  bool elementNames(const Part& part, std::vector<std::string>& names) const;
  /// `result` is the result that the server would return.
  bool save(const Part& part, ModelPartIndex index, std::ostringstream& text,
            ModelRes& result) const;
  bool save(const Part& part, ModelPartIndex index, std::string& text, ModelRes& result) const;

 private:
  /// Calls `append` with each piece of the text.
  template <typename Append>
  bool passText(const Part& part, ModelPartIndex index, ModelRes& result, Append append) const;
  /// A reader of the section between two offsets.
  [[nodiscard]] EvtSrv::internal::PayloadReader reader(std::uint32_t begin,
                                                       std::uint32_t end) const;
  static bool readHandle(EvtSrv::internal::PayloadReader& in, StatusPageHandle& handle,
                         std::uint64_t& epoch);
  void addAncestors(ChainView chain);
  Part* add(std::uint16_t depth, ModelPartId id);
  void buildIndex();
  [[nodiscard]] std::uint32_t findInIndex(ChainView chain) const;
  [[nodiscard]] bool hasChain(std::uint32_t part, ChainView chain) const;

  StatusPageReader page_;
  EvtSrv::internal::ByteOrder order_ = EvtSrv::internal::nativeOrder;
  std::uint64_t epoch_ = 0;  ///< 0: the cache is empty or unusable
  std::vector<std::uint8_t> bytes_;
  /// The ancestors of the first part in the reply, which have no data, then the parts in it.
  std::vector<Part> parts_;
  std::vector<std::uint32_t> index_;  ///< a hash table of indices of `parts_`
  std::uint32_t lastFound_ = 0;       ///< an index of `parts_`
  std::size_t replyCount_ = 0;        ///< the number of parts in the reply
  std::size_t usedCount_ = 0;         ///< the number of them that were used
};

}  // namespace ModelSrv::internal
