#include "servers/recording_file.h"

#include <limits>

#include <sys/types.h>

namespace modelsrvd {

RecordingFile::RecordingFile(const std::string& path)
    : path_(path), file_(path, static_cast<std::size_t>(std::numeric_limits<off_t>::max())) {}

std::optional<std::string_view> RecordingFile::next() {
  begun_.clear();
  for (;;) {
    const std::size_t end = piece_.find('\n');
    if (end != std::string_view::npos) {
      std::string_view text = piece_.substr(0, end);
      piece_.remove_prefix(end + 1);
      if (!begun_.empty()) {
        begun_ += text;
        text = begun_;
      }
      if (++line_ == 1) {
        secondLine_ = text.size() + 1;
      }
      return text;
    }
    begun_ += piece_;
    if (begun_.size() > maxLineBytes) {
      error_ = Error{oneLine(path_) + ": line " + std::to_string(line_ + 1) + ": longer than " +
                     std::to_string(maxLineBytes) + " bytes"};
    }
    piece_ = error_ ? std::string_view() : file_.next();
    if (piece_.empty()) {
      return std::nullopt;
    }
  }
}

void RecordingFile::rewind() {
  piece_ = {};
  line_ = 1;
  file_.seek(secondLine_);
}

}  // namespace modelsrvd
