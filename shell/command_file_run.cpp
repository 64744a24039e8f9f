#include "shell/command_file_run.h"

#include <algorithm>
#include <new>
#include <utility>

#include "shell/scope_base.h"
#include "shell/words.h"

namespace treescope {

bool CommandFileRun::OpenFile::fetchCommand() {
  if (!commands.empty()) {
    return true;
  }
  if (file.ended()) {
    return false;
  }
  commands = scriptCommands(file.nextLine().c_str(), true);
  std::ranges::reverse(commands);
  if (commands.empty()) {
    code = result::nothing;
  }
  return !commands.empty();
}

std::string CommandFileRun::OpenFile::takeCommand() {
  std::string command = std::move(commands.back());
  commands.pop_back();
  return command;
}

int CommandFileRun::add(const char* fileName) {
  if (!files_.empty()) {
    files_.back().file.releaseBuffer();
    files_.back().commands.shrink_to_fit();
  }
  if (!files_.emplace_back(fileName).file.opened()) {
    files_.pop_back();
    return result::openFileError;
  }
  return result::success;
}

int CommandFileRun::run() {
  while (!files_.empty()) {
    try {
      if (ended_) {
        endFile();
      } else {
        runCommand();
      }
    } catch (const std::bad_alloc&) {
      ended_ = result::outOfMemory;
    }
  }
  return result_;
}

void CommandFileRun::runCommand() {
  if (!files_.back().fetchCommand()) {
    ended_ = files_.back().code;
    return;
  }
  const std::string command = files_.back().takeCommand();
  const std::size_t open = files_.size();
  const int code = shell_.dispatchFrom(this, command.c_str());
  if (files_.size() == open) {
    endCommand(code);
  }
}

void CommandFileRun::endFile() {
  const int code = *ended_;
  files_.pop_back();
  ended_.reset();
  if (files_.empty()) {
    result_ = code;
    return;
  }
  endCommand(code);
  shell_.printResult(code);
}

void CommandFileRun::endCommand(int code) {
  const bool passed = code == result::success || code == result::nothing;
  files_.back().code = passed ? result::success : code;
  if (!passed) {
    ended_ = code;
  }
}

}  // namespace treescope
