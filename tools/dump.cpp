#include "tools/commands.h"
#include "tools/input.h"
#include "tools/match.h"
#include "tools/tree_image.h"

namespace treectl {

namespace {

/// Prints a dump while it is made, when nothing can fail any more.
void printDump(Context& context, const Address& address) {
  Output& output = context.output();
  TreeImage image;
  bool hasHeader = false;
  const auto appendHeader = [&] {
    if (!hasHeader) {
      hasHeader = true;
      appendImageHeader(output.text(), image);
    }
  };
  const bool isRead = readImage(context, address, image, [&](const ImagePart& part) {
    appendHeader();
    appendImagePart(output.text(), part);
    output.writeIfLarge();
  });
  if (isRead) {
    appendHeader();
    appendImageEnd(output.text());
  }
}

}  // namespace

void runDump(Context& context) {
  const Options& options = context.options();
  std::vector<Address> addresses;
  if (!parseAddresses(context, options.operands, addresses)) {
    return;
  }
  if (options.file.empty() && !addresses.front().hasWildcards()) {
    printDump(context, addresses.front());
    return;
  }
  TreeImage image;
  if (!readImage(context, addresses.front(), image)) {
    return;
  }
  // Written at once: a dump is whole or there is none.
  std::string text;
  appendImage(text, image);
  if (options.file.empty()) {
    context.output().text() += text;
  } else if (const int error = replaceFile(options.file, text)) {
    context.fail(Status::ioError, options.file, errorText(error));
  }
}

}  // namespace treectl
