#pragma once

namespace treescope {

/// Sees to it that descriptors 0, 1 and 2 are open, on /dev/null where whoever
/// started the program closed them. Otherwise the next pipe to a server would take
/// the place of one, to be read for keys or written to as output. Called by the
/// entry point before anything is opened. Has no effect where /dev/null is missing.
void openStandardDescriptors();

}  // namespace treescope
