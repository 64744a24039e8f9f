#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>

#include "bench/baseline_pipes.h"
#include "bench/peers/rows.h"
#include "bench/programs.h"

namespace bench::peers {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long firstValue = 1'000'000;

}  // namespace

Sampler programTime(Fields& fields) {
  const std::size_t lines = fields.number();
  std::vector<Template> words;
  for (const std::string& word : fields.rest()) {
    words.emplace_back(word);
  }
  return [lines, words, value = firstValue]() mutable -> std::vector<double> {
    ++value;
    CommandLine commandLine;
    for (Template& word : words) {
      commandLine.push_back(word.with(value));
    }
    const Run run = runProgram(commandLine, Launch::spawn);
    if (run.lines < lines) {
      throw std::runtime_error(commandLine.front() + " wrote too few lines: " + run.output);
    }
    return {run.seconds * 1e3};
  };
}

Sampler programMemory(Fields& fields) {
  return [words = fields.rest()]() -> std::vector<double> {
    return {runProgram(words, Launch::fork).peakBytes / 1024};
  };
}

Sampler pipeTransfer(Fields& fields) {
  return [bytes = fields.number()]() -> std::vector<double> {
    const Pipe pipe;
    std::array<char, 65536> buffer{};
    const Clock::time_point begin = Clock::now();
    const Child writer([&] {
      for (std::size_t left = bytes; left > 0;) {
        const ssize_t count = ::write(pipe.writing, buffer.data(), std::min(left, buffer.size()));
        if (count <= 0) {
          return;
        }
        left -= static_cast<std::size_t>(count);
      }
    });
    ::close(pipe.writing);
    std::size_t received = 0;
    for (ssize_t count = 1; received < bytes && count > 0;) {
      count = ::read(pipe.reading, buffer.data(), buffer.size());
      received += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    const std::chrono::duration<double, std::milli> taken = Clock::now() - begin;
    ::close(pipe.reading);
    if (received < bytes) {
      throw std::runtime_error("too few bytes from a pipe");
    }
    return {taken.count()};
  };
}

Sampler roundTrip(Fields& /*fields*/) {
  return [pipes = std::make_shared<BaselinePipes>(std::nullopt)]() -> std::vector<double> {
    const Clock::time_point begin = Clock::now();
    if (!pipes->roundTrip()) {
      throw std::runtime_error("the baseline round trip failed");
    }
    return {std::chrono::duration<double, std::micro>(Clock::now() - begin).count()};
  };
}

Sampler pollCall(Fields& /*fields*/) {
  return []() -> std::vector<double> {
    constexpr int calls = 100;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < calls; ++i) {
      if (::poll(&input, 1, 0) < 0) {
        throw std::runtime_error("poll");
      }
    }
    return {std::chrono::duration<double, std::micro>(Clock::now() - begin).count() / calls};
  };
}

}  // namespace bench::peers
