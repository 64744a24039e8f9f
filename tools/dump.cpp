#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tools/commands.h"
#include "tools/match.h"
#include "tools/replaced_file.h"
#include "tools/tree_image.h"

namespace treectl {

namespace {

/// Makes a dump while the tree is read, in pieces.
class DumpText {
 public:
  /// `take` gets each piece, which it may keep, and `restart` is called if those are void.
  using PieceTaker = std::function<void(std::string& piece)>;
  DumpText(PieceTaker take, std::function<void()> restart)
      : take_(std::move(take)), restart_(std::move(restart)) {
    begin();
  }

  /// False after an error, which has been reported.
  bool read(Context& context, const Address& address) {
    const auto restart = [this] {
      begin();
      restart_();
    };
    if (!readImage(
            context, address, image_, [this](const ImagePart& part) { add(part); }, restart)) {
      return false;
    }
    addHeader();
    writer_.end();
    take_(text_);
    return true;
  }

 private:
  static constexpr std::size_t pieceSize = std::size_t{64} * 1024;

  void begin() {
    hasHeader_ = false;
    text_.clear();
    text_.reserve(pieceSize);
  }
  void add(const ImagePart& part) {
    addHeader();
    writer_.addPart(part);
    // The next part would make the text move.
    constexpr std::size_t usualPart = 256;
    if (text_.size() + usualPart >= pieceSize) {
      take_(text_);
      text_.clear();
      text_.reserve(pieceSize);
    }
  }
  void addHeader() {
    if (!std::exchange(hasHeader_, true)) {
      writer_.addHeader(image_);
    }
  }

  PieceTaker take_;
  std::function<void()> restart_;
  std::string text_;
  ImageWriter writer_{text_};
  TreeImage image_;  ///< without parts
  bool hasHeader_ = false;
};

/// Makes a dump in memory, since it is whole or there is none.
void writeWholeDump(Context& context, const Address& address) {
  std::vector<std::string> pieces;
  DumpText dump([&](std::string& piece) { pieces.push_back(std::move(piece)); },
                [&] { pieces.clear(); });
  if (!dump.read(context, address)) {
    return;
  }
  const std::string& file = context.options().file;
  if (file.empty()) {
    for (std::string& piece : pieces) {
      context.output().text() = std::move(piece);
      context.output().flush();
    }
    return;
  }
  std::string text;
  for (const std::string& piece : pieces) {
    text += piece;
  }
  if (const int error = replaceFile(file, text)) {
    context.failFile(file, error);
  }
}

/// Writes a dump while it is read into a file that becomes visible at its end.
void streamDump(Context& context, const Address& address, UnnamedFile& file) {
  DumpText dump([&](const std::string& piece) { file.write(piece); }, [&] { file.clear(); });
  if (!dump.read(context, address)) {
    return;
  }
  if (const int error = file.commit()) {
    context.failFile(context.options().file, error);
  }
}

}  // namespace

void runDump(Context& context) {
  const Options& options = context.options();
  std::vector<Address> addresses;
  if (!parseAddresses(context, options.operands, addresses)) {
    return;
  }
  const Address& address = addresses.front();
  if (!options.file.empty()) {
    UnnamedFile file(options.file);
    if (file.isOpen()) {
      streamDump(context, address, file);
      return;
    }
  }
  writeWholeDump(context, address);
}

}  // namespace treectl
