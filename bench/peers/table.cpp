#include "bench/peers/table.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <map>
#include <random>
#include <stdexcept>
#include <utility>

namespace bench::peers {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// With three digits that count, or all in front of the point.
std::string number(double value) {
  std::array<char, 64> text{};
  const double size = std::abs(value);
  const int digits = size >= 100 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : 3;
  std::snprintf(text.data(), text.size(), "%.*f", digits, value);
  std::string shown = text.data();
  const std::size_t whole = std::min(shown.find('.'), shown.size());
  for (std::size_t at = whole; at > 3 && whole > 4; at -= 3) {
    shown.insert(at - 3, 1, ',');
  }
  return shown;
}

/// The value behind `key` in a file of "key : value" lines.
std::string valueIn(const char* file, const std::string& key, char separator) {
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(key)) {
      std::string value = line.substr(std::min(line.find(separator), line.size() - 1) + 1);
      std::erase(value, '"');
      return value.substr(std::min(value.find_first_not_of(' '), value.size()));
    }
  }
  return "unknown";
}

std::string machine() {
  utsname system{};
  if (::uname(&system) != 0) {
    throw std::runtime_error("uname");
  }
  // What follows a hyphen names who built it.
  const std::string release(system.release);
  return std::to_string(::sysconf(_SC_NPROCESSORS_ONLN)) + " processors (" +
         valueIn("/proc/cpuinfo", "model name", ':') + "), " + system.sysname + ' ' +
         release.substr(0, release.find('-')) + ", " +
         valueIn("/etc/os-release", "PRETTY_NAME", '=');
}

std::string today() {
  const std::time_t now = std::time(nullptr);
  std::array<char, 32> text{};
  std::tm parts{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d", ::gmtime_r(&now, &parts));
  return text.data();
}

/// Numbers the notes in the order of their first use; the same text has one number.
class Notes {
 public:
  std::string mark(const std::string& note) {
    if (note.empty()) {
      return {};
    }
    const auto [found, isNew] = numbers_.try_emplace(note, numbers_.size() + 1);
    if (isNew) {
      text_ += std::to_string(found->second) + ". " + note + '\n';
    }
    return " [" + std::to_string(found->second) + ']';
  }

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::map<std::string, std::size_t> numbers_;
  std::string text_;
};

std::string line(const Row& row, const Row* ours, Notes& notes) {
  std::string text = "| " + row.who + " | " + row.how + notes.mark(row.note) + " | ";
  if (row.samples.empty()) {
    return text + "| | | | |\n";
  }
  text += number(median(row)) + " | " + number(quantile(row.samples, 0.1)) + " | " +
          number(quantile(row.samples, 0.9)) + " | " + std::to_string(row.samples.size()) + " | ";
  if (ours != nullptr && ours != &row && !ours->samples.empty()) {
    text += number(median(*ours) / median(row));
  }
  return text + " |\n";
}

/// The first row that is neither the bare cost nor a peer's.
const Row* oursIn(const Work& work) {
  const auto found = std::find_if(work.rows.begin(), work.rows.end(),
                                  [](const Row& row) { return row.who == "treescope"; });
  return found == work.rows.end() ? nullptr : &*found;
}

}  // namespace

double quantile(const std::vector<double>& samples, double part) {
  std::vector<double> sorted = samples;
  std::sort(sorted.begin(), sorted.end());
  return sorted[static_cast<std::size_t>(
      std::lround(part * static_cast<double>(sorted.size() - 1)))];
}

double median(const Row& row) {
  return quantile(row.samples, 0.5);
}

void measure(Work& work, double secondsEach) {
  std::fprintf(stderr, "%s ...\n", work.title.c_str());
  std::vector<std::pair<Row*, double>> turns;
  for (Row& row : work.rows) {
    if (row.measure != nullptr) {
      turns.emplace_back(&row, 0);
    }
  }
  std::mt19937 order;
  while (!turns.empty()) {
    // Nobody always comes behind the same one.
    std::shuffle(turns.begin(), turns.end(), order);
    for (auto& [row, spent] : turns) {
      const Clock::time_point begin = Clock::now();
      row->samples.push_back(row->measure());
      spent += secondsSince(begin);
    }
    std::erase_if(turns, [secondsEach](const auto& turn) {
      return turn.first->samples.size() >= turn.first->runs || turn.second >= secondsEach;
    });
  }
  // What they measured with may go now.
  for (Row& row : work.rows) {
    row.measure = nullptr;
  }
}

std::string page(const std::list<Work>& works, const std::vector<Target>& targets,
                 const std::string& explanation) {
  std::string text = "# treescope beside other systems\n\nMeasured with `script/bench` on " +
                     today() + ": " + machine() + ".\n\n" + explanation + '\n';
  Notes notes;
  text +=
      "| | | median | p10 | p90 | runs | ours / this |\n"
      "|:--|:--|--:|--:|--:|--:|--:|\n";
  for (const Work& work : works) {
    text += "| **" + work.title + "** | *" + work.unit + "* | | | | | |\n";
    for (const Row& row : work.rows) {
      text += line(row, oursIn(work), notes);
    }
  }
  text +=
      '\n' + notes.text() + "\n## Targets\n\n| target | reached | wanted | |\n|:--|--:|--:|:--|\n";
  for (const Target& target : targets) {
    text += "| " + target.text + " | " + number(target.reached) + " | " +
            (target.least ? "at least " : "at most ") + number(target.wanted) + " | " +
            (target.met() ? "met" : "**missed**") + " |\n";
  }
  return text;
}

}  // namespace bench::peers
