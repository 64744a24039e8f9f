#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace EvtSrv::internal {

/// Where the pipes of event ports are.
inline constexpr const char* pipeDirectory = "/tmp";

inline constexpr std::size_t maxPortName = 200;

/// Whether a port may be called that: 1 to `maxPortName` bytes, no "/", no NUL
/// and no "." at the beginning.
bool isPortName(std::string_view name);

/// The path of the mailbox of port `name`.
std::string mailboxPath(std::string_view name);

}  // namespace EvtSrv::internal
