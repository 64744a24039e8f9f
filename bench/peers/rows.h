#pragma once

#include <functional>
#include <vector>

#include "bench/peers/fields.h"

/// The kinds of rows. Each function reads the remaining fields of a row of that kind and
/// returns what takes a sample: one figure, or two if the row has two. Errors are reported as
/// `std::runtime_error`.
namespace bench::peers {

using Sampler = std::function<std::vector<double>()>;

/// run LINES WORD...: the milliseconds of a program, which must write LINES lines. "{value}" in
/// a word stands for a number that grows with each run, from 1,000,001.
Sampler programTime(Fields& fields);

/// memory WORD...: the peak of a program's resident set in KiB.
Sampler programMemory(Fields& fields);

/// pipe BYTES: the milliseconds for reading that many bytes from another process's pipe.
Sampler pipeTransfer(Fields& fields);

/// round-trip: the microseconds of a round trip over two named pipes.
Sampler roundTrip(Fields& fields);

/// poll: the microseconds of a poll(2) that does not wait.
Sampler pollCall(Fields& fields);

/// shown DESCRIPTOR TEXT STORE...: the microseconds from before a store until TEXT, in
/// hexadecimal digits, has been read from DESCRIPTOR. "{value}" in TEXT stands for the value.
Sampler updateLatency(Fields& fields);

/// stores NUMBER SUBSCRIBER... STORE...: thousands of stores a second, each acknowledged before
/// the next. The sample ends when the subscriber has received as many updates.
Sampler storeRate(Fields& fields);

/// burst NUMBER SENDS SUBSCRIBER... STORE...: thousands of updates a second until the
/// subscriber has received NUMBER of them, which are sent in SENDS stores.
Sampler burstRate(Fields& fields);

/// model-stores SERVER VALUES: stores in 1,000 parts of SERVER in turn, with a subscriber that gets
/// each value as VALUES, a `ModelClient::Values`, says. Two figures in thousands a second: stores,
/// and updates received.
Sampler modelStoreRate(Fields& fields);

/// model-changes VALUES PROGRAM: thousands of updates a second at a subscriber of a model server
/// that changes its parts as fast as it can. PROGRAM is the server; it runs during a sample
/// only. VALUES: 0, the subscriber gets no values; 1, it requests each; 2, it watches the tree.
Sampler modelChangeRate(Fields& fields);

/// printed-changes PROGRAM WORD...: thousands of lines a second that a tool, run with the name of
/// the server as its last two words NAME and "/", writes into a file while such a server changes.
Sampler printedChangeRate(Fields& fields);

}  // namespace bench::peers
