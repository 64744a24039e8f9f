#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "commands/tree_scope.h"
#include "tests/support/captured_output.h"
#include "tests/support/editor_echo.h"
#include "tests/support/fed_input.h"
#include "tests/support/listed_candidates.h"
#include "tests/support/port_name.h"
#include "tests/support/sample_server.h"

namespace treescope::test {
namespace {

using test_support::CapturedOutput;
using test_support::EditorEcho;
using test_support::listedCandidates;
using test_support::SampleServer;
using test_support::uniquePortName;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

using Words = std::vector<std::string>;

/// An interactive shell; the test passes the keys to its line editor.
class Scope : public TreeScope {
 public:
  explicit Scope(EvtSrv::EventPortManager* manager) : TreeScope(manager, 0) {}

  LineEditor& editor() { return lineEditor_; }
  /// The prompt, followed by `line`.
  [[nodiscard]] std::string prompt(const std::string& line) const {
    return EditorEcho(promptText()).prompt(line);
  }
  /// `line` repainted with the cursor at its end.
  [[nodiscard]] std::string redrawn(const std::string& line) const {
    return EditorEcho(promptText()).redrawn(line, line.size());
  }

  [[nodiscard]] Words known(const std::string& pattern) const {
    Words paths;
    expandWildcard(pattern.c_str(), paths);
    return paths;
  }
};

class Completing : public testing::Test {
 protected:
  void connect(const std::string& server) {
    CapturedOutput output;
    ASSERT_EQ(scope_.dispatch(("cd " + server).c_str()), 1);
  }

  void enter(const std::string& path) {
    CapturedOutput output;
    ASSERT_EQ(scope_.dispatch(("cd " + path).c_str()), 1);
  }

  /// The output of the Tab key after `line` was typed.
  std::string tabAfter(const std::string& line) {
    scope_.editor().setLine(line);
    CapturedOutput output;
    scope_.editor().handleKey('\t');
    return output.take();
  }

  const std::string& line() { return scope_.editor().line(); }

  /// The output of the Tab key if it turns `before` into `after` and lists the
  /// candidates `listed`.
  std::string expected(const std::string& before, const std::string& after, const Words& listed) {
    return '\n' + listedCandidates(listed) + scope_.prompt(before) + scope_.redrawn(after);
  }

  test_support::FedInput input_;
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Void, true};
  CapturedOutput start_;
  Scope scope_{&manager_};
  const std::string startBytes_ = start_.take();
};

class CompletingTree : public Completing {
 protected:
  void SetUp() override { connect(name_); }

  std::string name_ = uniquePortName();
  SampleServer server_{name_};
};

struct TreeCase {
  std::string before;
  std::string after;
  /// The listed candidates; none are listed if there is only one.
  Words listed{};
};

TEST_F(CompletingTree, OffersTheChildrenThatBeginWithTheWord) {
  const Words root = {"drive/", "empty", "noname-3/", SampleServer::oddName(), "top"};
  const std::vector<TreeCase> cases = {
      {"ls ", "ls ", root},
      {"get /", "get /", root},
      {"get d", "get drive/"},
      {"get e", "get empty"},
      {"get /t", "get /top"},
      {"get noname-", "get noname-3/"},
      {"get noname-3/", "get noname-3/x"},
      {"get \xff", "get \xff od[d"},  // up to its escape character
      {"get drive/s", "get drive/s", {"speed", "serial", "secret", "speed"}},
      {"get drive/sp", "get drive/speed", {"speed", "speed"}},
      {"get drive/noname-1", "get drive/noname-12"},
      {"get drive/i", "get drive/inner/"},
      {"get /drive/inner/", "get /drive/inner/deep"},
      {"get drive//inner//d", "get drive//inner//deep"},
      {"get drive/g", "get drive/gains"},
      {"set 5 drive/l", "set 5 drive/l", {"label", "limited"}},
      {"set 5 drive/la", "set 5 drive/label"},
      {"pwd d", "pwd drive/"},
      {"  get d", "  get drive/"},
  };
  for (const TreeCase& each : cases) {
    EXPECT_EQ(tabAfter(each.before), expected(each.before, each.after, each.listed)) << each.before;
    EXPECT_EQ(line(), each.after);
    EXPECT_EQ(scope_.editor().cursor(), line().size()) << each.before;
  }
}

TEST_F(CompletingTree, OffersNothingIfNoChildBeginsWithTheWord) {
  for (const char* before : {"get x", "get nowhere/", "get drive/speed/", "get drive/speed/x",
                             "get ../", "get empty/", "get noname-4/", "get noname-x/", "get D"}) {
    EXPECT_EQ(tabAfter(before), '\n' + scope_.prompt(before)) << before;
    EXPECT_EQ(line(), before);
  }
}

TEST_F(CompletingTree, CompletesTwoDotsWithoutResolvingThem) {
  const std::vector<TreeCase> cases = {
      {"cd ..", "cd ../"},
      {"cd drive/..", "cd drive/../"},
      {"cd nowhere/..", "cd nowhere/../"},
      {"cd drive/../d", "cd drive/../drive/"},
  };
  for (const TreeCase& each : cases) {
    EXPECT_EQ(tabAfter(each.before), expected(each.before, each.after, {})) << each.before;
  }
}

TEST_F(CompletingTree, StartsFromTheCurrentDirectory) {
  enter("drive");
  const std::vector<TreeCase> cases = {
      {"get la", "get label"},
      {"get ../t", "get ../top"},
      {"get inner/", "get inner/deep"},
      {"get /t", "get /top"},
      {"ls ",
       "ls ",
       {"speed", "label", "gains", "raw", "serial", "offset", "secret", "limited", "noname-12",
        "speed", "inner/"}},
  };
  for (const TreeCase& each : cases) {
    EXPECT_EQ(tabAfter(each.before), expected(each.before, each.after, each.listed)) << each.before;
  }
}

TEST_F(CompletingTree, TreatsATildeAsTheRoot) {
  enter("drive");
  const std::vector<TreeCase> cases = {
      {"get ~/t", "get ~/top"},
      {"get ~drive/la", "get ~drive/label"},
      // The tilde is part of the component that the candidate replaces.
      {"get ~t", "get top"},
      {"get drive/~t", "get drive/~t"},
  };
  for (const TreeCase& each : cases) {
    tabAfter(each.before);
    EXPECT_EQ(line(), each.after) << each.before;
  }
}

TEST_F(CompletingTree, CompletesCommandWordsFirst) {
  EXPECT_EQ(tabAfter("g"), '\n' + scope_.prompt("get "));
  EXPECT_EQ(line(), "get ");
  // Complete except for the space.
  EXPECT_EQ(tabAfter("get"), '\n' + scope_.prompt("get "));
}

TEST_F(CompletingTree, ReturnsSuccess) {
  CapturedOutput output;
  EXPECT_EQ(scope_.completeWord(nullptr, nullptr), 1);
  EXPECT_EQ(scope_.completeWord("x", nullptr), 1);
  EXPECT_EQ(scope_.completeWord("ls ", nullptr), 1);
  EXPECT_EQ(scope_.completeWord("ls ", "x"), 1);
  EXPECT_EQ(scope_.completeWord("ls ", ""), 1);
}

TEST_F(CompletingTree, StoresNamesInTheWordTree) {
  tabAfter("get drive/l");
  EXPECT_THAT(scope_.known(name_ + "/drive/l*"),
              ElementsAre(name_ + "/drive/label", name_ + "/drive/limited"));
  EXPECT_THAT(scope_.known(name_ + "/t*"), ElementsAre());
  tabAfter("get e");
  EXPECT_THAT(scope_.known(name_ + "/t*"), ElementsAre(name_ + "/top"));
  EXPECT_THAT(
      scope_.known(name_ + "/drive/s*"),
      ElementsAre(name_ + "/drive/speed", name_ + "/drive/serial", name_ + "/drive/secret"));
}

TEST_F(CompletingTree, LeavesAnEditableLineAfterTheServerHasStopped) {
  server_.end();
  EXPECT_EQ(tabAfter("get drive/s"), '\n' + scope_.prompt("get drive/s"));
  CapturedOutput output;
  scope_.editor().handleKey('x');
  EXPECT_EQ(line(), "get drive/sx");
}

/// A server with many nodes that handles a limited number of events and then hangs.
class StallingServer {
 public:
  explicit StallingServer(const std::string& name) {
    for (std::uint16_t id = 0; id < nodes; ++id) {
      nodes_.push_back(std::make_unique<ModelSrv::ModelNode>(id, "n" + std::to_string(id)));
      leaves_.push_back(std::make_unique<ModelSrv::ValuePart<bool>>(0, "leaf", false));
      EXPECT_EQ(nodes_.back()->add(leaves_.back().get()), ModelSrv::ModelRes_Success);
      EXPECT_EQ(root_.add(nodes_.back().get()), ModelSrv::ModelRes_Success);
    }
    // Clients cache replies only while the thread that started the service runs: here
    // each request is an exchange.
    std::thread([&] { EXPECT_EQ(root_.startAsServer(name), ModelSrv::ModelRes_Success); }).join();
    thread_ = std::thread([this] { serve(); });
  }

  ~StallingServer() {
    ending_ = true;
    allow(1);
    manager_.wake();
    thread_.join();
    root_.stop(true);
  }

  /// Lets the server handle that many more events.
  void allow(int events) {
    allowed_ = events;
    allowed_.notify_all();
  }

  static constexpr std::uint16_t nodes = 500;

 private:
  void serve() {
    while (!ending_) {
      allowed_.wait(0);
      if (manager_.receiveEvent(-1) == EvtSrv::EvtRes_Success) {
        --allowed_;
      }
    }
  }

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Void, false};
  std::vector<std::unique_ptr<ModelSrv::ValuePart<bool>>> leaves_;
  std::vector<std::unique_ptr<ModelSrv::ModelNode>> nodes_;
  ModelSrv::ModelRoot root_{&manager_};
  std::atomic<bool> ending_{false};
  std::atomic<int> allowed_{1'000'000};
  std::thread thread_;
};

std::ptrdiff_t countOf(const std::string& text, char wanted) {
  return std::count(text.begin(), text.end(), wanted);
}

TEST_F(Completing, WaitsOnceForAServerThatHangsWithManyChildren) {
  const std::string name = uniquePortName();
  StallingServer server(name);
  connect(name);
  server.allow(50);

  const auto start = std::chrono::steady_clock::now();
  const std::string halfway = tabAfter("get ");
  EXPECT_THAT(halfway, EndsWith(scope_.prompt("get ") + scope_.redrawn("get n")));
  EXPECT_THAT(halfway, StartsWith("\n\x1b[39m\x1b[1Gn0/ "));
  EXPECT_THAT(halfway, HasSubstr("n499 "));
  EXPECT_LT(countOf(halfway, '/'), StallingServer::nodes);
  EXPECT_EQ(tabAfter("get n1"), '\n' + scope_.prompt("get n1"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));

  server.allow(1'000'000);
  std::string output;
  for (int timeout = 200; countOf(output, '/') != 11; --timeout) {
    ASSERT_GT(timeout, 0) << output;
    scope_.step();
    output = tabAfter("get n49");
  }
}

class CompletingServers : public Completing {
 protected:
  ~CompletingServers() override {
    for (const std::string& path : made_) {
      std::filesystem::remove(path);
    }
  }

  void makePipe(const std::string& fileName) {
    made_.push_back("/tmp/" + fileName);
    ASSERT_EQ(mkfifo(made_.back().c_str(), 0600), 0) << fileName;
  }
  void makeFile(const std::string& fileName) {
    made_.push_back("/tmp/" + fileName);
    ASSERT_TRUE(std::ofstream(made_.back())) << fileName;
  }
  void makeDirectory(const std::string& fileName) {
    made_.push_back("/tmp/" + fileName);
    ASSERT_EQ(mkdir(made_.back().c_str(), 0700), 0) << fileName;
  }

  Words made_;
};

TEST_F(CompletingServers, OffersTheNamesThatBeginWithTheWord) {
  const std::string stem = uniquePortName();
  makePipe(stem + "a.fifo");
  EXPECT_EQ(tabAfter("cd " + stem), expected("cd " + stem, "cd " + stem + "a", {}));
  makeFile(stem + "a.efifo");
  makeFile(stem + "b");
  makeDirectory(stem + "c.fifo");
  EXPECT_EQ(tabAfter("cd " + stem),
            expected("cd " + stem, "cd " + stem + "a", {stem + "a", stem + "a"}));
  EXPECT_EQ(tabAfter("cd /" + stem),
            expected("cd /" + stem, "cd /" + stem + "a", {stem + "a", stem + "a"}));
  EXPECT_EQ(tabAfter("cd " + stem + "x"), '\n' + scope_.prompt("cd " + stem + "x"));
}

TEST_F(CompletingServers, FindsNamesByEitherKeyAnywhere) {
  const std::string stem = uniquePortName("x.");
  makePipe(stem + ".Model.fifo");
  EXPECT_EQ(tabAfter("cd " + stem), expected("cd " + stem, "cd " + stem + ".Model", {}));
  const std::string lower = uniquePortName("modelsrv");
  makePipe(lower + ".fifo");
  EXPECT_EQ(tabAfter("cd " + lower.substr(0, lower.size() - 1)),
            expected("cd " + lower.substr(0, lower.size() - 1), "cd " + lower, {}));
  const std::string both = uniquePortName("Model_modelsrv");
  makePipe(both + ".fifo");
  EXPECT_EQ(tabAfter("cd " + both), expected("cd " + both, "cd " + both, {both, both}));
}

TEST_F(CompletingServers, OffersAllNamesForAnEmptyWord) {
  const std::string upper = uniquePortName();
  const std::string lower = uniquePortName("modelsrv");
  makePipe(upper + ".fifo");
  makePipe(lower + ".fifo");
  for (const char* before : {"cd ", "cd /", "cd any/"}) {
    const std::string output = tabAfter(before);
    EXPECT_THAT(output, HasSubstr("\x1b[1G" + upper + ' '));
    EXPECT_THAT(output, HasSubstr("\x1b[1G" + lower + ' '));
    EXPECT_THAT(output, EndsWith(scope_.prompt(before) + scope_.redrawn(before)));
    EXPECT_EQ(line(), before);
  }
  EXPECT_THAT(scope_.known("*"), testing::IsSupersetOf({upper, lower}));
}

TEST_F(CompletingServers, OffersNothingForDotsAndTildes) {
  const std::string stem = uniquePortName();
  makePipe(stem + ".fifo");
  for (const std::string& before : {std::string("cd .."), "cd ~" + stem, "cd " + stem + "/.."}) {
    EXPECT_EQ(tabAfter(before), '\n' + scope_.prompt(before)) << before;
  }
}

}  // namespace
}  // namespace treescope::test
