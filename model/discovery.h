#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "term/listing_node.h"

namespace treescope {

/// Finding the model servers that run on this device.
///
/// A server's port leaves its pipe in a directory; the pipe's file name without
/// its extension is what a client connects to. No registry is asked and no pipe
/// is opened, so a name may belong to a server that has died. Any thread.

/// The directory in which ports leave their pipes.
inline constexpr const char* serverDirectory = "/tmp";

/// What a server's name holds; the directory is read once for each, in this order.
inline constexpr const char* serverKeys[] = {"modelsrv", "Model"};

/// Appends the name of every server in `dir` whose name contains `key` (null: of
/// every server), in the order in which the directory yields them, and returns 1;
/// returns 0 and appends nothing where the directory cannot be opened. A server is
/// a file other than a directory that ends in ".fifo" or ".efifo"; one whose
/// status cannot be had is passed over (readdir(3), stat(2)). Nothing is sorted,
/// and a name that two files give is appended twice.
int collectServerNames(std::vector<std::string>& out, const char* dir, const char* key);

/// The same, of the servers that a listing shows alone, those for whose name
/// `isListedServerName` holds: each becomes a child of `node`, which is named
/// `dir`. `node` is left alone where the directory cannot be opened.
int listServerNodes(ListingNode& node, const char* dir, const char* key);

/// Whether a listing shows a server of that name: it begins with "Model_", or what
/// follows from its last "." on is ".Model".
[[nodiscard]] bool isListedServerName(std::string_view name);

}  // namespace treescope
