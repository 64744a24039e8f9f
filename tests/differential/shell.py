"""The shell: dispatch, results, command strings and files, completion."""

import re

from commands import BAD_OPTION, NO_FILE, NOTHING, SUCCESS, Commands, file_name
from screen import Screen
from values import Unmodelled
from words import check_arguments, split_at, split_commands, split_words, unquote_line

ENDING = 11
MESSAGES = {2: b"UnknownError", 4: b"NotFound", 5: b"OptionError", 6: b"OpenFileError",
            7: b"ConnectError"}
COMPLETED = b"cat cd du eu exit from get help ls set str to quit".split()
ENDINGS = (b"exit", b"quit", b"q")
SAFE_COMMAND = re.compile(rb"echo [A-Za-z0-9 ]*")

# name: (most arguments, option mask, fewest arguments)
LIMITS = {
    b"ls": (1, 15, 0), b"bt": (0, 15, 0), b"cd": (1, 0, 0), b"setport": (3, 0, 3),
    b"set": (2, 12, 1), b"get": (1, 0, 0), b"eu": (1, 7, 0), b"du": (1, 1, 0), b"cat": (1, 4, 0),
    b"convert": (2, 0, 1), b"from": (2, 0, 1), b"to": (2, 0, 1), b"con": (2, 0, 1),
    b"dis": (2, 0, 1), b"rn": (2, 0, 1), b"load": (1, 0, 0), b"save": (1, 0, 0), b"rm": (1, 0, 0),
    b"mkdir": (1, 0, 0), b"cmdfrom": (1, 0, 1), b"history": (1, 0, 0),
}


class Shell(Commands):
    """`editor` is None in batch mode; `files` is what the working directory holds."""

    def __init__(self, root, server, size=None, force=False, files=None):
        self.root = root
        self.server = server
        self.batch = size is None
        self.rows, self.columns = size or (0, 0)
        self.force = force
        self.files = dict(files or {})
        self.out = bytearray()
        self.editor = None
        self.screen = Screen(self.out, self.batch, self.rows, self.columns, self.pager_key)
        self.client = None
        self.current_path = []
        self.running = True
        self.updates = []
        self.dropped = 0
        self.file_runs = 0
        self.system_runs = 0
        self.commands = 0
        self.depth = 0
        self.walked = []  # Depths of the nodes that `eu -r` is walking.

    def pager_key(self):
        return self.editor.next_byte()

    def prompt_name(self):
        return b" " + (self.screen.shown(self.current_path[-1]) if self.current_path else b"/")

    def run_line(self, line):
        for piece in split_at(line, b";"):
            result = self.dispatch(piece)
            if result not in (SUCCESS, NOTHING):
                return result
        return SUCCESS

    def run_string(self, text, unquote=False):
        result = NOTHING
        for command in split_commands(unquote_line(text) if unquote else text):
            result = self.run_line(command)
            if result != SUCCESS:
                break
        return result

    def run_file(self, name):
        name = file_name(name)
        if name is None or name not in self.files:
            return NO_FILE
        self.file_runs += 1
        self.depth += 1
        if self.depth > 20:
            raise Unmodelled("files that run each other")
        before = self.files[name]
        result = self.run_lines(before)
        self.depth -= 1
        if self.files[name] != before:
            raise Unmodelled("a file that is written while it runs")
        return result

    def run_lines(self, content):
        result = NOTHING
        for line in content.split(b"\n"):
            if len(line) > 999:
                raise Unmodelled("a line that is cut")
            result = self.run_string(line, True)
            if result != SUCCESS:
                break
        return result

    def print_result(self, result):
        if result not in (SUCCESS, NOTHING, ENDING):
            feed = b"" if self.batch else b"\n"
            self.screen.print_styled(b"ERROR: " + MESSAGES.get(result, b"unknownError") + feed)
        return result

    def dispatch(self, command):
        words = split_words(command)
        if not words:
            return NOTHING
        self.commands += 1
        name, *arguments = words
        if name in ENDINGS + (b"pwd", b"end", b"terminate"):
            return self.run_bare(name, arguments)
        if name == b"tab":
            return self.run_tab(command, arguments)
        if name == b"str":
            first, second = self.pick(arguments, 2)
            return self.print_result(BAD_OPTION if first is None else self.do_str(first, second))
        if name == b"help":
            if arguments:
                return NOTHING
            raise Unmodelled("the manual page")
        if name in LIMITS:
            return self.run_checked(name, arguments)
        return self.run_unknown(command, arguments)

    def run_bare(self, name, arguments):
        if arguments:
            self.print_result(BAD_OPTION)
            return NOTHING
        if name in ENDINGS:
            self.do_du(None)
            self.running = False
            return ENDING
        if name == b"pwd":
            self.screen.print_line(self.screen.shown(b"/" + b"/".join(self.current_path)))
            return SUCCESS
        return NOTHING

    @staticmethod
    def pick(arguments, count):
        return (arguments + [None] * count)[:count]

    def run_checked(self, name, arguments):
        most, mask, fewest = LIMITS[name]
        accepted, options, arguments = check_arguments(arguments, most, mask)
        if name == b"history":
            return self.list_history() if accepted else BAD_OPTION
        if not accepted or len(arguments) < fewest:
            return self.print_result(BAD_OPTION)
        first, second = self.pick(arguments, 2)
        handlers = {
            b"ls": lambda: self.do_ls(options, first), b"cd": lambda: self.do_cd(first),
            b"set": lambda: self.do_set(options, first, second), b"get": lambda: self.do_get(first),
            b"eu": lambda: self.do_eu(options, first), b"cat": lambda: self.do_eu(options, first),
            b"du": lambda: self.do_du(first), b"from": lambda: self.do_from(first),
            b"to": lambda: self.do_to(first, second), b"cmdfrom": lambda: self.run_file(first),
        }
        return self.print_result(handlers.get(name, lambda: NOTHING)())

    def list_history(self):
        for number, entry in enumerate(self.editor.history if self.editor else []):
            self.screen.print_line(b"%d " % number + entry)
        return SUCCESS

    def run_unknown(self, command, arguments):
        if command.startswith(b"$"):
            if not SAFE_COMMAND.fullmatch(command[1:]):
                raise Unmodelled("a command of the system")
            self.system_runs += 1
            self.out += b" ".join(command[1:].split()[1:]) + b"\n"
            return NOTHING
        return NOTHING if arguments else self.print_result(BAD_OPTION)

    def run_tab(self, command, arguments):
        if not arguments:
            return self.complete(None, None)
        head = arguments[0]
        if len(arguments) > 1:
            return self.complete(head + b" ", arguments[-1])
        return self.complete(head + (b" " if command.endswith(b" ") else b""), None)

    def complete(self, head, word):
        if word is None:
            if not self.complete_command(head):
                return SUCCESS
            word = b""
        if self.current_path and word.startswith(b"~"):
            word = b"/" + word[1:]
        slash = word.rfind(b"/")
        directory, prefix = (word[:slash] or b"/", word[slash + 1:]) if slash >= 0 else (b"", word)
        if self.client:
            self.present(self.tree_candidates(directory, prefix), False)
        else:
            self.present(self.server_candidates(prefix), False)
        return SUCCESS

    def complete_command(self, head):
        offered = [name + b" " for name in COMPLETED]
        if head in offered:
            return True
        self.present([name for name in offered if name.startswith(head or b"")], True)
        return False

    def server_candidates(self, prefix):
        if len(prefix) < 18 or not self.server.startswith(prefix):
            raise Unmodelled("the servers of the machine")
        return [self.server for key in (b"modelsrv", b"Model") if key in self.server]

    def tree_candidates(self, directory, prefix):
        if prefix == b"..":
            return [b".."]
        resolved = self.client.resolve(directory)
        children = self.client.children(resolved[0]) if resolved else []
        return [child.shown_name() + (b"/" if child.children else b"")
                for child in children if child.shown_name().startswith(prefix)]

    def present(self, candidates, whole_line):
        if len(candidates) > 1:
            self.screen.print_columns(candidates)
        if self.editor:
            self.editor.take_candidates(candidates, whole_line)
