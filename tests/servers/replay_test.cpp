#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "tests/servers/replayed.h"

// Recordings with times that the test passes in.

namespace modelsrvd {
namespace {

using ModelSrv::ModelNode;
using ModelSrv::ModelPart;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(Replayed, MovesAsItDid) {
  play(header(intPart("/S/n/a")) + value(3, "/S/n/a", 1, false) + value(100, "/S/n/a", 2) +
       value(250, "/S/n/a", 3));
  EXPECT_EQ(replay_->name(), "S");
  EXPECT_EQ(get("n/a"), "1") << "from the beginning";
  advanceTo(milliseconds(99));
  EXPECT_EQ(get("n/a"), "1");
  EXPECT_EQ(replay_->nextDeadline(start_), start_ + milliseconds(100));
  advanceTo(milliseconds(100));
  EXPECT_EQ(get("n/a"), "2");
  advanceTo(milliseconds(250));
  EXPECT_EQ(get("n/a"), "3");
  EXPECT_FALSE(replay_->nextDeadline(start_)) << "the end";
  EXPECT_FALSE(replay_->takeError());
  advanceTo(seconds(1000));
  EXPECT_EQ(get("n/a"), "3") << "keeps its last value";
}

TEST_F(Replayed, MovesFaster) {
  play(header(intPart("/S/a")) + value(0, "/S/a", 1, false) + value(1000, "/S/a", 2), {100, false});
  advanceTo(milliseconds(9));
  EXPECT_EQ(get("a"), "1");
  advanceTo(milliseconds(10));
  EXPECT_EQ(get("a"), "2");
}

TEST_F(Replayed, BeginsAgainAtItsEnd) {
  play(header(intPart("/S/a")) + value(0, "/S/a", 1, false) + value(100, "/S/a", 2) +
           value(150, "/S/later", 5) + value(200, "/S/a", 3),
       {1, true});
  advanceTo(milliseconds(199));
  EXPECT_EQ(get("a"), "2");
  EXPECT_EQ(get("later"), "5");
  advanceTo(milliseconds(200));
  EXPECT_EQ(get("a"), "1") << "the last value lasts no time";
  EXPECT_EQ(get("later"), "none");
  advanceTo(milliseconds(300));
  EXPECT_EQ(get("a"), "2");
  EXPECT_EQ(get("later"), "none");
  EXPECT_TRUE(replay_->nextDeadline(start_));
}

TEST_F(Replayed, KeepsItsPartsWhenItBeginsAgain) {
  play(header(intPart("/S/a")) + value(0, "/S/a", 1, false) + value(100, "/S/a", 2) +
           event(110, "/S", "lost") + event(120, "/S", "restored"),
       {1, true});
  const ModelPart* const part = find("a");
  advanceTo(milliseconds(120));
  EXPECT_EQ(get("a"), "1");
  EXPECT_EQ(find("a"), part);
}

TEST_F(Replayed, OfOneMomentDoesNotBeginAgain) {
  play(header(intPart("/S/a")) + value(0, "/S/a", 1, false), {1, true});
  advanceTo(milliseconds(10));
  EXPECT_EQ(get("a"), "1");
  EXPECT_FALSE(replay_->nextDeadline(start_));
}

TEST_F(Replayed, BeginsAgainAtMostOnceIn10Milliseconds) {
  play(header(intPart("/S/a")) + value(0, "/S/a", 1, false) + value(1, "/S/a", 2), {1000000, true});
  replay_->tick(start_ + milliseconds(1));
  EXPECT_EQ(replay_->nextDeadline(start_), start_ + milliseconds(10));
}

TEST_F(Replayed, HasPartsAsTheyAreDescribed) {
  play(
      header(R"({"address":"/S/d/gains","ids":[4,7],"type":"double","access":"protected",)"
             R"("unit":"rpm","elements":2,"element_names":["p","i"],"minimum":0,"maximum":9,)"
             R"("text":"hello","subscribable":false},)"
             R"({"address":"/S/d/#9","ids":[4,9],"type":"text","access":"ro","unit":"",)"
             R"("choices":["5","b"]},)"
             R"({"address":"/S/other","ids":[2],"type":"uint8","access":"rw","unit":""})") +
      at(1) +
      R"("address":"/S/d/gains","type":"double","access":"protected","unit":"rpm","value":[1.5,-0]})" +
      "\n" + at(2) + R"("address":"/S/d/#9","type":"text","access":"ro","unit":"",)" +
      "\"value\":\"5\\nx\"}\n" + at(10) +
      R"("address":"/S/d/gains[1]","type":"double","element":"i","access":"protected","unit":"rpm",)" +
      "\"value\":3,\"changes\":1}\n");
  EXPECT_THAT(names(root_), ElementsAre("4:d", "2:other"));
  EXPECT_EQ(get("d/gains"), "1.5\n-0");
  EXPECT_EQ(get("d/"), "none");
  const auto& node = dynamic_cast<const ModelNode&>(*find("d"));
  EXPECT_THAT(names(node), ElementsAre("7:gains", "9:"));
  std::ostringstream text;
  EXPECT_EQ(node.findChild(9)->save(text, ModelSrv::ModelPartIndex_All),
            ModelSrv::ModelRes_Success);
  EXPECT_EQ(text.str(), "5\nx");
  ModelSrv::PartDescription description;
  EXPECT_EQ(find("d/gains")->describe(description), ModelSrv::ModelRes_Success);
  const ModelSrv::PartDescription expected{"double",   ModelSrv::ModelPartStatus_Protected,
                                           false,      2,
                                           {"p", "i"}, {"rpm", "0", "9", "hello", {}}};
  EXPECT_EQ(description, expected);
  EXPECT_EQ(node.findChild(9)->attributes().choices, (std::vector<std::string>{"5", "b"}));
  advanceTo(milliseconds(10));
  EXPECT_EQ(get("d/gains"), "1.5\n3");
}

TEST_F(Replayed, IsOverwrittenByTheNextChangeAfterAClientsStore) {
  play(header(intPart("/S/a")) + value(0, "/S/a", 1, false) + value(100, "/S/a", 2));
  std::string reason;
  EXPECT_EQ(find("a")->storeAsClient("7", false, ModelSrv::ModelPartIndex_All, reason),
            ModelSrv::ModelRes_Success);
  EXPECT_EQ(get("a"), "7");
  advanceTo(milliseconds(100));
  EXPECT_EQ(get("a"), "2");
}

TEST_F(Replayed, HasAPartFromItsFirstValueOnAndReplacesOneOfAnotherType) {
  play(header(intPart("/S/a")) + value(0, "/S/a", 1, false) + value(10, "/S/n/b", 2) + at(20) +
       R"("address":"/S/a","type":"text","access":"ro","unit":"","value":["x\ny","z"]})" + "\n" +
       value(30, "/S/n", 3) + value(40, "/S/n/b", 4) + at(50) +
       R"("address":"/S/n/b","type":"int32","access":"rw","unit":"V","value":4})" + "\n");
  EXPECT_EQ(get("n/b"), "none");
  advanceTo(milliseconds(10));
  EXPECT_EQ(get("n/b"), "2");
  advanceTo(milliseconds(20));
  EXPECT_EQ(get("a"), "x\ny\nz");
  EXPECT_EQ(find("a")->status(), ModelSrv::ModelPartStatus_ReadOnly);
  advanceTo(milliseconds(30));
  EXPECT_EQ(get("n"), "3");
  advanceTo(milliseconds(40));
  EXPECT_EQ(get("n/b"), "4");
  EXPECT_EQ(find("n/b")->attributes().unit, "");
  advanceTo(milliseconds(50));
  EXPECT_EQ(find("n/b")->attributes().unit, "V");
}

TEST_F(Replayed, HasNoPartsWhileTheServerIsLost) {
  play(header(intPart("/S/a") + "," + intPart("/S/b")) + value(0, "/S/a", 1, false) +
       value(0, "/S/b", 2, false) + event(10, "/S/a", "lost") + event(10, "/S/*", "lost") +
       event(20, "/S/a", "restored") + event(30, "/S", "lost") + value(40, "/S/b", 3));
  const auto before = names(root_);
  advanceTo(milliseconds(10));
  EXPECT_THAT(root_.children(), IsEmpty());
  advanceTo(milliseconds(20));
  EXPECT_EQ(names(root_), before);
  EXPECT_EQ(get("a"), "1");
  advanceTo(milliseconds(30));
  EXPECT_THAT(root_.children(), IsEmpty());
  advanceTo(milliseconds(40));
  EXPECT_EQ(names(root_), before) << "a value shows that it is back";
  EXPECT_EQ(get("b"), "3");
}

TEST_F(Replayed, OfSeveralServersHasANodeOfEach) {
  play(header(intPart("/S/a") + "," + intPart("/T/a")) + value(0, "/S/a", 1, false) +
       value(0, "/T/a", 2, false) + event(10, "/T", "lost"));
  EXPECT_EQ(replay_->name(), "");
  EXPECT_EQ(get("S/a"), "1");
  EXPECT_EQ(get("T/a"), "2");
  advanceTo(milliseconds(10));
  EXPECT_EQ(get("S/a"), "1");
  EXPECT_EQ(get("T/a"), "none");
}

TEST_F(Replayed, IsOfTheServerThatTheHeaderNames) {
  play(header(intPart("/n/a"), R"("server":"S",)") + value(0, "/n/a", 1, false));
  EXPECT_EQ(replay_->name(), "S");
  EXPECT_EQ(get("n/a"), "1");
}

TEST_F(Replayed, IgnoresALineThatWasNotFinished) {
  play(header(intPart("/S/a")) + value(0, "/S/a", 1, false) + at(10) + R"("addr)");
  EXPECT_EQ(get("a"), "1");
  EXPECT_FALSE(replay_->takeError());
}

TEST_F(Replayed, DoesABoundedAmountOfWorkAtATime) {
  std::string text = header(intPart("/S/a")) + value(0, "/S/a", 0, false);
  for (int i = 1; i <= 1000; ++i) {
    text += value(1, "/S/a", i);
  }
  play(text);
  replay_->tick(start_ + milliseconds(1));
  EXPECT_NE(get("a"), "1000");
  EXPECT_LE(*replay_->nextDeadline(start_), start_ + milliseconds(1));
  advanceTo(milliseconds(1));
  EXPECT_EQ(get("a"), "1000");
}

TEST_F(Replayed, IsNotDelayedByAClockThatWasSetBack) {
  play(header(intPart("/S/a")) + value(500, "/S/a", 1, true) + value(100, "/S/a", 2) +
       value(600, "/S/a", 3));
  advanceTo(milliseconds(500));
  EXPECT_EQ(get("a"), "2");
  advanceTo(milliseconds(600));
  EXPECT_EQ(get("a"), "3");
}

TEST_F(Replayed, IsRefusedWithTheLineThatIsWrong) {
  const std::string begin = header(intPart("/S/a")) + value(0, "/S/a", 1, false);
  const std::string of = R"("address":"/S/a","type":"int32","access":"rw","unit":"",)";
  const struct {
    std::string text;
    const char* error;
  } cases[] = {
      {"", "line 1: expected the header of a recording"},
      {"no line feed", "line 1: expected the header of a recording"},
      {"\n", "line 1: no JSON at byte 1"},
      {"{}\n",
       "line 1: expected the header of a recording, with \"format\" 1, \"start\" and \"parts\""},
      {header(intPart("/S")), "line 1: /S: expected the address of a part"},
      {header(R"({"address":"/S/t","type":"text","minimum":1})"),
       "line 1: /S/t: unit, limits, choices or text: an argument is outside what the "
       "operation takes"},
      {begin + "\n", "line 3: no JSON at byte 1"},
      {begin + value(10, "/S/a", 2) + "{]\n", "line 4: no JSON at byte 2"},
      {begin + at(10) + of + "\"value\":2147483648}\n",
       "line 3: /S/a: the value is out of the range of the part's type"},
      {begin + at(10) + of + "\"value\":\"x\"}\n",
       "line 3: /S/a: the text is no value of the part's type"},
      {begin + at(10) + R"("address":"/S/a[1]","type":"int32","access":"rw","value":1})" + "\n",
       "line 3: /S/a[1]: no element \"1\""},
      {begin + at(10) + R"("address":"/S/a[1]","type":"int32","access":"rw","value":[1]})" + "\n",
       "line 3: /S/a[1]: too many values"},
      {begin + at(10) + R"("address":"/","value":1})" + "\n",
       "line 3: /: expected 1 to 4096 names in the address"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(open(c.text), c.error) << c.text;
  }
}

TEST_F(Replayed, EndsWithAnErrorIfTheFileHasChanged) {
  const std::string begin = header(intPart("/S/a")) + value(0, "/S/a", 1, false);
  play(begin + value(10, "/S/a", 2), {1, true});
  static_cast<void>(directory_.write("rec", begin + "{]\n"));
  advanceTo(seconds(1));
  const auto error = replay_->takeError();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->text, "replay: " + directory_.file("rec") + ": line 3: no JSON at byte 2");
  EXPECT_FALSE(replay_->takeError()) << "once";
  EXPECT_FALSE(replay_->nextDeadline(start_));
  EXPECT_EQ(get("a"), "1");
}

}  // namespace
}  // namespace modelsrvd
