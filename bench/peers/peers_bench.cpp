#include <cstdio>
#include <exception>
#include <fstream>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/peers/explanation.h"
#include "bench/peers/supervisor.h"
#include "bench/peers/targets.h"
#include "bench/peers/updates.h"
#include "bench/peers/whole_programs.h"

// What this system's programs take beside those of other systems that serve the same
// values on the same machine. Prints a page in Markdown and writes it to a file:
//
//   peers_bench FILE
//
// All programs are those found on the path.

namespace {

using bench::peers::Peers;
using bench::peers::Shape;
using bench::peers::Work;

std::list<Work> measureAll(const bench::peers::Directory& directory) {
  std::list<Work> works;
  std::list<Work> updates;
  std::list<Work> memory;
  bench::peers::ServerMemory servers;
  for (const unsigned groups : {1U, 10U, 100U}) {
    const Shape shape{groups};
    const Peers peers = bench::peers::serveAll(directory, shape);
    if (groups == 10) {
      works.push_front(bench::peers::writeOne(peers));
      works.push_front(bench::peers::readOne(peers));
    }
    works.push_back(bench::peers::listAll(peers, shape));
    if (groups == 10) {
      updates.push_back(bench::peers::updateLatency(peers));
      updates.push_back(bench::peers::answeredStores(peers));
      updates.push_back(bench::peers::streams(peers));
      memory.push_back(bench::peers::memoryForOne(peers, shape));
      memory.push_back(bench::peers::memoryForAll(peers, shape));
    }
    servers.take(peers, shape);
  }
  memory.push_back(servers.peak());
  memory.push_back(servers.perValue());
  works.splice(works.end(), updates);
  works.splice(works.end(), memory);
  return works;
}

int writePage(const bench::peers::Directory& directory, const char* fileName) {
  try {
    const std::list<Work> works = measureAll(directory);
    const std::string page =
        bench::peers::page(works, bench::peers::judge(works), bench::peers::explanation);
    std::fputs(page.c_str(), stdout);
    std::ofstream file(fileName, std::ios::trunc);
    file << page;
    return file.flush() ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "peers_bench: %s\n", error.what());
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 2) {
      throw std::runtime_error("usage: peers_bench FILE");
    }
    // Goes when all that works in it has ended.
    const bench::peers::Directory directory;
    return bench::peers::supervise([&] { return writePage(directory, argv[1]); });
  } catch (const std::exception& error) {
    std::fprintf(stderr, "peers_bench: %s\n", error.what());
    return 1;
  }
}
