#pragma once

namespace modelgate {

/// Gives back to the system what the process does not need at present: free memory of the heap, and
/// the pages of programs and libraries in memory that cannot be written. Those that are used again
/// are mapped again from the system's cache of files, several at a time. For the end of a start,
/// which uses much that is never used again. Takes less than a millisecond. Any thread.
void releaseUnusedMemory();

}  // namespace modelgate
