#pragma once

#include <cstddef>
#include <string_view>

/// Standard output, which waits, and which threads use in turn.
///
/// The descriptor's open file description is shared with other programs, any of which
/// may have made it non-blocking; the standard library drops its buffer when such a
/// terminal or pipe is full. Here a write waits for space instead.

namespace treescope {

/// How `waitForOutput` buffers standard output.
enum class OutputBuffering {
  lines,  ///< by lines on a terminal, else fully
  full,   ///< fully, in a large buffer
};

/// Replaces `stdout` by a stream on file descriptor 1 that waits for space. To be called
/// once, before anything is printed or another thread is started. If there is no memory
/// for it, `stdout` stays as it is.
///
/// With `lines`, if the output is a pipe or file: a SIGHUP, SIGINT or SIGTERM that would end the
/// program writes what has been printed first. It does not wait for the reader of a pipe: what a
/// full pipe does not take is lost. The program then has one thread.
void waitForOutput(OutputBuffering buffering);

/// While this exists, no other thread prints on standard output or flushes it. Threads
/// get it in the order of arrival, so one that prints many updates does not keep another
/// from printing. May be nested in one thread. Not to be held while a command runs.
class OutputSpan {
 public:
  OutputSpan();
  ~OutputSpan();
  OutputSpan(const OutputSpan&) = delete;
  OutputSpan& operator=(const OutputSpan&) = delete;
};

/// Prints `text`, undivided, on standard output. Any thread. Write errors are ignored:
/// they could be reported nowhere but on the same output. In a pipe or file nothing else
/// divides a line either: when SIGTERM or another signal that can be blocked ends the
/// program, the output is whole lines, unless one of them is longer than PIPE_BUF.
void printText(std::string_view text);

/// Writes what has been printed. Any thread.
void flushOutput();

/// Any thread. If standard output was a terminal at the call of `waitForOutput`, writes
/// what has been printed. Called after each command and before a thread that has
/// printed waits for a server, so that no output is late and no signal loses any.
void flushToTerminal();

/// Any thread. Whether standard output was a terminal at the call of `waitForOutput`;
/// false before it.
[[nodiscard]] bool outputIsTerminal();

/// Writes all of `size` bytes to `descriptor`, also after partial writes and signals,
/// and waits for space if the descriptor is non-blocking. Returns the number of bytes
/// written; less than `size` after an error, which is in `errno`.
[[nodiscard]] std::size_t writeAll(int descriptor, const char* data, std::size_t size);

}  // namespace treescope
