#include "bench/peers/whole_programs.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>

namespace bench::peers {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned manyRuns = 200;
constexpr double mostSeconds = 3;

/// Runs `task` once; returns milliseconds.
double run(const Task& task) {
  const Ended ended = runToEnd(task.words);
  if (ended.lines < task.lines) {
    throw std::runtime_error(task.how + " wrote less than it should: " + ended.output);
  }
  return ended.seconds * 1e3;
}

/// The least of programs: as a compiler links it unasked, and as ours are linked.
std::vector<Task> oneLine() {
  return {{"a C++ program that prints one line", {ONE_LINE_PROGRAM}, 1},
          {"the same program, linked as treescope is", {ONE_LINE_PROGRAM_LINKED_ALIKE}, 1}};
}

void addBaseline(Work& work) {
  for (const Task& task : oneLine()) {
    work.rows.push_back({"bare", task.how, [task] { return run(task); }, manyRuns});
  }
}

Row memory(const std::string& who, const Task& task) {
  return {who, task.how,
          [task] { return static_cast<double>(runForMemory(task.words).peakBytes) / 1024; }, 5};
}

/// Milliseconds in which a process takes that many bytes from another one's pipe.
double carry(std::size_t bytes) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) {
    throw std::runtime_error("pipe");
  }
  std::array<char, 65536> buffer{};
  const Clock::time_point begin = Clock::now();
  const Child writer([&] {
    for (std::size_t left = bytes; left > 0;) {
      const ssize_t count = ::write(ends[1], buffer.data(), std::min(left, buffer.size()));
      if (count <= 0) {
        return;
      }
      left -= static_cast<std::size_t>(count);
    }
  });
  ::close(ends[1]);
  std::size_t taken = 0;
  for (ssize_t count = 1; taken < bytes && count > 0;) {
    count = ::read(ends[0], buffer.data(), buffer.size());
    taken += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  ::close(ends[0]);
  if (taken < bytes) {
    throw std::runtime_error("too few bytes through a pipe");
  }
  return seconds * 1e3;
}

std::string withCommas(std::size_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3; at -= 3) {
    text.insert(at - 3, 1, ',');
  }
  return text;
}

}  // namespace

Peers serveAll(const Directory& directory, const Shape& shape) {
  Peers peers;
  for (const auto& serve :
       {serveOwn, serveRedis, serveBus, serveMosquitto, serveSnmp, serveAugeas}) {
    peers.push_back(serve(directory, shape));
  }
  return peers;
}

Work readOne(const Peers& peers) {
  Work work{"read", "One value read, a whole process", "ms"};
  addBaseline(work);
  for (const auto& peer : peers) {
    const Task task = peer->read();
    work.rows.push_back({peer->name(), task.how, [task] { return run(task); }, manyRuns});
  }
  measure(work, mostSeconds);
  return work;
}

Work writeOne(const Peers& peers) {
  Work work{"write", "One value written, a whole process", "ms"};
  addBaseline(work);
  std::vector<int> last(peers.size(), 1'000'000);
  for (std::size_t i = 0; i < peers.size(); ++i) {
    const Peer& peer = *peers[i];
    work.rows.push_back({peer.name(), peer.write(0).how,
                         [&peer, &value = last[i]] { return run(peer.write(++value)); }, manyRuns});
  }
  measure(work, mostSeconds);
  for (std::size_t i = 0; i < peers.size(); ++i) {
    const Task task = peers[i]->read();
    if (runToEnd(task.words).output.find(std::to_string(last[i])) == std::string::npos) {
      throw std::runtime_error(task.how + " does not show what was stored");
    }
  }
  return work;
}

Work listAll(const Peers& peers, const Shape& shape) {
  Work work{"list " + std::to_string(shape.total()),
            "All of " + withCommas(shape.total()) + " values with their names", "ms"};
  const Task ours = peers.front()->list().front();
  const std::size_t bytes = runToEnd(ours.words).bytes;
  addBaseline(work);
  work.rows.push_back({"bare", withCommas(bytes) + " bytes through a pipe, as many as of ls -lr",
                       [bytes] { return carry(bytes); }, manyRuns});
  for (const auto& peer : peers) {
    for (const Task& task : peer->list()) {
      work.rows.push_back(
          {peer->name(), task.how, [task] { return run(task); }, 40, {}, {}, task.written});
    }
  }
  measure(work, mostSeconds);
  return work;
}

Work memoryForOne(const Peers& peers, const Shape& shape) {
  Work work{
      "client memory",
      "Peak memory of a client that reads one value, " + withCommas(shape.total()) + " served",
      "KiB"};
  for (const Task& task : oneLine()) {
    work.rows.push_back(memory("bare", task));
  }
  for (const auto& peer : peers) {
    work.rows.push_back(memory(peer->name(), peer->read()));
  }
  measure(work, mostSeconds);
  return work;
}

Work memoryForAll(const Peers& peers, const Shape& shape) {
  Work work{"client memory, all",
            "Peak memory of a client that lists all of " + withCommas(shape.total()) + " values",
            "KiB"};
  for (const auto& peer : peers) {
    for (const Task& task : peer->list()) {
      work.rows.push_back(memory(peer->name(), task));
    }
  }
  measure(work, mostSeconds);
  return work;
}

void ServerMemory::take(const Peers& peers, const Shape& shape) {
  for (const auto& peer : peers) {
    const Servers servers = peer->servers();
    Entry entry{peer->name(), servers.names, shape.total(), {}};
    for (const pid_t server : servers.processes) {
      const Memory memory = memoryOf(server);
      entry.memory.now += memory.now;
      entry.memory.peak += memory.peak;
    }
    if (entry.memory.now > 0) {
      entries_.push_back(entry);
    }
  }
}

Work ServerMemory::peak() const {
  Work work{"server memory",
            "Peak memory of the server's processes, " + withCommas(entries_.back().values) +
                " values, each listed",
            "KiB"};
  for (const Entry& entry : entries_) {
    if (entry.values == entries_.back().values) {
      work.rows.push_back(
          {entry.who, entry.servers, nullptr, 1, {static_cast<double>(entry.memory.peak) / 1024}});
    }
  }
  return work;
}

Work ServerMemory::perValue() const {
  Work work{"memory of a value", "Memory of the server's processes for each further value",
            "bytes"};
  for (const Entry& first : entries_) {
    for (const Entry& last : entries_) {
      if (first.who == last.who && first.values == entries_.front().values &&
          last.values == entries_.back().values) {
        const double grown =
            static_cast<double>(last.memory.now) - static_cast<double>(first.memory.now);
        work.rows.push_back({first.who,
                             first.servers,
                             nullptr,
                             1,
                             {grown / static_cast<double>(last.values - first.values)}});
      }
    }
  }
  return work;
}

}  // namespace bench::peers
