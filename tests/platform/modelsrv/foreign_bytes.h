#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "evtsrv/source/frame.h"

namespace modelsrv_tests {

/// The byte order that is not this machine's.
inline constexpr EvtSrv::internal::ByteOrder foreignOrder =
    EvtSrv::internal::nativeOrder == EvtSrv::internal::ByteOrder::leastFirst
        ? EvtSrv::internal::ByteOrder::mostFirst
        : EvtSrv::internal::ByteOrder::leastFirst;

/// Builds a payload as a machine with the other byte order would write it.
class ForeignBytes {
 public:
  ForeignBytes& u8(unsigned value) {
    bytes_.push_back(static_cast<std::uint8_t>(value));
    return *this;
  }
  ForeignBytes& u16(unsigned value) {
    const bool mostFirst = foreignOrder == EvtSrv::internal::ByteOrder::mostFirst;
    u8(mostFirst ? value >> 8U : value & 0xFFU);
    return u8(mostFirst ? value & 0xFFU : value >> 8U);
  }
  ForeignBytes& u32(std::uint32_t value) {
    const bool mostFirst = foreignOrder == EvtSrv::internal::ByteOrder::mostFirst;
    u16(mostFirst ? value >> 16U : value & 0xFFFFU);
    return u16(mostFirst ? value & 0xFFFFU : value >> 16U);
  }
  ForeignBytes& text(std::string_view text) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  [[nodiscard]] const std::vector<std::uint8_t>& get() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace modelsrv_tests
