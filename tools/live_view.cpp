#include "tools/live_view.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>

namespace treectl {

namespace {

/// The text of a value as it is shown: a text that begins like an event has a backslash.
std::string shownValue(const std::vector<std::string>& texts) {
  std::string value;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    value += i == 0 ? "" : " ";
    value += texts[i];
  }
  return value.starts_with('!') ? '\\' + value : value;
}

constexpr const char* lostText = "!lost";

std::string unitOf(const WatchedPart& part) {
  return part.description == nullptr ? "" : part.description->attributes.unit;
}

/// Whether values of this type can be drawn.
bool isNumeric(std::string_view type) {
  return type.starts_with("int") || type.starts_with("uint") || type == "float" ||
         type == "double" || type == "bool";
}

double numberOf(const std::string& text) {
  return text == "true" ? 1 : text == "false" ? 0 : std::strtod(text.c_str(), nullptr);
}

/// The time of day with milliseconds, of a time with a date and microseconds.
std::string clockTime(std::int64_t time) {
  constexpr std::size_t dateSize = 11;
  constexpr std::size_t size = 12;
  return localTime(time).substr(dateSize, size);
}

std::string elementAddress(const std::string& address, std::size_t index) {
  return address + '[' + std::to_string(index) + ']';
}

}  // namespace

void LiveTable::take(const Change& /*change*/) {}

std::vector<ScreenLine> LiveTable::draw(const Watcher& watcher, Size size, std::int64_t /*now*/,
                                        const Style& style) {
  if (size != size_) {
    size_ = size;
    widths_ = {};
  }
  std::size_t total = 0;
  watcher.forEachPart([&](const WatchedPart& /*part*/) { ++total; });
  const std::size_t shown = tableRows(total, size);
  std::vector<TableRow> rows;
  watcher.forEachPart([&](const WatchedPart& part) {
    if (rows.size() == shown) {
      return;
    }
    TableRow row{part.address, "", unitOf(part), part.time == 0 ? "" : clockTime(part.time),
                 part.isLost};
    if (part.isLost) {
      row.value = lostText;
    } else if (part.value) {
      row.value = shownValue(part.value->texts);
    }
    rows.push_back(std::move(row));
  });
  return drawTable(rows, total - rows.size(), size, style, widths_);
}

void LiveChart::add(const std::string& address, std::int64_t time, const std::string& text) {
  auto trace = traces_.find(address);
  if (trace == traces_.end()) {
    if (traces_.size() == mostSeries) {
      return;
    }
    trace = traces_.try_emplace(address).first;
  }
  trace->second.add(time, numberOf(text));
}

void LiveChart::take(const Change& change) {
  if (change.event != Change::Event::value || change.description == nullptr ||
      !isNumeric(change.description->type)) {
    return;
  }
  // The clock of a server behind a gateway may be ahead.
  const std::int64_t time = std::min(change.time, microsecondsNow());
  if (!change.value.isArray) {
    add(change.address, time, change.value.texts.front());
    return;
  }
  for (std::size_t i = 0; i < change.value.texts.size(); ++i) {
    add(elementAddress(change.address, i), time, change.value.texts[i]);
  }
}

void LiveChart::addSeries(std::vector<Series>& series, const WatchedPart& part, std::int64_t now) {
  const Value value = part.value.value_or(Value{{""}, false});
  const bool isNumber = part.description != nullptr && isNumeric(part.description->type);
  if (!isNumber) {
    series.push_back(
        {part.address, part.isLost ? lostText : shownValue(value.texts), unitOf(part), nullptr});
    return;
  }
  for (std::size_t i = 0; i < value.texts.size(); ++i) {
    const std::string address = value.isArray ? elementAddress(part.address, i) : part.address;
    const auto trace = traces_.find(address);
    if (trace == traces_.end() && part.value) {
      continue;  // One too many.
    }
    if (trace != traces_.end() && part.isLost) {
      trace->second.addGap(now);
    }
    series.push_back({address, part.isLost ? lostText : value.texts[i], unitOf(part),
                      trace == traces_.end() ? nullptr : &trace->second});
  }
}

std::vector<ScreenLine> LiveChart::draw(const Watcher& watcher, Size size, std::int64_t now,
                                        const Style& style) {
  std::vector<Series> series;
  std::size_t more = 0;
  watcher.forEachPart([&](const WatchedPart& part) {
    const std::size_t before = series.size();
    if (before < mostSeries) {
      addSeries(series, part, now);
    }
    more += series.size() == before ? 1 : 0;
  });
  // The traces of parts that have left.
  std::set<const Trace*> used;
  for (const Series& one : series) {
    used.insert(one.trace);
  }
  std::erase_if(traces_, [&](const auto& item) { return used.count(&item.second) == 0; });
  return drawChart(series, size, now, style, more);
}

}  // namespace treectl
