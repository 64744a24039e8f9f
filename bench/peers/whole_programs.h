#pragma once

#include <list>
#include <memory>
#include <vector>

#include "bench/peers/peer.h"
#include "bench/peers/table.h"

namespace bench::peers {

/// All systems with as many values each, ours first.
using Peers = std::vector<std::unique_ptr<Peer>>;
Peers serveAll(const Directory& directory, const Shape& shape);

/// One value printed, and one stored, by programs that run to their end; each
/// peer must then have the value that was stored last.
Work readOne(const Peers& peers);
Work writeOne(const Peers& peers);

/// All values printed with their names.
Work listAll(const Peers& peers, const Shape& shape);

/// The most memory that those programs take, in KiB: for one value printed, and for
/// all of them.
Work memoryForOne(const Peers& peers, const Shape& shape);
Work memoryForAll(const Peers& peers, const Shape& shape);

/// What the servers take.
class ServerMemory {
 public:
  /// Notes it for servers of that shape.
  void take(const Peers& peers, const Shape& shape);

  /// The most, in KiB, with the last shape; and how much the values between the
  /// first and the last shape took each, in bytes.
  [[nodiscard]] Work peak() const;
  [[nodiscard]] Work perValue() const;

 private:
  struct Entry {
    std::string who;
    std::string servers;
    std::size_t values;
    Memory memory;
  };
  std::vector<Entry> entries_;
};

}  // namespace bench::peers
