#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "gateway/wire/values.h"

namespace modelgate {

/// The last value of a part or of an element: its text, or the result that says why there is none.
/// 16 bytes, of which a text of at most 15 bytes takes no more; a longer one is on the heap.
class MirrorValue {
 public:
  /// `ModelRes_Unreachable`: nothing has been heard of the value yet.
  MirrorValue() noexcept { setResult(ModelSrv::ModelRes_Unreachable); }
  /// A value that no server may give becomes `ModelRes_Unreachable`. Throws std::bad_alloc.
  explicit MirrorValue(const Value& value);
  /// The text, with success. Throws std::bad_alloc.
  explicit MirrorValue(std::string_view text);
  explicit MirrorValue(ModelSrv::ModelRes result) noexcept { setResult(result); }
  ~MirrorValue() { release(); }
  MirrorValue(MirrorValue&& other) noexcept;
  MirrorValue& operator=(MirrorValue&& other) noexcept;
  MirrorValue(const MirrorValue&) = delete;
  MirrorValue& operator=(const MirrorValue&) = delete;

  [[nodiscard]] ModelSrv::ModelRes result() const noexcept;
  /// Valid until the value changes; empty without success.
  [[nodiscard]] std::string_view text() const noexcept;
  /// The bytes that the value has on the heap.
  [[nodiscard]] std::size_t heapSize() const noexcept { return isLong() ? text().size() : 0; }

  bool operator==(const MirrorValue& other) const noexcept {
    return result() == other.result() && text() == other.text();
  }

 private:
  static constexpr std::size_t maxShort = 15;
  // The last byte is the length of a short text, or one of these.
  static constexpr std::uint8_t longText = 0xFF;
  static constexpr std::uint8_t noText = 0x80;  ///< plus the result

  [[nodiscard]] std::uint8_t tag() const noexcept { return bytes_[maxShort]; }
  [[nodiscard]] bool isLong() const noexcept { return tag() == longText; }
  void setText(std::string_view text);
  void setResult(ModelSrv::ModelRes result) noexcept;
  void release() noexcept;

  alignas(void*) std::array<std::uint8_t, maxShort + 1> bytes_;
};

}  // namespace modelgate
