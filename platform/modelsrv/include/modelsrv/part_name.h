#pragma once

#include <array>
#include <string_view>

#include "kstd/export.h"

namespace ModelSrv::internal {

/// The name of a part, which does not change: in the object itself if it has at most 15 bytes, as
/// most names have, else in memory of its own. Half the size of a `std::string`, since a tree may
/// have very many parts.
class KRV_EXPORT PartName {
 public:
  /// Truncates it to 65,535 bytes. May throw `std::bad_alloc`.
  explicit PartName(std::string_view name);
  ~PartName();
  PartName(const PartName&) = delete;
  PartName& operator=(const PartName&) = delete;

  [[nodiscard]] std::string_view view() const {
    const auto length = static_cast<unsigned char>(bytes_[inlineMax]);
    return length <= inlineMax ? std::string_view(bytes_.data(), length) : ownMemory();
  }

 private:
  static constexpr std::size_t inlineMax = 15;
  /// In place of the length of a name that is not in the object.
  static constexpr char elsewhere = static_cast<char>(0xFF);

  [[nodiscard]] std::string_view ownMemory() const;

  /// The bytes of the name and, as the last one, their number; or a pointer, a length of 16 bits
  /// and `elsewhere`.
  alignas(void*) std::array<char, inlineMax + 1> bytes_{};
};

}  // namespace ModelSrv::internal
