#include "model/update_display.h"

#include <cstring>

#include "model/model_client.h"
#include "modelsrv/model_part.h"
#include "shell/command_table.h"
#include "shell/paths.h"
#include "term/line_listing.h"
#include "term/shown_text.h"
#include "term/standard_output.h"

namespace treescope {

IdChain decodeUpdate(EvtSrv::MemoryHolder& data) {
  IdChain chain;
  while (!data.atEnd()) {
    const std::size_t offset = data.getCurrentOffset(sizeof(std::uint16_t));
    if (offset + sizeof(std::uint16_t) > data.size()) {
      break;
    }
    const std::uint8_t* bytes = data.bytes() + offset;
    std::uint16_t id = 0;
    if (data.bytes()[0] == 1) {
      id = static_cast<std::uint16_t>(bytes[0] * 256 + bytes[1]);
    } else {
      std::memcpy(&id, bytes, sizeof id);
    }
    if (id == ModelSrv::ModelPartIndex_Void) {
      break;
    }
    chain.push_back(id);
  }
  return chain;
}

void printUpdate(ModelClient& client, const IdChain& chain, ScreenPrinter& printer) {
  if (client.isLeaving()) {
    return;
  }
  std::vector<std::string> names;
  ListingNode listing;
  {
    const ModelClient::TimeLimit limit(client);
    names = client.cachedNamePathOf(chain);
    // What takes too much memory is left out.
    static_cast<void>(client.buildTree(listing, optionLong | ModelClient::optionBelowOnly, chain,
                                       names.empty() ? std::string() : names.back(), 1, true,
                                       false));
  }
  // Else names and values may be missing because their requests were not made.
  if (!client.isLeaving()) {
    const std::string path = shownText(pathText(names));
    const OutputSpan span;
    printer.printLine({0, colourDefault, path.c_str()}, false);
    printLongTree(printer, listing, false, false);
    flushOutput();
  }
  freeTree(listing);
}

}  // namespace treescope
