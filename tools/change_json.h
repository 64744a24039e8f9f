#pragma once

#include <string>

#include "tools/json_object.h"
#include "tools/time_text.h"
#include "tools/watched_tree.h"

namespace treectl {

/// Appends a change as a line of JSON.
inline void appendJsonChange(std::string& out, const Change& change) {
  JsonObject object(out);
  object.addText("time", utcTime(change.time));
  object.addText("address", change.address.empty() ? "/" : change.address);
  if (change.event != Change::Event::value) {
    object.addText("event", change.event == Change::Event::lost ? "lost" : "restored");
  } else {
    object.addPart(*change.description, change.elementName);
    object.addValue(change.value, change.description->type);
    if (change.changes > 0) {
      object.addRaw("changes", std::to_string(change.changes));
    }
  }
  object.end();
  out += '\n';
}

}  // namespace treectl
