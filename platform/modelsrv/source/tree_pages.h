#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "evtsrv/source/frame.h"
#include "evtsrv/source/turn_queue.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/tree_cursor.h"
#include "modelsrv/tree_part.h"

/// The pages in which a client reads a subtree: encoding and decoding. The layout is specified in
/// platform/PROTOCOL.md, section 10.
namespace ModelSrv::internal {

/// Values and lists of element names above this size are left to a request of their own.
inline constexpr std::size_t maxInPage = std::size_t{64} * 1024;
/// The size of a page.
inline constexpr std::size_t maxPage = std::size_t{256} * 1024;

/// Writes pages in a server. Call it with the client mutex held.
class TreePageWriter {
 public:
  /// Appends the page that begins with `top`, or after the part with these ids below `top`. If it
  /// calls the program, the page ends with the turn in `turns`.
  void write(ModelPart& top, bool continues, ChainView position, std::uint64_t structureVersion,
             EvtSrv::internal::TurnQueue& turns, std::vector<std::uint8_t>& page);

 private:
  void writePart(ModelPart& part, std::size_t depth, std::vector<std::uint8_t>& page);
  void writeElements(const ModelPart& part, std::vector<std::uint8_t>& page, unsigned& has);
  ModelRes readValue(ModelPart& part);

  TreeCursor cursor_;
  std::string text_;
  std::size_t read_ = 0;        ///< the bytes of text that were read for this page
  bool programCalled_ = false;  ///< for this page
};

/// Reads a page.
class TreePageReader {
 public:
  /// What is left to requests of their own.
  struct LeftOut {
    bool value = false;
    bool elementNames = false;
  };

  /// Begins with a page, which must stay. False if it is malformed.
  [[nodiscard]] bool begin(EvtSrv::internal::PayloadReader page);
  [[nodiscard]] std::uint64_t structureVersion() const { return structureVersion_; }
  /// Whether there are more pages.
  [[nodiscard]] bool hasMore() const { return hasMore_; }

  enum class Next { part, end, malformed };
  /// Sets `part` without its chain, and `ids` to the ids below the part that is read: the position
  /// of the part. `ids` must be that of the part before.
  Next next(std::vector<ModelPartId>& ids, TreePart& part, LeftOut& leftOut);

 private:
  bool readElements(std::uint8_t has, TreePart& part);

  EvtSrv::internal::PayloadReader page_{{}, EvtSrv::internal::nativeOrder};
  std::uint64_t structureVersion_ = 0;
  bool hasMore_ = false;
  std::vector<std::string_view> elementNames_;
};

}  // namespace ModelSrv::internal
