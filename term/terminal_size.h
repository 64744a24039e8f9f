#pragma once

/// The size of the terminal on standard output, asked anew on each call
/// (TIOCGWINSZ, ioctl_tty(2)): a window may change at any time.
///
/// Any thread may call. Both give 0 when standard output is no terminal or the
/// terminal does not know; nothing stands in for the missing size. Batch mode
/// does not ask at all.

namespace treescope {

[[nodiscard]] int terminalColumns();
[[nodiscard]] int terminalRows();

}  // namespace treescope
