#include "bench/peers/targets.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace bench::peers {

namespace {

using Wanted = std::function<bool(const Row&)>;

bool isOurs(const Row& row) {
  return row.who == "treescope";
}
bool isPeer(const Row& row) {
  return row.who != "treescope" && row.who != "bare";
}
/// A hash is flat: its names are paths to people only.
bool isTree(const Row& row) {
  return isPeer(row) && row.who != "Redis";
}

const Work& find(const std::list<Work>& works, std::string_view key) {
  const auto found =
      std::find_if(works.begin(), works.end(), [key](const Work& work) { return work.key == key; });
  if (found == works.end()) {
    throw std::runtime_error("nothing measured of " + std::string(key));
  }
  return *found;
}

/// The row with the least median, or the greatest, among those `wanted`.
const Row& best(const Work& work, const Wanted& wanted, bool greatest = false) {
  const Row* found = nullptr;
  for (const Row& row : work.rows) {
    if (wanted(row) && !row.samples.empty() &&
        (found == nullptr || (median(row) < median(*found)) != greatest)) {
      found = &row;
    }
  }
  if (found == nullptr) {
    throw std::runtime_error("nothing measured of " + work.title);
  }
  return *found;
}

/// The median of our first row, or of a later one, in medians of the best among
/// `others`.
Target beside(const Work& work, const std::string& what, const Wanted& others, double wanted,
              bool greatest = false, bool later = false) {
  auto found = std::find_if(work.rows.begin(), work.rows.end(), isOurs);
  if (later) {
    found = std::find_if(std::next(found), work.rows.end(), isOurs);
  }
  const Row& ours = *found;
  const Row& other = best(work, others, greatest);
  return {what + " (" + other.who + ": " + other.how + ")", median(ours) / median(other), wanted,
          greatest};
}

}  // namespace

std::vector<Target> judge(const std::list<Work>& works) {
  const Work& list = find(works, "list 10000");
  const auto tool = [](const Row& row) { return isTree(row) && !row.written; };
  const auto program = [](const Row& row) { return isTree(row) && row.written; };
  const auto hash = [](const Row& row) { return row.who == "Redis"; };
  const Row& shell = *std::find_if(find(works, "client memory").rows.begin(),
                                   find(works, "client memory").rows.end(), isOurs);
  return {
      beside(find(works, "read"), "one value read, beside the fastest peer", isPeer, 1),
      beside(find(works, "write"), "one value written, beside the fastest peer", isPeer, 1),
      beside(list, "10,000 values listed, beside the fastest tool that lists a tree", tool, 0.5),
      beside(list, "the same, beside a program written for a peer that has a tree", program, 0.5),
      beside(list, "the same, beside a flat hash", hash, 1),
      beside(find(works, "latency"), "a store until it is shown, beside the fastest peer", isPeer,
             1),
      beside(find(works, "answered"), "answered stores a second, beside the fastest peer", isPeer,
             1, true),
      beside(find(works, "stream"), "updates a second, beside the fastest peer", isPeer, 1, true),
      beside(find(works, "stream"), "the same, with each value asked for", isPeer, 1, true, true),
      {"memory of the shell for one value, KiB", median(shell), 6144},
  };
}

}  // namespace bench::peers
