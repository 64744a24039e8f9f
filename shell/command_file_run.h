#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "shell/command_file.h"
#include "shell/results.h"

namespace treescope {

class ScopeBase;

/// One run of a command file and of the files that its commands run in turn.
///
/// The open files are kept in a list, not in nested calls, so a level costs a descriptor
/// and little memory, but no stack: a command that runs a file only adds it (`add`), and
/// it is run after the command's handler has returned. Used by the thread that runs the
/// commands.
class CommandFileRun {
 public:
  /// `shell` is not owned and must outlive this.
  explicit CommandFileRun(ScopeBase& shell) : shell_(shell) {}
  CommandFileRun(const CommandFileRun&) = delete;
  CommandFileRun& operator=(const CommandFileRun&) = delete;

  /// Opens `fileName` as the next file to run; the current one continues after it.
  /// Returns `result::success`, or `result::openFileError` and changes nothing.
  int add(const char* fileName);

  /// Runs the files to their end. Returns the result of the file that was added first.
  int run();

 private:
  struct OpenFile {
    explicit OpenFile(const char* fileName) : file(fileName) {}

    /// Reads a line if all commands of the last one were run; false at the end of the
    /// file.
    bool fetchCommand();
    /// Requires a fetched command.
    std::string takeCommand();

    CommandFile file;
    /// The commands of the line that are still to run, the next one last.
    std::vector<std::string> commands;
    /// Of the last line so far.
    int code = result::nothing;
  };

  void runCommand();
  void endFile();
  void endCommand(int code);

  ScopeBase& shell_;
  /// Each file was added by a command of the one before it.
  std::deque<OpenFile> files_;
  /// The result of the last file, once it has ended.
  std::optional<int> ended_;
  int result_ = result::nothing;
};

}  // namespace treescope
