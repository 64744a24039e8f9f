#include "tests/servers/replayed.h"

// Nodes, names and changes of the structure in recordings.

namespace modelsrvd {
namespace {

using ModelSrv::ModelNode;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

using ReplayedStructure = Replayed;

TEST_F(ReplayedStructure, HasItsNodesAndTheNamesThatAddressesDoNotHave) {
  play(header(
           R"({"address":"/S/n/#7","ids":[1,7],"name":"a\\/b","type":"int32","access":"rw",)"
           R"("unit":""})",
           R"("nodes":[{"address":"/S","ids":[]},{"address":"/S/n","ids":[1]},)"
           R"({"address":"/S/#4","ids":[4],"name":"n"},{"address":"/S/#4/empty","ids":[4,2]}],)") +
       value(0, "/S/n/#7", 5, false));
  EXPECT_THAT(names(root_), ElementsAre("1:n", "4:n"));
  EXPECT_THAT(names(dynamic_cast<const ModelNode&>(*root_.findChild(1))), ElementsAre("7:a/b"));
  EXPECT_THAT(names(dynamic_cast<const ModelNode&>(*root_.findChild(4))), ElementsAre("2:empty"));
}

TEST_F(ReplayedStructure, OfAnEmptyTreeHasTheServersName) {
  play(header("", R"("nodes":[{"address":"/S","ids":[]}],)"));
  EXPECT_EQ(replay_->name(), "S");
  EXPECT_THAT(root_.children(), IsEmpty());
}

TEST_F(ReplayedStructure, ChangesItsStructureAsItDid) {
  const auto structure = [](int ms, const std::string& of, const std::string& what) {
    return at(ms) + "\"address\":" + of + R"(,"event":"restored","structure":")" + what + "\"}\n";
  };
  const std::string part = R"("type":"int32","access":"rw","unit":"")";
  play(header(R"({"address":"/S/n/a","ids":[1,1],"text":"first",)" + part + "},{" +
              R"("address":"/S/n/b","ids":[1,2],)" + part + "}") +
           value(0, "/S/n/a", 1, false) + value(0, "/S/n/b", 2, false) +
           structure(10, R"("/S/n/a")", "removed") +
           structure(20, R"("/S/m","ids":[1])", "removed") + at(30) +
           R"("address":"/S/n/a","ids":[1,1],)" + part + ",\"value\":3}\n" +
           structure(40, R"("/S/n")", "removed") +
           structure(50, R"("/S/#9","ids":[9],"name":"n")", "added") + at(60) +
           R"("address":"/S/#9/#3","ids":[9,3],"name":"c",)" + part + ",\"value\":4}\n" +
           value(70, "/S/#9/#3", 5),
       {1, true});
  advanceTo(milliseconds(10));
  EXPECT_EQ(get("n/a"), "none");
  EXPECT_EQ(get("n/b"), "2");
  advanceTo(milliseconds(30));
  EXPECT_EQ(get("n/a"), "3");
  EXPECT_EQ(find("n/a")->id(), 1);
  EXPECT_EQ(find("n/a")->attributes().text, "first");
  advanceTo(milliseconds(40));
  EXPECT_THAT(root_.children(), IsEmpty());
  advanceTo(milliseconds(50));
  EXPECT_THAT(names(root_), ElementsAre("9:n"));
  advanceTo(milliseconds(60));
  EXPECT_EQ(get("n/c"), "4");
  EXPECT_EQ(find("n/c")->id(), 3);
  advanceTo(milliseconds(70));
  EXPECT_EQ(get("n/c"), "none") << "it has begun again";
  EXPECT_EQ(get("n/a"), "1");
  EXPECT_EQ(get("n/b"), "2");
}

}  // namespace
}  // namespace modelsrvd
