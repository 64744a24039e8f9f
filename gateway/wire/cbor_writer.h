#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace modelgate {

/// Appends CBOR items, each number in its shortest form, to a string that it does not own.
class CborWriter {
 public:
  explicit CborWriter(std::string& out) : out_(out) {}

  void number(std::uint64_t value);
  void signedNumber(std::int64_t value);
  void boolean(bool value);
  void text(std::string_view text);   ///< valid UTF-8
  void bytes(std::string_view text);  ///< as a byte string
  /// As a text string if it is valid UTF-8, else as a byte string.
  void string(std::string_view text);
  void array(std::size_t items);
  void map(std::size_t pairs);

  /// The size of a number, or of what precedes a string or array of this size.
  [[nodiscard]] static std::size_t headSize(std::uint64_t value);

 private:
  std::string& out_;
};

}  // namespace modelgate
