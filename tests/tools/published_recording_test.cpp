#include <signal.h>

#include "tests/tools/treectl_fixture.h"

// What `treectl record` writes and `modelsrvd --replay` publishes is the recorded tree.

namespace treectl {
namespace {

using test_support::ExitStatus;
using test_support::ModelServer;
using test_support::Process;

class PublishedRecording : public TreectlTest {
 protected:
  /// Records until the file has `text`, which something causes that `change` does.
  template <typename Change>
  void record(const std::vector<std::string>& options, const std::string& text, Change change) {
    std::vector<std::string> command{treectlProgram(), "record", "-o", files().file("rec")};
    for (const std::string& option : options) {
      command.push_back(filled(option));
    }
    Process recording(command);
    // The first flush shows that the recording has begun.
    ASSERT_TRUE(test_support::eventually([&] { return fileSize("rec") > 100; }));
    change();
    ASSERT_TRUE(test_support::eventually(
        [&] { return files().read("rec").find(text) != std::string::npos; }));
    recording.signal(SIGTERM);
    ASSERT_EQ(recording.waitForExit(), ExitStatus{}) << recording.errors();
  }

  /// What `treectl dump` prints of a server, without its header.
  std::string dumpOf(const std::string& name) {
    const std::string dump = output({"dump", "/" + name});
    return dump.substr(std::min(dump.find("},\n"), dump.size()));
  }

  static std::string shell(const std::string& name, const std::string& commands) {
    return test_support::run(
               {test_support::treescopeProgram(), "-c", "cd " + name + ";" + commands})
        .output;
  }
};

TEST_F(PublishedRecording, IsTheSameTreeInTreectlAndInTheShell) {
  record({"/{S}"}, "\"fast\",\"changes\":", [&] {
    expect({{"set", "/{S}/drive/speed", "50"}});
    expect({{"set", "/{S}/notes[1]", "a\nb\xff"}});
    expect({{"set", "--array", "/{S}/drive/gains", "-0", "1e-300"}});
    expect({{"set", "/{S}/settings/mode", "fast"}});
  });
  ModelServer replayed({"--replay", files().file("rec"), "--speed", "1000000"});
  // The last change of the recording.
  ASSERT_TRUE(test_support::eventually([&] {
    return output({"get", "/" + replayed.name() + "/settings/mode"}) == "fast\n";
  }));
  EXPECT_EQ(dumpOf(replayed.name()), dumpOf(server().name()));
  EXPECT_EQ(output({"describe", "/" + replayed.name() + "/settings/setpoint"}),
            output({"describe", "/{S}/settings/setpoint"}));
  for (const std::string commands : {"ls", "ls -lr", "ls -l drive/gains", "ls -lr settings",
                                     "get settings/big", "ls -l notes", "get drive/label"}) {
    EXPECT_EQ(shell(replayed.name(), commands), shell(server().name(), commands)) << commands;
  }
  // A client may store where the recorded server let one.
  EXPECT_EQ(runTreectl({"set", "/" + replayed.name() + "/settings/setpoint", "7"}).status,
            ExitStatus{});
  EXPECT_EQ(runTreectl({"set", "/" + replayed.name() + "/settings/setpoint", "70"}).status,
            (ExitStatus{5, 0}));
  EXPECT_EQ(runTreectl({"set", "/" + replayed.name() + "/drive/serial", "x"}).status,
            (ExitStatus{5, 0}));
  EXPECT_TRUE(replayed.stops(SIGTERM)) << replayed.process().errors();
}

TEST_F(PublishedRecording, HasTheNamesThatAddressesDoNotHaveAndChangesItsStructure) {
  const auto described = [](const std::string& list) {
    return R"({"name": "Model_moving", "children": [)" + list + "]}";
  };
  const auto node = [](int id, const std::string& parts) {
    return R"({"id": )" + std::to_string(id) + R"(, "name": "n", "children": [)" + parts + "]}";
  };
  const auto part = [](int id, const std::string& name) {
    return R"({"id": )" + std::to_string(id) + R"(, "name": ")" + name +
           R"(", "type": "int32", "value": )" + std::to_string(id) + "}";
  };
  ModelServer moving(
      {"--tree", files().write("tree.json", described(node(1, part(1, "a") + "," + part(2, "a")) +
                                                      "," + node(2, part(3, "x"))))});
  const auto reload = [&](const std::string& list) {
    static_cast<void>(files().write("tree.json", described(list)));
    moving.process().signal(SIGHUP);
  };
  const std::string begin = shell(moving.name(), "ls -lr");
  std::string middle;
  std::string end;
  record({"/" + moving.name()}, "\"address\":\"/" + moving.name() + "/last\"", [&] {
    reload(node(1, part(2, "a")) + "," + node(3, "") + "," + node(4, part(1, "yps")));
    ASSERT_TRUE(test_support::eventually([&] {
      middle = shell(moving.name(), "ls -lr");
      return middle.find("yps") != std::string::npos;
    }));
    reload(node(4, part(1, "yps") + "," + part(2, "yps")) + "," + part(5, "last"));
    ASSERT_TRUE(test_support::eventually([&] {
      end = shell(moving.name(), "ls -lr");
      return end.find("last") != std::string::npos;
    }));
  });
  ModelServer slow({"--replay", files().file("rec"), "--speed", "0.001"});
  EXPECT_EQ(shell(slow.name(), "ls -lr"), begin);
  ModelServer fast({"--replay", files().file("rec"), "--speed", "1000000"});
  std::string replayed;
  EXPECT_TRUE(test_support::eventually([&] {
    replayed = shell(fast.name(), "ls -lr");
    return replayed == end;
  })) << replayed
      << end;
  EXPECT_NE(middle, end);
  // For programs that do not know such changes there is nothing to do at them.
  expect({{"replay", "--as-fast-as-possible", "{D}/rec", "-q"}, 3});
}

TEST_F(PublishedRecording, HasTheNameOfTheServerByDefault) {
  record({"-s", "{S}", "/drive"}, "\"changes\":", [&] {
    expect({{"set", "/{S}/drive/speed", "50"}});
  });
  server().kill();
  Process replayed({test_support::modelsrvdProgram(), "--replay", files().file("rec")});
  EXPECT_EQ(replayed.readLine(), "ready " + server().name());
  ASSERT_TRUE(test_support::eventually([&] {
    return output({"get", "/{S}/drive/speed"}) == "50\n";
  }));
  replayed.signal(SIGTERM);
  EXPECT_EQ(replayed.waitForExit(), ExitStatus{});
  EXPECT_EQ(replayed.errors(), "");
  server().restart();
}

TEST_F(PublishedRecording, ThatIsWrongIsRefusedLikeOtherFiles) {
  const std::string file = files().write(
      "rec", "{\"format\":1,\"start\":\"2026-11-22T09:32:55.659952Z\",\"parts\":[]}\n{\n");
  const auto finished = test_support::runModelsrvd({"--replay", file});
  EXPECT_EQ(finished.status, (ExitStatus{2, 0}));
  EXPECT_EQ(finished.output, "");
  EXPECT_EQ(finished.errors, "modelsrvd: --replay: " + file + ": line 2: no JSON at byte 2\n");
  const auto missing = test_support::runModelsrvd({"--replay", files().file("none")});
  EXPECT_EQ(missing.status, (ExitStatus{2, 0}));
  EXPECT_EQ(missing.errors,
            "modelsrvd: --replay: " + files().file("none") + ": No such file or directory\n");
  const std::string empty = files().write(
      "rec", "{\"format\":1,\"start\":\"2026-11-22T09:32:55.659952Z\",\"parts\":[]}\n");
  const auto nameless = test_support::runModelsrvd({"--replay", empty});
  EXPECT_EQ(nameless.status, (ExitStatus{2, 0}));
  EXPECT_EQ(nameless.errors,
            "modelsrvd: " + empty + ": not of one server, and --name is not given\n");
}

}  // namespace
}  // namespace treectl
