#pragma once

#include <string_view>

namespace treectl {

/// A server's reason for a refusal, without the part's name at its beginning if `address`, which is
/// printed in front of it, ends with that: "/Model_rig/setpoint: 99 is not within 5 to 30".
[[nodiscard]] inline std::string_view reasonAfterAddress(std::string_view address,
                                                         std::string_view reason) {
  const std::string_view name = address.substr(address.rfind('/') + 1);
  if (!name.empty() && reason.size() > name.size() + 1 && reason.starts_with(name) &&
      reason[name.size()] == ' ') {
    reason.remove_prefix(name.size() + 1);
  }
  return reason;
}

}  // namespace treectl
