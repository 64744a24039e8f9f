#include "tools/display/chart.h"

#include <gmock/gmock.h>

#include <clocale>
#include <cmath>

#include "tools/display/painter.h"
#include "tools/display/table.h"

// What tables and charts look like: samples and a size become lines.

namespace treectl {
namespace {

constexpr std::int64_t oneSecond = 1'000'000;
constexpr std::int64_t now = 1'800'000'000 * oneSecond;
constexpr Style plainStyle{true, false};
constexpr Style asciiStyle{false, false};

/// The lines, each with a line feed. Each takes the columns that it says, and has no more than
/// `size` has.
std::string textOf(const std::vector<ScreenLine>& lines, Size size) {
  std::string text;
  for (const ScreenLine& line : lines) {
    EXPECT_LE(line.columns, size.columns) << line.text;
    if (line.text.find('\x1B') == std::string::npos) {
      EXPECT_EQ(columnsOf(line.text), line.columns) << line.text;
    }
    text += line.text + '\n';
  }
  EXPECT_LE(lines.size(), size.rows);
  return text;
}

class Chart : public testing::Test {
 protected:
  Chart() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
  ~Chart() override { std::setlocale(LC_CTYPE, "C"); }
};

TEST_F(Chart, HasAScaleATimeAxisAndTheUnit) {
  Trace load;
  load.add(now - 45 * oneSecond, 10);
  load.add(now - 30 * oneSecond, 90);
  const Size size{10, 33};
  EXPECT_EQ(textOf(drawChart({{"/S/load", "90", "%", &load}}, size, now, plainStyle), size),
            "* /S/load  90 %\n"
            "100┤              ⣀⣀⣀⣀⣀⣀⣀⣀⣀⣀⣀⣀⣀⣀⣀\n"
            "   │              ⡇\n"
            "   │              ⡇\n"
            " 50┤              ⡇\n"
            "   │              ⡇\n"
            "   │              ⡇\n"
            "  0┤      ⠈⠉⠉⠉⠉⠉⠉⠉⠁\n"
            "   └┴─────────────┴─────────────┴\n"
            "  -60 s         -30 s         now\n");
}

TEST_F(Chart, GivesEachUnitAScaleOfItsOwn) {
  Trace volts;
  volts.add(now - 60 * oneSecond, 230);
  Trace on;
  on.add(now - 60 * oneSecond, 1);
  Trace off;
  off.add(now - 60 * oneSecond, 0);
  const Size size{12, 30};
  EXPECT_EQ(textOf(drawChart({{"/S/volts", "230", "V", &volts},
                              {"/S/on", "true", "", &on},
                              {"/S/label", "idle", "", nullptr},
                              {"/S/off", "false", "", &off}},
                             size, now, asciiStyle),
                   size),
            "  /S/label  idle\n"
            "* /S/volts  230 V\n"
            "300+\n"
            "   |\n"
            "250+**************************\n"
            "200+\n"
            "+ /S/on  true  (+1 more)\n"
            "  1+++++++++++++++++++++++++++\n"
            "   |\n"
            "  0+xxxxxxxxxxxxxxxxxxxxxxxxxx\n"
            "   ++-----------+------------+\n"
            "  -60 s       -30 s        now\n");
}

TEST_F(Chart, ShowsGapsAndWhatHeldBefore) {
  Trace trace;
  trace.add(now - 90 * oneSecond, 5);
  trace.addGap(now - 30 * oneSecond);
  trace.add(now - 15 * oneSecond, NAN);
  trace.add(now - 10 * oneSecond, INFINITY);
  trace.add(now - 5 * oneSecond, 5);
  const Size size{4, 15};
  EXPECT_EQ(textOf(drawChart({{"a", "5", "", &trace}}, size, now, asciiStyle), size),
            "* a  5\n"
            "6+\n"
            "5+******    ***\n"
            "4+\n");
}

TEST_F(Chart, KeepsExtremesAndBoundsItsMemory) {
  Trace trace;
  for (std::int64_t i = 0; i < 500'000; ++i) {
    trace.add(now + i * 1000, i == 480'000 ? 1000 : 1);
  }
  EXPECT_LE(trace.bins().size(), 1203U);
  double greatest = 0;
  for (const Trace::Bin& bin : trace.bins()) {
    greatest = std::max(greatest, bin.greatest);
  }
  EXPECT_EQ(greatest, 1000);
  for (std::int64_t i = 0; i < 500'000; ++i) {
    trace.addGap(now + 500 * oneSecond + i * 1000);
  }
  EXPECT_LE(trace.bins().size(), 1203U);
}

TEST_F(Chart, FitsEverySize) {
  Trace trace;
  for (const double value : {1.0, -1e308, 1e308, 1e-300, 0.0, 123456.789}) {
    trace.add(now - 20 * oneSecond, value);
    trace.add(now - 10 * oneSecond, value + 1);
    const std::vector<Series> series{{"/Model_host/a long address of a part", "1", "mm", &trace},
                                     {"/Model_host/b", "\x01\xFF", "", &trace},
                                     {"/Model_host/\xE6\x97\xA5\xE6\x9C\xAC", "text", "", nullptr}};
    for (std::size_t rows = 0; rows < 14; ++rows) {
      for (std::size_t columns = 0; columns < 40; ++columns) {
        for (const Style& style : {plainStyle, asciiStyle, Style{true, true}}) {
          static_cast<void>(
              textOf(drawChart(series, {rows, columns}, now, style, 7), {rows, columns}));
        }
      }
    }
  }
  static_cast<void>(drawChart({{"a", "1", "", &trace}}, {50, 3000}, now, plainStyle));
  EXPECT_TRUE(drawChart({}, {0, 0}, now, plainStyle).empty());
}

TEST_F(Chart, TellsCurvesApartByColour) {
  Trace trace;
  trace.add(now - 60 * oneSecond, 5);
  const auto lines = drawChart({{"a", "5", "", &trace}}, {4, 15}, now, Style{true, true});
  EXPECT_EQ(lines[0].text, "\x1B[32m━\x1B[0m a  5");
  EXPECT_THAT(lines[2].text, testing::StartsWith("5┤\x1B[32m"));
  EXPECT_THAT(lines[2].text, testing::EndsWith("\x1B[0m"));
}

using Table = Chart;

TEST_F(Table, LeavesOutAndCutsWhatDoesNotFit) {
  const std::vector<TableRow> rows{{"/S/cpu/load", "9.83", "%", "09:30:01.123", false},
                                   {"/S/\xE6\x97\xA5\xE6\x9C\xAC", "a\tb\x7F", "", "", true}};
  const auto draw = [&](Size size) {
    TableWidths widths;
    return textOf(drawTable(rows, 3, size, plainStyle, widths), size);
  };
  EXPECT_EQ(draw({5, 45}),
            "ADDRESS      VALUE  UNIT  CHANGED            \n"
            "/S/cpu/load  9.83   %     09:30:01.123\n"
            "/S/日本      a?b?                     \n"
            "and 3 more\n");
  EXPECT_EQ(draw({3, 30}),
            "ADDRESS      VALUE  UNIT      \n"
            "/S/cpu/load  9.83   %   \n"
            "/S/日本      a?b?       \n");
  EXPECT_EQ(draw({4, 12}),
            "ADDR…  VALUE\n"
            "/S/c…  9.83 \n"
            "/S/…   a?b? \n"
            "and 3 more\n");
  for (std::size_t columns = 0; columns < 60; ++columns) {
    static_cast<void>(draw({columns % 5, columns}));
  }
}

TEST_F(Table, DoesNotJumpWhenAValueGetsShorter) {
  TableWidths widths;
  const Size size{3, 40};
  static_cast<void>(drawTable({{"a", "1000000", "V", "", false}}, 0, size, plainStyle, widths));
  EXPECT_EQ(textOf(drawTable({{"a", "1", "V", "", false}}, 0, size, plainStyle, widths), size),
            "ADDRESS  VALUE    UNIT  CHANGED         \n"
            "a        1        V            \n");
}

TEST(Painting, WritesOnlyWhatDiffers) {
  Painter painter;
  std::string out;
  const Size size{3, 4};
  painter.paint(out, {{"one", 3}, {"four", 4}}, size);
  EXPECT_EQ(out, "\x1B[1;1Hone\x1B[K\x1B[2;1Hfour\x1B[3;1H\x1B[K");
  out.clear();
  painter.paint(out, {{"one", 3}, {"four", 4}}, size);
  EXPECT_EQ(out, "");
  painter.paint(out, {{"one", 3}, {"five", 4}, {"x", 1}}, size);
  EXPECT_EQ(out, "\x1B[2;1Hfive\x1B[3;1Hx\x1B[K");
  out.clear();
  painter.paint(out, {{"one", 3}}, size);
  EXPECT_EQ(out, "\x1B[2;1H\x1B[K\x1B[3;1H\x1B[K");
  out.clear();
  painter.paint(out, {{"one", 3}}, {1, 4});
  EXPECT_EQ(out, "\x1B[1;1Hone\x1B[K");
  out.clear();
  painter.forget();
  painter.paint(out, {{"one", 3}}, {1, 4});
  EXPECT_EQ(out, "\x1B[1;1Hone\x1B[K");
}

}  // namespace
}  // namespace treectl
