#pragma once

namespace bench::peers {

/// What a reader of the page must know to judge it.
inline constexpr const char* explanation =
    R"(Every system serves the same 32-bit integers, 1,000 in each of as many groups as it takes, named
/group_000/item_0000 and so on (net-snmp: by numbers), over named pipes, a Unix socket or, Augeas, a
file. Our programs are the installed ones. Nothing is bound to a processor. The rows of a work take
turns in changing order, a sample each; a row that has used up its time gets no more turns. "ours / this" is
the median of the first row of treescope divided by that of the row: with times and memory less is
better, with rates more.

- One value is read and written by whole processes while 10,000 are served. What was stored last must be
  found afterwards.
- The bare program is linked as a compiler does it unasked, and loads the C++ library at each start;
  treescope and modelsrvd hold that library within. The row below it is the same program linked as they are.
- The lists go into a file in memory, and must have as many lines as there are values. Redis keeps the
  values in one hash, which has no tree; busctl prints no lines, and nobody would read it so: the client
  of sd-bus beside it was written for this table, as were the services of D-Bus and of net-snmp (asked by
  pass_persist, the way to publish a table without a library).
- From a store to its update: from before a client in the measuring process stores until the tool's
  output has come through a pipe. The shell writes the path of a changed value; of redis-cli and
  mosquitto_sub it is the value, and of D-Bus a client of sd-bus prints both.
- Rates: an update of treescope says which part changed, and who wants the value asks for it, so changes
  of one part that a subscriber has not taken yet are one update. What is counted is what arrived; none
  that was under way before a sample, and in the rows of answered stores all that its stores led to. Its
  two rows are two figures of the same runs. There the subscriber asks for each value, as the messages of
  the peers hold it; there are 1,000 parts, stored in turn.
- The stream of treescope is that of a server of its own that changes its parts up to a million times a
  second, and runs during our samples only. A subscriber that keeps up shows how fast that server makes
  changes, not how many it could take: its figure has that limit, and the 5 ms that are left to changes
  from before a sample, of 505 ms, are counted as its time. Redis and Mosquitto are streamed to by a client in
  packets of 1,000 messages, and their subscribers do no more than count bytes; D-Bus drops nothing, its
  limits being lifted.
- Memory of a client is the peak of its resident set, that of a server the same, over all its processes.
)";

}  // namespace bench::peers
