#pragma once

#include <string>

#include "tools/json_object.h"
#include "tools/name_pattern.h"
#include "tools/time_text.h"
#include "tools/watched_tree.h"

namespace treectl {

/// Adds what finds a part that has another name, or none, in its address: "ids", those from the
/// root's child on, and "name" if there is one, as addresses have names. `out` is the text that
/// `object` is appended to.
inline void addPlace(JsonObject& object, std::string& out, const Chain& ids,
                     const std::string& name) {
  object.addKey("ids");
  out += '[';
  for (std::size_t i = 0; i < ids.size(); ++i) {
    out += (i == 0 ? "" : ",") + std::to_string(ids[i]);
  }
  out += ']';
  if (!name.empty()) {
    std::string escaped;
    appendEscapedName(escaped, name);
    object.addText("name", escaped);
  }
}

/// Appends a change as a line of JSON. Not of a value that is missing.
inline void appendJsonChange(std::string& out, const Change& change) {
  using Event = Change::Event;
  JsonObject object(out);
  object.addText("time", utcTime(change.time));
  object.addText("address", change.address.empty() ? "/" : change.address);
  if (!change.ids.empty()) {
    addPlace(object, out, change.ids, change.name);
  }
  if (change.event == Event::added || change.event == Event::removed) {
    // A program that does not know changes of the structure has nothing to do at this event.
    object.addText("event", "restored");
    object.addText("structure", change.event == Event::added ? "added" : "removed");
  } else if (change.event != Event::value) {
    object.addText("event", change.event == Event::lost ? "lost" : "restored");
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
