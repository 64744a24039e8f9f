#pragma once

namespace treescope {

/// Hands `command` (zero-terminated, not null) to the system's command
/// interpreter (system(3)) and waits for it. What the shell has printed before is
/// on the screen first, and the terminal is in its original mode meanwhile. An
/// interrupt or quit key that is pressed then is the command's alone. Returns the interpreter's
/// wait status, -1 when it could not be started.
int runSystemCommand(const char* command);

}  // namespace treescope
