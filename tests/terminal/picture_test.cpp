#include <gtest/gtest.h>

#include "tests/support/process.h"
#include "tests/support/screen.h"
#include "tests/terminal/screen_svg.h"
#include "tests/terminal/terminal_test.h"

// The pictures of the documents: a screen as SVG.

namespace terminal_test {
namespace {

using test_support::ExitStatus;
using test_support::Finished;

const std::string expectedPicture =
    R"(<svg xmlns="http://www.w3.org/2000/svg" role="img")"
    R"( aria-labelledby="title" aria-describedby="desc" width="192.0" height="78.0" viewBox="0 0 192.0 78.0">
<title id="title">A &lt;test&gt;</title>
<desc id="desc">A terminal with 20 columns and 3 rows of text.</desc>
<rect width="100%" height="100%" rx="6" fill="#1e222a"/>
<g xml:space="preserve" style="white-space: pre" font-family="ui-monospace, 'DejaVu Sans Mono', Menlo, Consolas, monospace")"
    R"( font-size="14" fill="#d8dee9">
<text x="12.0" y="25.5" textLength="33.6" lengthAdjust="spacingAndGlyphs">a  b</text>
<text x="45.6" y="25.5" textLength="8.4" lengthAdjust="spacingAndGlyphs" fill="#61afef" font-weight="bold">c</text>
<rect x="12.0" y="48.0" width="25.2" height="18.0" fill="#d8dee9"/>
<text x="12.0" y="61.5" textLength="25.2" lengthAdjust="spacingAndGlyphs" fill="#1e222a">&lt;&amp;&gt;</text>
<text x="54.0" y="61.5" textLength="16.8" lengthAdjust="spacingAndGlyphs">)"
    "\u4e2d"
    R"(</text>
<path stroke="#d8dee9" stroke-width="3" stroke-linecap="round" d="M72.9 50.2h0M72.9 59.2h0M77.1 50.2h0M77.1 63.7h0M93.9 63.7h0"/>
</g>
</svg>
)";

constexpr std::string_view shownBytes =
    "a  b\033[1;34mc\033[m\r\n\r\n\033[7m<&>\033[m  \u4e2d\u288d \u2880";

TEST(Picture, HasTheTextAndTheLookOfTheScreen) {
  test_support::Screen screen(5, 20);
  screen.write(shownBytes);
  EXPECT_EQ(svgOf(screen, "A <test>"), expectedPicture);
}

const std::string sessionPicture =
    R"(<svg xmlns="http://www.w3.org/2000/svg" role="img")"
    R"( aria-labelledby="title" aria-describedby="desc" width="444.0" height="114.0" viewBox="0 0 444.0 114.0">
<title id="title">Completion</title>
<desc id="desc">A terminal with 50 columns and 5 rows of text.</desc>
<rect width="100%" height="100%" rx="6" fill="#1e222a"/>
<g xml:space="preserve" style="white-space: pre" font-family="ui-monospace, 'DejaVu Sans Mono', Menlo, Consolas, monospace")"
    R"( font-size="14" fill="#d8dee9">
<text x="12.0" y="25.5" textLength="184.8" lengthAdjust="spacingAndGlyphs">speed       speedlimit</text>
<text x="213.6" y="25.5" textLength="50.4" lengthAdjust="spacingAndGlyphs" fill="#98c379">gains/</text>
<text x="314.4" y="25.5" textLength="42.0" lengthAdjust="spacingAndGlyphs">label</text>
<text x="12.0" y="43.5" textLength="50.4" lengthAdjust="spacingAndGlyphs" fill="#61afef">motor/</text>
<text x="112.8" y="43.5" textLength="75.6" lengthAdjust="spacingAndGlyphs">noname-12</text>
<text x="12.0" y="61.5" textLength="134.4" lengthAdjust="spacingAndGlyphs">[ drive]$ get sp</text>
<text x="12.0" y="79.5" textLength="184.8" lengthAdjust="spacingAndGlyphs">speed       speedlimit</text>
<text x="12.0" y="97.5" textLength="159.6" lengthAdjust="spacingAndGlyphs">[ drive]$ get speed</text>
</g>
</svg>
)";

std::string pictureProgram() {
  return test_support::buildDirectory() + "/tests/terminal_picture";
}

TEST(Picture, HasLinesWithoutGaps) {
  test_support::Screen screen(5, 20);
  screen.write("\033[32m\u2501\033[m x\r\n1\u2524\r\n \u2502\r\n \u2514\u2500\u2534");
  const std::string picture = svgOf(screen, "lines");
  EXPECT_EQ(picture.substr(picture.find("<path")),
            R"(<path stroke="#98c379" stroke-width="3" d="M12.0 21.0h8.4"/>
<text x="28.8" y="25.5" textLength="8.4" lengthAdjust="spacingAndGlyphs">x</text>
<text x="12.0" y="43.5" textLength="8.4" lengthAdjust="spacingAndGlyphs">1</text>
<path stroke="#d8dee9" stroke-width="1.2" d="M20.4 39.0h4.2M24.6 30.0v18.0"/>
<path stroke="#d8dee9" stroke-width="1.2" d="M24.6 48.0v18.0"/>
<path stroke="#d8dee9" stroke-width="1.2" d="M24.6 75.0h4.2M24.6 66.0v9.0M28.8 75.0h8.4M37.2 75.0h8.4M41.4 66.0v9.0"/>
</g>
</svg>
)");
}

TEST(Picture, OfASessionIsTheSameEachTime) {
  const ModelServer server = ModelServer::ofTree(driveTree);
  // What has the server's name scrolls off.
  const std::string steps = "await [ /]$ \ntype cd " + server.name() + "\\r\nawait [ " +
                            server.name() + "]$ \ntype cd drive\\r\nawait [ drive]$ \n" +
                            "type ls -c\\r\nawait [ drive]$ \ntype get sp\\t\nawait get speed\n";
  const Finished finished = test_support::run(
      {pictureProgram(), "50x5", "Completion", test_support::treescopeProgram()}, steps);
  EXPECT_EQ(finished.status, ExitStatus{}) << finished.errors;
  EXPECT_EQ(finished.output, sessionPicture);
}

TEST(Picture, RefusesWhatItDoesNotKnow) {
  const Finished finished =
      test_support::run({pictureProgram(), "20x5", "title", "cat"}, "dance\n");
  EXPECT_EQ(finished.status, (ExitStatus{1, 0}));
  EXPECT_EQ(finished.errors, "terminal_picture: no such step: dance\n");
}

}  // namespace
}  // namespace terminal_test
