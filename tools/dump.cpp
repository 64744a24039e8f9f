#include "tools/commands.h"
#include "tools/input.h"
#include "tools/match.h"
#include "tools/tree_image.h"

namespace treectl {

void runDump(Context& context) {
  const Options& options = context.options();
  std::vector<Address> addresses;
  TreeImage image;
  if (!parseAddresses(context, options.operands, addresses) ||
      !readImage(context, addresses.front(), image)) {
    return;
  }
  // Written at once: a dump is whole or there is none.
  if (options.file.empty()) {
    appendImage(context.output().text(), image);
    return;
  }
  std::string text;
  appendImage(text, image);
  if (const int error = replaceFile(options.file, text)) {
    context.fail(Status::ioError, options.file, errorText(error));
  }
}

}  // namespace treectl
