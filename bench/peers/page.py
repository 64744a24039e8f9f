"""The page of results: groups of rows, quantiles, ratios and targets, in Markdown."""

import dataclasses
import datetime
import os
import pathlib
import platform

EXPLANATION = """\
Every system serves the same 32-bit integers in groups of 1,000, with the names /group_000/item_0000
and so on (net-snmp: numbers), over named pipes, a Unix socket or, in the case of Augeas, a file.
Our programs are the installed ones. No process is bound to a processor. Within a group of rows, one
sample of each row is taken in turn, in random order; a row that has used its time gets no more
turns. "ours / this" is the median of the first row of treescope divided by the median of the row:
for times and memory less is better, for rates more.

- Our clients read the names in /tmp when they connect. If root runs the script, the programs have an
  empty /tmp of their own.
- One value is read and written by whole processes while 10,000 are served. Afterwards, the value
  stored last must be read back.
- The baseline program is linked as a compiler does it by default, and loads the C++ library at each
  start; treescope and modelsrvd contain that library. The next row is the same program linked as
  they are.
- The lists are written to a file in memory and must have as many lines as there are values. Redis
  keeps the values in one hash, which is not a tree. busctl prints a single line, which is hardly
  readable; the client of sd-bus in the row above was written for this table. So were the services
  of D-Bus and of net-snmp; the latter is connected by pass_persist, the way to publish a table
  without a library.
- The latency of an update is measured from before a client in the measuring process stores a value
  until the output of the tool has been read from a pipe. The shell prints the path of a changed
  value; redis-cli and mosquitto_sub print the value; for D-Bus, a client of sd-bus prints both.
- Rates: an update of treescope names the part that changed, and a subscriber that needs the value
  requests it. Several changes of one part that a subscriber has not read yet are therefore one
  update. Only received updates count: none that was pending before a sample began, and, with
  acknowledged stores, all those that the stores of the sample caused. Two rows each of treescope
  for acknowledged stores are two figures of the same runs. The messages of the peers contain the
  value: one subscriber requests each value, the other, of another server, watches the tree. The
  stores go to 1,000 parts in turn.
- The stream of treescope comes from a server of its own that changes its parts up to a million
  times a second and runs during these samples only. A subscriber that keeps up shows how fast that
  server makes changes, not how many updates it could receive; this limits the figure. The 5 ms, of
  505 ms, that a sample allows for updates of earlier changes count as its time. Redis and Mosquitto
  get their streams from a client that sends 1,000 messages at once, and their subscribers only
  count bytes. D-Bus drops no message, because its limits are raised.
- treectl watch prints an address and a value for each change, into a file in memory.
- The memory of a client is the peak of its resident set; that of a server is the same, summed over
  its processes.
"""


@dataclasses.dataclass
class Row:
    """The samples of one activity of one system; none if there is nothing to measure."""

    who: str
    how: str
    samples: list = dataclasses.field(default_factory=list)
    note: str = ""  # Why there is nothing to measure.
    custom: bool = False  # Measures a program written for this comparison.

    def quantile(self, part):
        return sorted(self.samples)[int(part * (len(self.samples) - 1) + 0.5)]

    @property
    def median(self):
        return self.quantile(0.5)

    @property
    def is_ours(self):
        return self.who == "treescope"

    @property
    def is_peer(self):
        return not self.is_ours and self.who != "baseline"

    @property
    def is_tree(self):
        """Whether this is a peer that has a tree. The names in a hash only look like paths."""
        return self.is_peer and self.who != "Redis"


@dataclasses.dataclass
class Group:
    """Rows of the same activity. The targets refer to its key."""

    key: str
    title: str
    unit: str
    rows: list = dataclasses.field(default_factory=list)

    @property
    def ours(self):
        return [row for row in self.rows if row.is_ours]


@dataclasses.dataclass
class Target:
    text: str
    measured: float
    required: float
    at_least: bool = False

    @property
    def is_met(self):
        if self.at_least:
            return self.measured >= self.required
        return self.measured <= self.required


def targets(groups):
    """What should hold for this system in comparison with the others, by their medians."""
    by_key = {group.key: group for group in groups}

    def ratio(key, text, required, condition=lambda row: row.is_peer, at_least=False, index=0):
        """Compares a row of ours with the best row of the group that meets the condition."""
        group = by_key[key]
        others = [row for row in group.rows if row.samples and condition(row)]
        best = (max if at_least else min)(others, key=lambda row: row.median)
        return Target(f"{text} ({best.who}: {best.how})", group.ours[index].median / best.median,
                      required, at_least)

    lists = "list 10000"
    return [
        ratio("read", "one value read, compared with the fastest peer", 1),
        ratio("read", "the same by treectl, compared with a program that prints a line", 1,
              lambda row: row.who == "baseline" and "linked" not in row.how, index=1),
        ratio("write", "one value written, compared with the fastest peer", 1),
        ratio(lists, "10,000 values listed, compared with the fastest tool that lists a tree", 0.5,
              lambda row: row.is_tree and not row.custom),
        ratio(lists, "the same, compared with a program written for a peer that has a tree", 0.5,
              lambda row: row.is_tree and row.custom, index=2),
        *(ratio(lists, f"the same by {name}", 0.5, lambda row: row.is_tree and row.custom,
                index=index) for name, index in (("treectl list -rl", 3), ("treectl dump", 4))),
        ratio(lists, "the same, compared with a flat hash", 1, lambda row: row.who == "Redis"),
        ratio("latency", "a store until it is shown, compared with the fastest peer", 1),
        ratio("acknowledged", "acknowledged stores a second, compared with the fastest peer", 1,
              at_least=True),
        ratio("acknowledged", "the same, with a subscriber that watches", 1, at_least=True,
              index=2),
        ratio("stream", "updates a second, compared with the fastest peer", 1, at_least=True),
        ratio("stream", "the same, with each value", 1, at_least=True, index=2),
        ratio("stream", "values that treectl watch prints, compared with those that a client of "
              "the library gets", 0.5, lambda row: "watches the tree" in row.how, at_least=True,
              index=3),
        Target("memory of the shell for one value, KiB", by_key["client memory"].ours[0].median,
               6144),
    ]


def number(value):
    """With three significant digits, or all digits before the point."""
    size = abs(value)
    digits = 0 if size >= 100 else 1 if size >= 10 else 2 if size >= 1 else 3
    return f"{value:{',' if size >= 9999.5 else ''}.{digits}f}"


def value_in(file, key, separator):
    """The value after `key` in a file of lines "key separator value"."""
    for line in pathlib.Path(file).read_text().splitlines():
        if line.startswith(key):
            return line.partition(separator)[2].strip(' "')
    return "unknown"


def machine():
    # The part of the release after a hyphen names the builder.
    release = platform.release().partition("-")[0]
    return (f"{os.sysconf('SC_NPROCESSORS_ONLN')} processors "
            f"({value_in('/proc/cpuinfo', 'model name', ':')}), {platform.system()} {release}, "
            f"{value_in('/etc/os-release', 'PRETTY_NAME', '=')}, "
            f"{'an empty /tmp' if os.environ.get('TREESCOPE_BENCH_TMP') else '/tmp as it was'}")


def render(groups):
    notes = []

    def row_line(row, ours):
        mark = ""
        if row.note:
            if row.note not in notes:
                notes.append(row.note)
            mark = f" [{notes.index(row.note) + 1}]"
        if not row.samples:
            return f"| {row.who} | {row.how}{mark} | | | | | |"
        ratio = number(ours.median / row.median) if row is not ours else ""
        return (f"| {row.who} | {row.how}{mark} | {number(row.median)} | "
                f"{number(row.quantile(0.1))} | {number(row.quantile(0.9))} | {len(row.samples)} | "
                f"{ratio} |")

    today = datetime.datetime.now(datetime.UTC).date()
    lines = ["# treescope compared with other systems", "",
             f"Measured with `script/bench` on {today}: {machine()}.", "", EXPLANATION,
             "| | | median | p10 | p90 | runs | ours / this |",
             "|:--|:--|--:|--:|--:|--:|--:|"]
    for group in groups:
        lines.append(f"| **{group.title}** | *{group.unit}* | | | | | |")
        lines += [row_line(row, group.ours[0]) for row in group.rows]
    lines.append("")
    lines += [f"{index}. {note}" for index, note in enumerate(notes, 1)]
    lines += ["", "## Targets", "", "| target | measured | required | |", "|:--|--:|--:|:--|"]
    for target in targets(groups):
        bound = "at least" if target.at_least else "at most"
        lines.append(f"| {target.text} | {number(target.measured)} | "
                     f"{bound} {number(target.required)} | "
                     f"{'met' if target.is_met else '**missed**'} |")
    return "\n".join(lines) + "\n"
