#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "term/listing_node.h"

namespace treescope {

/// Discovery of the model servers on this device.
///
/// The port of a server has a named pipe in `serverDirectory`; the name of that file
/// without its extension is the name that a client connects to. Discovery reads the
/// directory only: it opens no pipe, so a name may belong to a server that has died.
/// Any thread may call these functions.

/// The directory of the ports' pipes.
inline constexpr const char* serverDirectory = "/tmp";

/// The texts that the names of servers contain. Callers read the directory once for
/// each, in this order.
inline constexpr const char* serverKeys[] = {"modelsrv", "Model"};

/// Appends the names of the servers in `dir` that contain `key` (null: of all
/// servers) to `out`, in the order of the directory, and returns 1. Returns 0 and
/// appends nothing if the directory cannot be opened. A server is a file other than a
/// directory with the extension ".fifo" or ".efifo" and the name of a port: 1 to 200
/// bytes, without "/", ";", the bytes 1 to 31 and 127, not beginning with ".". Other
/// files are skipped, as is a file whose status cannot be read (stat(2)). A name with
/// two files is appended twice.
int collectServerNames(std::vector<std::string>& out, const char* dir, const char* key);

/// The same for the servers that `ls` lists (`isListedServerName`): names `node` after
/// `dir` and adds a child for each. `node` is unchanged if the directory cannot be
/// opened.
int listServerNodes(ListingNode& node, const char* dir, const char* key);

/// Whether `ls` lists a server of that name: the name begins with "Model_" or ends
/// with ".Model".
[[nodiscard]] bool isListedServerName(std::string_view name);

}  // namespace treescope
