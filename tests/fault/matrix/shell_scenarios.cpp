#include <cerrno>
#include <csignal>

#include "tests/fault/matrix/run.h"

// Calls of the shell fail, beside a server that works.
namespace fault_matrix {

namespace {

/// The value that /drive/speed must have: the one that the shell has printed after it
/// stored it, or, if it printed none, either.
void checkStored(Run& run, const std::string& written) {
  const bool acknowledged = written.find("/drive/speed    [7]") != std::string::npos;
  run.checkClient("7", acknowledged ? "7" : "42");
}

Program& runCommandString(Run& run) {
  Program& server = run.startServer();
  Program& shell = run.stage().start(
      {run.programs().shell, "-c",
       "ls;cd Model_m;set 7 /drive/speed;ls -lr;get /drive/label;to saved /;$ echo shown"},
      &run.fault());
  run.stage().waitForEnd(shell);
  run.checkExit(shell, 0);
  run.checkText("output", shell.written);
  run.checkText("saved file", contentsOf("saved"));
  checkStored(run, shell.written);
  run.stopServer(server);
  return shell;
}

Program& runCommandFile(Run& run) {
  Program& server = run.startServer();
  writeFile("values", "set 1.5 /drive/gains[0]\nget /limit\n");
  writeFile("commands",
            "cd Model_m\neu -r /\neu -l\nset 7 /drive/speed\nfrom values\ndu /Model_m\n"
            "ls drive\ncd\nls\n");
  Program& shell = run.stage().start({run.programs().shell, "-f", "commands"}, &run.fault());
  run.stage().waitForEnd(shell);
  run.checkExit(shell, 0);
  run.checkText("output", shell.written);
  checkStored(run, shell.written);
  run.stopServer(server);
  return shell;
}

/// Types `keys` and waits for `text` after them. False if it does not come.
bool exchange(Run& run, Program& shell, const std::string& keys, const std::string& text) {
  const std::size_t mark = shell.written.size();
  run.stage().type(shell, keys);
  // Longer than a request without a reply takes. Only with a fault that the shell
  // makes up for is the text certain to come.
  constexpr Stage::Milliseconds afterError{2500};
  const bool certain = run.isTransparent() || run.fault().call < 0;
  run.stage().waitUntil(
      [&] { return shell.status || shell.written.find(text, mark) != std::string::npos; },
      certain ? Stage::limit : afterError);
  return shell.written.find(text, mark) != std::string::npos;
}

Program& runInteractive(Run& run) {
  Program& server = run.startServer();
  test_support::PseudoTerminal terminal;
  Program& shell = run.stage().startOnTerminal({run.programs().shell}, &run.fault(), terminal);
  termios before{};
  ::tcgetattr(terminal.device.get(), &before);
  const auto step = [&](const char* keys, const char* text) {
    return exchange(run, shell, keys, text);
  };
  const bool complete = step("", "[ /]$ ") && step("cd Mod\t\n", "[ Model_m]$ ") &&
                        step("set 7 /drive/spe\t\n", "[7]") &&
                        step("eu /limit\n", "[ Model_m]$ ") && step("\033[A", "eu /limit") &&
                        step("\x17$ echo sho'wn'\n", "shown\r\n") &&
                        step("set 3 /limit\n", "[3]") && step("ls -lmr\n", "+-- drive");
  if (run.isTransparent() || run.fault().call < 0) {
    run.stage().expect(complete,
                       "a step is missing after an interrupted call: " + shown(shell.written));
  }
  // A line that was begun ends, and so does a pager.
  run.stage().type(shell, "q\n\nexit\n");
  run.stage().waitForEnd(shell);
  run.checkExit(shell, 0);
  termios after{};
  ::tcgetattr(terminal.device.get(), &after);
  run.stage().expect(test_support::sameMode(before, after), "the terminal's mode is not restored");
  checkStored(run, shell.written);
  run.stopServer(server);
  return shell;
}

}  // namespace

const std::vector<Scenario> shellScenarios{
    {"shell -c", runCommandString}, {"shell -f", runCommandFile}, {"shell", runInteractive}};

}  // namespace fault_matrix
