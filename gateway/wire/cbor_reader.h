#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace modelgate {

/// The items of an array, or the pairs of a map, that are still to be read.
struct CborItems {
  std::uint64_t left = 0;
  bool isIndefinite = false;  ///< until the item that ends it, instead of `left`
};

/// Reads CBOR items (RFC 8949) from front to back, without building a tree: hostile input costs no
/// memory and no recursion. After the first error every operation fails, so a decoder may check
/// `hasFailed` once at the end.
///
/// Tags are skipped. Strings of indefinite length are errors; arrays and maps may have one.
class CborReader {
 public:
  /// Views into `bytes` are given out; they must stay valid.
  explicit CborReader(std::string_view bytes) : bytes_(bytes) {}

  enum class Kind {
    unsignedNumber,
    negativeNumber,
    bytes,
    text,  ///< not yet checked to be UTF-8
    array,
    map,
    boolean,
    other,  ///< a floating-point number, null or undefined
    close,  ///< the end of an array or map of indefinite length
    none,   ///< the end of the input, or an error
  };

  /// The kind of the next item.
  [[nodiscard]] Kind kind();

  // Each reads one item. False, and the output is unchanged, if the next item is no such one.
  bool readUnsigned(std::uint64_t& number, std::uint64_t maximum);
  bool readSigned(std::int64_t& number, std::int64_t maximum);  ///< from -maximum on
  bool readBoolean(bool& value);
  bool readText(std::string_view& text, std::size_t maximum);  ///< valid UTF-8, as a text string
  /// A text string, or a byte string.
  bool readString(std::string_view& text, std::size_t maximum);
  bool readBytes(std::string_view& text, std::size_t maximum);
  bool enterArray(CborItems& items);
  bool enterMap(CborItems& items);

  /// Before each item of an array, or pair of a map: whether there is one.
  bool next(CborItems& items);

  /// Skips an item and what it contains, at most `maxNesting` levels.
  bool skip();
  /// Skips the rest of an array.
  bool skipRest(CborItems& items);

  static constexpr std::size_t maxNesting = 16;

  /// Makes every further operation fail.
  bool fail();
  [[nodiscard]] bool hasFailed() const { return hasFailed_; }
  /// Whether all of the input has been read, without an error.
  [[nodiscard]] bool isAtEnd() const {
    return !hasFailed_ && !isLoaded_ && position_ == bytes_.size();
  }

  struct Item {
    Kind kind = Kind::none;
    bool isTag = false;
    bool isIndefinite = false;
    bool isTrue = false;
    /// The value; of a negative number -1 minus it; or the number of items or pairs.
    std::uint64_t number = 0;
    std::string_view text;
  };

 private:
  [[nodiscard]] std::size_t remaining() const { return bytes_.size() - position_; }
  /// Takes the next item if it has this kind.
  bool take(Kind kind);
  bool enter(Kind kind, CborItems& items, unsigned itemsEach);

  std::string_view bytes_;
  std::size_t position_ = 0;  ///< after `item_` if that is loaded
  Item item_;
  bool isLoaded_ = false;
  bool hasFailed_ = false;
};

}  // namespace modelgate
