#include "tests/tools/watch_fixture.h"

namespace treectl {
namespace {

using test_support::ExitStatus;

using Record = WatchTest;

TEST_F(Record, IsReplayed) {
  const auto record = start({"record", "-o", "{D}/fault.rec", "/{S}/drive"});
  const auto watch = start({"watch", "/{S}/drive/speed"});
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t42"));
  // The first flush shows that the recording has begun.
  ASSERT_TRUE(test_support::eventually([&] { return fileSize("fault.rec") > 100; }));
  set("/{S}/drive/speed", "50");
  set("/{S}/drive/gains[1]", "9");
  EXPECT_EQ(watch->readLine(), filled("/{S}/drive/speed\t50"));
  ASSERT_TRUE(test_support::eventually(
      [&] { return files().read("fault.rec").find("\"value\":9,") != std::string::npos; }));
  record->signal(SIGTERM);
  EXPECT_EQ(record->waitForExit(), ExitStatus{}) << record->errors();
  EXPECT_THAT(files().read("fault.rec"), testing::StartsWith("{\"format\":1,\"version\":\""));
  set("/{S}/drive/speed", "1");
  set("/{S}/drive/gains[1]", "1");
  expect({{"replay", "--as-fast-as-possible", "{D}/fault.rec"},
          5,
          "",
          "treectl: /{S}/drive/offset: the part is protected\n"
          "stored 9, skipped 1, refused 1\n"});
  expect({{"get", "/{S}/drive/speed", "/{S}/drive/gains"},
          0,
          "/{S}/drive/speed\t50\n/{S}/drive/gains\t1.5 9\n"});
  expect({{"replay", "--speed", "1000", "--protected", "{D}/fault.rec"},
          0,
          "",
          "stored 10, skipped 1, refused 0\n"});
}

TEST_F(Record, ThatCannotBeginLeavesTheFile) {
  static_cast<void>(files().write("old.rec", "old"));
  for (const char* const address : {"", "/{S}/none", "/{S}_none"}) {
    const int status = *address == 0 ? 2 : filled(address).ends_with("_none") ? 4 : 3;
    std::vector<std::string> command{"record", "-o", files().file("old.rec"), filled(address)};
    EXPECT_EQ(runTreectl(command).status, (ExitStatus{status, 0})) << address;
    EXPECT_EQ(files().read("old.rec"), "old") << address;
  }
  expect({{"record", "-o", "{D}/none/rec", "/{S}"},
          9,
          "",
          "treectl: {D}/none/rec: No such file or directory\n"});
}

TEST_F(Record, IsReplayedWithoutItsUnfinishedLine) {
  static_cast<void>(files().write(
      "cut.rec",
      filled("{\"format\":1,\"parts\":[{\"address\":\"/x\",\"value\":1}]}\n"
             "{\"time\":\"2026-11-21T09:30:01.000123Z\",\"address\":\"/{S}/drive/speed\","
             "\"value\":8}\n"
             "{\"time\":\"2026-11-21T09:30:01.100123Z\",\"address\":\"/{S}/drive/speed\","
             "\"event\":\"lost\"}\n"
             "{\"time\":\"2026-11-21T09:3")));
  expect({{"replay", "{D}/cut.rec"}, 0, "", "stored 1, skipped 0, refused 0\n"});
  expect({{"get", "/{S}/drive/speed"}, 0, "8\n"});
  static_cast<void>(files().write("bad.rec", "{\"format\":2}\n"));
  expect(
      {{"replay", "{D}/bad.rec"}, 9, "", "treectl: {D}/bad.rec: expected a header of format 1\n"});
  expect({{"dump", "/{S}/drive", "-o", "{D}/dump.json"}});
  expect({{"replay", "{D}/dump.json"},
          9,
          "",
          "treectl: {D}/dump.json: expected lines of objects, got an array (a dump is for "
          "restore)\n"});
}

}  // namespace
}  // namespace treectl
