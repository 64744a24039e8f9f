#include <utility>

#include "tools/commands.h"
#include "tools/match.h"
#include "tools/replaced_file.h"
#include "tools/tree_image.h"

namespace treectl {

namespace {

/// Appends a dump to a text, part by part.
class DumpText {
 public:
  explicit DumpText(std::string& text) : text_(text), writer_(text) {}

  [[nodiscard]] TreeImage& image() { return image_; }

  void add(const ImagePart& part) {
    addHeader();
    writer_.addPart(part);
  }
  void end() {
    addHeader();
    writer_.end();
  }
  void restart() {
    text_.clear();
    hasHeader_ = false;
  }

 private:
  void addHeader() {
    if (!std::exchange(hasHeader_, true)) {
      writer_.addHeader(image_);
    }
  }

  std::string& text_;
  ImageWriter writer_;
  TreeImage image_;  ///< without parts
  bool hasHeader_ = false;
};

/// Prints a dump while it is made, when nothing can fail any more.
void printDump(Context& context, const Address& address) {
  Output& output = context.output();
  DumpText dump(output.text());
  if (readImage(context, address, dump.image(), [&](const ImagePart& part) {
        dump.add(part);
        output.writeIfLarge();
      })) {
    dump.end();
  }
}

/// Makes a dump in memory, since it is whole or there is none.
void writeWholeDump(Context& context, const Address& address) {
  const std::string& file = context.options().file;
  std::string text;
  DumpText dump(text);
  if (!readImage(context, address, dump.image(), [&](const ImagePart& part) { dump.add(part); })) {
    return;
  }
  dump.end();
  if (file.empty()) {
    context.output().text() += text;
  } else if (const int error = replaceFile(file, text)) {
    context.failFile(file, error);
  }
}

/// Writes a dump while it is read into a file that becomes visible at its end.
void streamDump(Context& context, const Address& address, UnnamedFile& file) {
  constexpr std::size_t pieceSize = std::size_t{64} * 1024;
  std::string text;
  DumpText dump(text);
  const auto take = [&](const ImagePart& part) {
    dump.add(part);
    if (text.size() >= pieceSize) {
      file.write(text);
      text.clear();
    }
  };
  const auto restart = [&] {
    dump.restart();
    file.clear();
  };
  if (!readImage(context, address, dump.image(), take, restart)) {
    return;
  }
  dump.end();
  file.write(text);
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
  if (options.file.empty() && !address.hasWildcards()) {
    printDump(context, address);
    return;
  }
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
