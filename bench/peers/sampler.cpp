#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/peers/rows.h"

// Takes the samples of some rows of the comparison with other systems:
//
//   peers_sampler SECONDS FILE
//
// Each line of the file is a row: its kind, the maximum number of samples, and the fields of
// the kind (rows.h), separated by tabs. The program takes one sample of each row in turn, in
// random order, until the row has all its samples or has used SECONDS. It then prints a line
// for each row: its samples, separated by tabs, a second figure after a space.

namespace {

using bench::peers::Fields;
using bench::peers::Sampler;
using Clock = std::chrono::steady_clock;

struct Row {
  Sampler sample;
  unsigned long maximum = 0;
  std::chrono::duration<double> spent{0};
  std::vector<std::vector<double>> samples = {};
};

Row makeRow(const std::string& line) {
  static const std::map<std::string, Sampler (*)(Fields&)> kinds{
      {"run", bench::peers::programTime},
      {"memory", bench::peers::programMemory},
      {"pipe", bench::peers::pipeTransfer},
      {"round-trip", bench::peers::roundTrip},
      {"poll", bench::peers::pollCall},
      {"shown", bench::peers::updateLatency},
      {"stores", bench::peers::storeRate},
      {"burst", bench::peers::burstRate},
      {"model-stores", bench::peers::modelStoreRate},
      {"model-changes", bench::peers::modelChangeRate},
      {"printed-changes", bench::peers::printedChangeRate},
  };
  Fields fields(line);
  const std::string name = fields.text();
  const auto kind = kinds.find(name);
  if (kind == kinds.end()) {
    throw std::runtime_error("no such kind of row: " + name);
  }
  const unsigned long maximum = fields.number();
  return {kind->second(fields), maximum};
}

void takeSamples(std::vector<Row>& rows, double secondsEach) {
  std::vector<Row*> unfinished;
  for (Row& row : rows) {
    unfinished.push_back(&row);
  }
  std::mt19937 order;
  while (!unfinished.empty()) {
    // A random order, so that no row always follows the same other one.
    std::shuffle(unfinished.begin(), unfinished.end(), order);
    for (Row* const row : unfinished) {
      const Clock::time_point begin = Clock::now();
      row->samples.push_back(row->sample());
      row->spent += Clock::now() - begin;
    }
    std::erase_if(unfinished, [secondsEach](const Row* row) {
      return row->samples.size() >= row->maximum || row->spent.count() >= secondsEach;
    });
  }
}

void print(const Row& row) {
  const char* separator = "";
  for (const std::vector<double>& sample : row.samples) {
    for (const double figure : sample) {
      std::printf("%s%.17g", separator, figure);
      separator = " ";
    }
    separator = "\t";
  }
  std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 3) {
      throw std::runtime_error("usage: peers_sampler SECONDS FILE");
    }
    std::vector<Row> rows;
    std::ifstream file(argv[2]);
    for (std::string line; std::getline(file, line);) {
      rows.push_back(makeRow(line));
    }
    takeSamples(rows, std::strtod(argv[1], nullptr));
    for (const Row& row : rows) {
      print(row);
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "peers_sampler: %s\n", error.what());
    return 1;
  }
}
