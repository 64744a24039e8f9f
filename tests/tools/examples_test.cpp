#include <signal.h>

#include <fstream>

#include "tests/tools/treectl_fixture.h"

// The examples of treectl(1) work as they are printed.

namespace treectl {
namespace {

using test_support::ExitStatus;
using test_support::Finished;
using test_support::Process;

class ManualExamples : public TreectlTest {
 protected:
  /// The command line of the manual page that begins with `start`, for this test's server, as a
  /// shell's argument. Fails the test if there is none.
  std::vector<std::string> example(const std::string& start) {
    std::ifstream page(test_support::sourceDirectory() + "/man/treectl.1");
    for (std::string line; std::getline(page, line);) {
      replaceAll(line, "\\(dq", "\"");
      replaceAll(line, "\\e", "\\");
      for (const std::string mark : {".Dl $ ", ".Dl * * * * * "}) {
        if (line.starts_with(mark + start)) {
          line.erase(0, mark.size());
          replaceAll(line, "Model_device", server().name());
          replaceAll(line, "Model_spare", spare_.name());
          return {"/bin/bash", "-c", line};
        }
      }
    }
    ADD_FAILURE() << "no example " << start;
    return {"true"};
  }

  test_support::ProcessOptions options() {
    std::string path = test_support::buildDirectory() + "/bin:/usr/bin:/bin";
    test_support::ProcessOptions result;
    result.environment = {"PATH=" + path};
    result.directory = files().path();
    result.ownGroup = true;
    return result;
  }

  Finished runExample(const std::string& start) {
    return test_support::run(example(start), {}, options());
  }

  test_support::ModelServer& spare() { return spare_; }

 private:
  static void replaceAll(std::string& text, std::string_view from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
      text.replace(at, from.size(), to);
    }
  }

  test_support::ModelServer spare_{test_support::ModelServer::ofTree(tree)};
};

TEST_F(ManualExamples, CheckHealthInOneLine) {
  const Finished well = runExample("treectl get");
  EXPECT_EQ(well.status, ExitStatus{});
  EXPECT_EQ(well.output + well.errors, "");
  server().kill();
  const Finished gone = runExample("treectl get");
  EXPECT_EQ(gone.status, (ExitStatus{4, 0}));
  EXPECT_THAT(gone.errors, testing::StartsWith("treectl: /" + server().name()));
  server().restart();
}

TEST_F(ManualExamples, WaitUntilAValueIsReached) {
  Process waiting(example("treectl wait"), options());
  expect({{"set", "/{S}/drive/speed", "50"}});
  EXPECT_EQ(waiting.waitForExit(), ExitStatus{});
}

TEST_F(ManualExamples, LogValuesAsATable) {
  Process logging(example("treectl watch --csv"), options());
  ASSERT_TRUE(test_support::eventually([&] {
    return fileSize("log.csv") > 0 &&
           files().read("log.csv").find(",42,1.5 0.25\n") != std::string::npos;
  }));
  EXPECT_THAT(files().read("log.csv"), testing::StartsWith("time,/" + server().name()));
}

TEST_F(ManualExamples, CopySettings) {
  expect({{"set", "/{S}/settings/setpoint", "20"}});
  const Finished copied = runExample("treectl dump");
  EXPECT_EQ(copied.status, ExitStatus{});
  EXPECT_EQ(copied.errors, "stored 1, same 4, skipped 0, refused 0\n");
  EXPECT_EQ(runTreectl({"get", "/" + spare().name() + "/settings/setpoint"}).output, "20\n");
}

TEST_F(ManualExamples, RunACommandAtEachChange) {
  Process alarm(example("treectl watch --changes"), options());
  std::string line;
  for (int i = 0; line.empty(); ++i) {
    expect({{"set", "/{S}/drive/label", std::to_string(i)}});
    line = alarm.readLine(std::chrono::milliseconds(200)).value_or("");
  }
  EXPECT_THAT(line, testing::StartsWith(filled("alarm: /{S}/drive/label")));
}

TEST_F(ManualExamples, CompareADeviceWithItsReference) {
  expect({{"dump", "/{S}", "-o", "{D}/reference.json"}});
  EXPECT_EQ(runExample("treectl diff").status, ExitStatus{});
  expect({{"set", "/{S}/drive/speed", "50"}});
  const Finished differs = runExample("treectl diff");
  EXPECT_EQ(differs.status, (ExitStatus{1, 0}));
  EXPECT_EQ(differs.output, "- /drive/speed\t42\n+ /drive/speed\t50\n");
}

TEST_F(ManualExamples, RecordAFaultAndReplayIt) {
  Process recording(example("treectl record"), options());
  ASSERT_TRUE(test_support::eventually([&] { return fileSize("fault.rec") > 100; }));
  recording.signal(SIGINT);
  EXPECT_EQ(recording.waitForExit(), ExitStatus{}) << recording.errors();
  expect({{"set", "/{S}/drive/speed", "50"}});
  EXPECT_EQ(runExample("treectl replay").status, ExitStatus{});
  expect({{"get", "/{S}/drive/speed"}, 0, "42\n"});
}

TEST_F(ManualExamples, SetAWholeArray) {
  EXPECT_EQ(runExample("treectl set --array").status, ExitStatus{});
  expect({{"get", "/{S}/drive/gains"}, 0, "2 0.5\n"});
}

TEST_F(ManualExamples, FindWhatIsWritable) {
  const Finished found = runExample("treectl list");
  EXPECT_EQ(found.status, ExitStatus{});
  EXPECT_THAT(found.output, testing::HasSubstr(filled("/{S}/drive/speed\n")));
  EXPECT_THAT(found.output, testing::Not(testing::HasSubstr("serial")));
}

TEST_F(ManualExamples, FollowTheRestartsOfAServer) {
  std::string line;
  // It prints nothing before a loss, so whether it had begun only the result shows.
  for (int i = 0; i < 20 && line.empty(); ++i) {
    Process following(example("treectl watch --time"), options());
    static_cast<void>(following.readLine(std::chrono::milliseconds(300)));
    server().kill();
    line = following.readLine(std::chrono::milliseconds(1000)).value_or("");
    server().restart();
  }
  EXPECT_THAT(line, testing::HasSubstr(filled("\t/{S}/drive/speed\t!")));
}

}  // namespace
}  // namespace treectl
