#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "evtsrv/source/server_session.h"

namespace ModelSrv::internal {

/// Offers the text of a client's store to the part that it is for, for the lifetime of the object:
/// the part may keep the memory of the request instead of copying the text, which for the largest
/// one would take longer than everything else. For the thread that serves the request, with the
/// client mutex held.
class OfferedText {
 public:
  /// What is shorter is copied.
  static constexpr std::size_t leastBytes = std::size_t{256} * 1024;

  OfferedText(EvtSrv::internal::ServerConnection& connection, std::string_view text);
  ~OfferedText();
  OfferedText(const OfferedText&) = delete;
  OfferedText& operator=(const OfferedText&) = delete;

  /// The memory that has `text`, which stays valid as long as that; null if it must be copied.
  [[nodiscard]] static std::unique_ptr<std::uint8_t[]> take(std::string_view text);

 private:
  EvtSrv::internal::ServerConnection& connection_;
  const std::string_view text_;
  OfferedText* const outer_;  ///< of the call in which a nested dispatch serves this one
};

}  // namespace ModelSrv::internal
