#include "tools/display/chart.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "tools/display/canvas.h"
#include "tools/display/scale.h"

namespace treectl {

namespace {

/// The series that share a scale, as positions in the list of all.
struct Panel {
  std::string unit;
  std::vector<std::size_t> series;
  std::size_t legendRows = 0;
  std::size_t plotRows = 0;
  std::optional<Scale> scale;
};

/// The least and the greatest of some values.
struct Range {
  double least = INFINITY;
  double greatest = -INFINITY;

  void add(double value) {
    // Comparisons with not a number are false.
    least = value < least ? value : least;
    greatest = value > greatest ? value : greatest;
  }
  [[nodiscard]] bool isEmpty() const { return least > greatest; }
};

constexpr std::size_t leastPlotRows = 3;

/// Draws one chart.
class ChartPainter {
 public:
  ChartPainter(const std::vector<Series>& series, Size size, std::int64_t now, const Style& style,
               std::size_t more)
      : series_(series), size_(size), now_(now), style_(style), more_(more) {}

  std::vector<ScreenLine> run() {
    collectPanels();
    shareRows();
    findScales();
    for (std::size_t i = 0; i < texts_.size() && i < textRows_; ++i) {
      appendLegend(texts_[i], i + 1 == textRows_ ? texts_.size() - textRows_ : 0);
    }
    for (const Panel& panel : panels_) {
      appendPanel(panel);
    }
    appendAxis();
    lines_.resize(std::min(lines_.size(), size_.rows));
    return std::move(lines_);
  }

 private:
  void collectPanels() {
    for (std::size_t i = 0; i < series_.size(); ++i) {
      if (series_[i].trace == nullptr) {
        texts_.push_back(i);
        continue;
      }
      auto panel = std::find_if(panels_.begin(), panels_.end(),
                                [&](const Panel& one) { return one.unit == series_[i].unit; });
      if (panel == panels_.end()) {
        panel = panels_.insert(panel, Panel{series_[i].unit, {}, 0, 0, std::nullopt});
      }
      panel->series.push_back(i);
    }
  }

  /// Divides the rows of the terminal. What does not fit is counted.
  void shareRows() {
    constexpr std::size_t leastWithAxis = 7;
    axisRows_ = panels_.empty() || size_.rows < leastWithAxis ? 0 : 2;
    std::size_t rows = size_.rows - axisRows_;
    textRows_ = std::min(texts_.size(), panels_.empty() ? rows : rows / 4);
    rows -= textRows_;
    if (textRows_ == 0) {
      more_ += texts_.size();
    }
    while (panels_.size() > 1 && panels_.size() * (leastPlotRows + 1) > rows) {
      more_ += panels_.back().series.size();
      panels_.pop_back();
    }
    for (std::size_t i = 0; i < panels_.size(); ++i) {
      const std::size_t own = rows / panels_.size() + (i < rows % panels_.size() ? 1 : 0);
      const std::size_t most = own > leastPlotRows ? own - leastPlotRows : own > 1 ? 1 : 0;
      panels_[i].legendRows = std::min(panels_[i].series.size(), most);
      panels_[i].plotRows = own - panels_[i].legendRows;
    }
  }

  [[nodiscard]] std::int64_t left() const { return now_ - Trace::window; }

  void findScales() {
    for (Panel& panel : panels_) {
      Range range;
      for (const std::size_t index : panel.series) {
        const std::deque<Trace::Bin>& bins = series_[index].trace->bins();
        for (std::size_t i = 0; i < bins.size(); ++i) {
          // What held at the left edge began before it.
          const bool isInside = bins[i].time >= left();
          if (isInside) {
            range.add(bins[i].least);
            range.add(bins[i].greatest);
          } else if (i + 1 == bins.size() || bins[i + 1].time > left()) {
            range.add(bins[i].last);
          }
        }
      }
      if (!range.isEmpty()) {
        panel.scale.emplace(range.least, range.greatest, panel.plotRows);
        for (const double tick : panel.scale->ticks()) {
          labelColumns_ = std::max(labelColumns_, panel.scale->label(tick).size());
        }
      }
    }
    // A narrow terminal is for the curves.
    if (labelColumns_ + 1 > size_.columns / 2) {
      labelColumns_ = 0;
    }
    plotColumns_ = size_.columns > labelColumns_ + 1 ? size_.columns - labelColumns_ - 1 : 0;
  }

  /// One line: the mark of the series, its address, value and unit. `hidden` others are only
  /// counted.
  void appendLegend(std::size_t index, std::size_t hidden) {
    const Series& series = series_[index];
    ScreenLine line;
    const bool hasCurve = series.trace != nullptr;
    if (hasCurve) {
      appendLook(line, penOf(index).look, style_);
    }
    const char mark[] = {hasCurve ? penOf(index).mark : ' ', 0};
    appendCut(line, hasCurve && style_.utf8 && style_.colored ? "━" : mark, size_.columns, style_);
    if (hasCurve) {
      endLook(line, style_);
    }
    std::string value = "  " + series.value;
    if (!series.unit.empty()) {
      value += ' ' + series.unit;
    }
    if (hidden > 0) {
      value += "  (+" + std::to_string(hidden) + " more)";
    }
    // The address is cut first: its value is what changes.
    const std::size_t valueColumns = columnsOf(value);
    const std::size_t room = size_.columns - line.columns;
    const std::size_t least = std::min<std::size_t>(room, 9);
    appendCut(line, ' ' + series.label, room > valueColumns + least ? room - valueColumns : least,
              style_);
    appendCut(line, value, size_.columns - line.columns, style_);
    lines_.push_back(std::move(line));
  }

  void appendPanel(const Panel& panel) {
    for (std::size_t i = 0; i < panel.legendRows; ++i) {
      const bool isLast = i + 1 == panel.legendRows;
      const std::size_t others = &panel == &panels_.back() ? more_ : 0;
      appendLegend(panel.series[i], isLast ? panel.series.size() - panel.legendRows + others : 0);
    }
    if (panel.plotRows == 0) {
      return;
    }
    // Without colours, dots of several series cannot be told apart.
    const bool braille = style_.utf8 && (style_.colored || panel.series.size() == 1);
    Canvas canvas(panel.plotRows, plotColumns_, braille);
    std::vector<std::string> labels(panel.plotRows);
    if (panel.scale) {
      for (const std::size_t index : panel.series) {
        drawCurve(canvas, *panel.scale, index);
      }
      for (const double tick : panel.scale->ticks()) {
        labels[panel.scale->positionOf(tick, panel.plotRows)] = panel.scale->label(tick);
      }
    }
    for (std::size_t row = 0; row < panel.plotRows; ++row) {
      ScreenLine line;
      appendEdge(line, labels[row]);
      canvas.appendRow(line, row, style_);
      lines_.push_back(std::move(line));
    }
  }

  /// Draws a curve with steps: a value holds until the next one.
  void drawCurve(Canvas& canvas, const Scale& scale, std::size_t index) const {
    const std::deque<Trace::Bin>& bins = series_[index].trace->bins();
    const std::size_t width = canvas.width();
    if (width == 0) {
      return;
    }
    // Whole dots, so that a curve moves without changing its form.
    const std::int64_t step = std::max<std::int64_t>(1, Trace::window / std::int64_t(width));
    const std::int64_t end = (now_ / step + 1) * step;
    double held = NAN;
    std::size_t next = 0;
    for (std::size_t x = 0; x < width; ++x) {
      const std::int64_t dotEnd = end - std::int64_t(width - 1 - x) * step;
      const std::int64_t dotBegin = dotEnd - step;
      Range range;
      for (; next < bins.size() && bins[next].time < dotBegin; ++next) {
        held = bins[next].last;
      }
      range.add(held);
      for (; next < bins.size() && bins[next].time < dotEnd; ++next) {
        range.add(bins[next].least);
        range.add(bins[next].greatest);
        held = bins[next].last;
      }
      if (!range.isEmpty()) {
        canvas.draw(x, scale.positionOf(range.greatest, canvas.height()),
                    scale.positionOf(range.least, canvas.height()), index);
      }
    }
  }

  /// The axis at the left, with the label of a tick if this row has one.
  void appendEdge(ScreenLine& line, const std::string& label) const {
    if (labelColumns_ > 0) {
      line.text.append(labelColumns_ - label.size(), ' ');
      line.text += label;
      line.columns += labelColumns_;
    }
    const bool hasTick = !label.empty();
    appendPlainCells(line, style_.utf8 ? hasTick ? "┤" : "│" : hasTick ? "+" : "|", 1);
  }

  /// The axis of time at the bottom, and its labels: seconds before now.
  void appendAxis() {
    if (axisRows_ == 0) {
      return;
    }
    constexpr std::size_t labelRoom = 10;
    constexpr std::int64_t seconds = Trace::window / 1'000'000;
    std::int64_t interval = seconds;
    for (const std::int64_t shorter : {30, 15, 10, 5}) {
      if (std::size_t(seconds / shorter) * labelRoom <= plotColumns_) {
        interval = shorter;
      }
    }
    ScreenLine axis;
    axis.text.append(labelColumns_, ' ');
    appendPlainCells(axis, style_.utf8 ? "└" : "+", labelColumns_ + 1);
    std::string labels(labelColumns_ + 1 + plotColumns_, ' ');
    std::size_t at = 0;
    for (std::int64_t ago = seconds; ago >= 0 && plotColumns_ > 0; ago -= interval) {
      const std::size_t column = static_cast<std::size_t>(
          (seconds - ago) * static_cast<std::int64_t>(plotColumns_ - 1) / seconds);
      if (column < at) {
        continue;  // A narrow axis has several ticks in one column.
      }
      for (; at < column; ++at) {
        appendPlainCells(axis, style_.utf8 ? "─" : "-", 1);
      }
      appendPlainCells(axis, style_.utf8 ? "┴" : "+", 1);
      ++at;
      placeLabel(labels, ago == 0 ? "now" : "-" + std::to_string(ago) + " s", column);
    }
    lines_.push_back(std::move(axis));
    ScreenLine line;
    labels.erase(labels.find_last_not_of(' ') + 1);
    appendCut(line, labels, size_.columns, style_);
    lines_.push_back(std::move(line));
  }

  /// Writes a label below a column of the plot, inside the line, if nothing is there.
  void placeLabel(std::string& labels, const std::string& text, std::size_t column) const {
    const std::size_t middle = labelColumns_ + 1 + column;
    const std::size_t begin = std::min(middle - std::min(middle, text.size() / 2),
                                       labels.size() - std::min(labels.size(), text.size()));
    if (begin + text.size() <= labels.size() &&
        labels.find_first_not_of(' ', begin == 0 ? 0 : begin - 1) == std::string::npos) {
      labels.replace(begin, text.size(), text);
    }
  }

  const std::vector<Series>& series_;
  Size size_;
  std::int64_t now_;
  const Style& style_;
  std::size_t more_;
  std::vector<Panel> panels_;
  std::vector<std::size_t> texts_;  ///< the series without curves
  std::size_t textRows_ = 0;
  std::size_t axisRows_ = 0;
  std::size_t labelColumns_ = 0;
  std::size_t plotColumns_ = 0;
  std::vector<ScreenLine> lines_;
};

}  // namespace

std::vector<ScreenLine> drawChart(const std::vector<Series>& series, Size size, std::int64_t now,
                                  const Style& style, std::size_t more) {
  if (size.rows == 0 || size.columns == 0) {
    return {};
  }
  return ChartPainter(series, size, now, style, more).run();
}

std::int64_t chartStep(Size size) {
  // Two dots a character; with one, every second step changes nothing.
  const auto dots = static_cast<std::int64_t>(std::max<std::size_t>(1, size.columns) * 2);
  return std::max(Trace::binLength, Trace::window / dots);
}

}  // namespace treectl
