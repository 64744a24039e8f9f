#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/port_name.h"
#include "tests/tools/treectl_fixture.h"
#include "tools/option_table.h"

// The completion of the shells. That of bash is run; the others are compared with the tables, and
// run by shells_test.py.

namespace treectl {
namespace {

class Completion : public TreectlTest {
 protected:
  /// What bash offers for the last of `words`, separated by spaces.
  std::string offered(const std::vector<std::string>& words) {
    std::string script = "cd " + files().path() + "; PATH=" + test_support::buildDirectory() +
                         "/bin:$PATH; source " + test_support::sourceDirectory() +
                         "/tools/completion/treectl.bash; COMP_WORDS=(treectl";
    for (const std::string& word : words) {
      script += " '" + filled(word) + "'";
    }
    script +=
        "); COMP_CWORD=" + std::to_string(words.size()) + "; _treectl; echo \"${COMPREPLY[*]}\"";
    const test_support::Finished finished =
        test_support::run({"/bin/bash", "--norc", "-c", script});
    EXPECT_EQ(finished.errors, "");
    return finished.output;
  }
};

TEST_F(Completion, OffersCommandsAndOptions) {
  EXPECT_EQ(offered({"re"}), "restore record replay\n");
  EXPECT_EQ(offered({"list", "--re"}), "--recursive\n");
  EXPECT_EQ(offered({"get", "--ra"}), "--raw\n");
  EXPECT_EQ(offered({"--color", "a"}), "auto always\n");
  EXPECT_EQ(offered({"help", "wa"}), "watch wait\n");
}

TEST_F(Completion, OffersServersAndAddressesOfTheLiveTree) {
  EXPECT_EQ(offered({"get", "/{S}"}), filled("/{S}/\n"));
  EXPECT_EQ(offered({"get", "-s", "{S}"}), filled("{S}\n"));
  EXPECT_EQ(offered({"get", "/{S}/d"}), filled("/{S}/drive/\n"));
  EXPECT_EQ(offered({"get", "/{S}/drive/s"}),
            filled("/{S}/drive/speed /{S}/drive/serial /{S}/drive/secret\n"));
  EXPECT_EQ(offered({"-s", "{S}", "get", "/set"}), "/settings/\n");
  EXPECT_EQ(offered({"get", "/{S}/none/x"}), "\n");
  server().kill();
  EXPECT_EQ(offered({"get", "/{S}/d"}), "\n");
  server().restart();
}

TEST_F(Completion, RunsNothingOfTheNameOfAServer) {
  // A server that has ended has a state, too.
  const std::string port = test_support::uniquePortName();
  const std::string mailbox = test_support::mailboxPath(port + "$(>run)");
  ASSERT_EQ(::mkfifo(mailbox.c_str(), 0600), 0);
  EXPECT_EQ(offered({"get", "-s", port}), port + "\\$\\(\\>run\\)\n");
  EXPECT_EQ(offered({"get", "/" + port}), "/" + port + "\\$\\(\\>run\\)/\n");
  EXPECT_EQ(::unlink(mailbox.c_str()), 0);
  EXPECT_TRUE(std::filesystem::is_empty(files().path()));
}

TEST_F(Completion, KnowsEveryCommandAndOption) {
  for (const char* const file : {"treectl.bash", "_treectl", "treectl.fish"}) {
    std::ifstream in(test_support::sourceDirectory() + "/tools/completion/" + file);
    std::stringstream text;
    text << in.rdbuf();
    for (const CommandRow& row : commandTable()) {
      EXPECT_THAT(text.str(), testing::HasSubstr(std::string(row.name))) << file;
    }
    for (const OptionRow& row : optionTable()) {
      EXPECT_THAT(text.str(), testing::HasSubstr(std::string(row.name.substr(2)))) << file;
    }
  }
}

}  // namespace
}  // namespace treectl
