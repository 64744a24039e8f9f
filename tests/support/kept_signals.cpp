#include <poll.h>

// The thread sanitizer's runtime delivers a signal to a thread between two calls. It
// allocates the memory for pending signals in the first call of the thread that may
// wait, and loses a signal that arrives during that call. So the first thread makes
// such a call before another process can know its id.

namespace {

[[maybe_unused]] const int descriptorsReady = ::poll(nullptr, 0, 0);

}  // namespace
