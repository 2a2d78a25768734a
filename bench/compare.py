"""Compares fscan with other programs; bench/compare calls it. See bench/README.md.

Each row of the table has one command of fscan, the commands of other programs, and the ratio
aimed at. The commands of a row run in turn, round after round, so that other load of the machine
affects all of them alike. The result is the median of the rounds' ratios. rows_of, other_rows and
memory define the comparisons; Measure runs them.
"""

import argparse
import contextlib
import dataclasses
import datetime
import math
import os
import platform
import shlex
import shutil
import socket
import statistics
import subprocess
import sys
import time
from pathlib import Path
from typing import Callable

SIZES = {"100k": 100_000, "1m": 1_000_000, "10m": 10_000_000}
BOTH = ["100k", "1m"]
NEEDLE = "needle-in-the-hay.dat"
LARGE = "[SIZE]>102400"
ELF = 'type(path([PATHID],[FILENAME]),"ELF")'
SHORT_RUN = 0.05  # seconds; shorter commands run in more rounds, because of noise
SHORT_ROUNDS = 6  # the factor


@dataclasses.dataclass
class Side:
    """One program's command. `count` is a command that prints the paths found, or their number."""

    label: str
    command: str
    before: Callable[[], None] | None = None  # not timed
    count: str | None = None


@dataclasses.dataclass
class Peer:
    side: Side
    at_most: float | None  # the ratio aimed at; None: reported only
    limit: str = ""  # the ratio that a minimal program reached


@dataclasses.dataclass
class Row:
    number: str
    ours: Side
    peers: list[Peer]
    flat: bool = False  # the time should not grow with the tree


@dataclasses.dataclass
class Cost:
    status: int
    seconds: float
    cpu: float
    peak: int  # KiB
    private: int


class Tree:
    """A tree to search, its warm cache, its cold cache, and plocate's database of it."""

    def __init__(self, path: Path, work: Path, name: str, bin_directory: Path):
        self.path, self.name, self.bin = path, name, bin_directory
        self.cache = work / f"cache-{name}"
        self.cold = work / f"cold-{name}"
        self.database = work / f"plocate-{name}.db"
        self.directories: dict[int, list[str]] = {}  # by how many of them change

    def checked(self, options: str) -> str:
        """A search that compares the warm cache with the disk first."""
        return f"fscan --cache-dir {q(self.cache)} {options} {q(self.path)}"

    def all_directories(self) -> list[str]:
        found = subprocess.run(["find", self.path, "-type", "d"], capture_output=True, text=True,
                               check=True)
        return sorted(found.stdout.splitlines())

    def change(self, count: int) -> None:
        """Changes the entries of so many directories, which end as they were."""
        if count not in self.directories:
            found = self.all_directories()
            self.directories[count] = found[::max(1, len(found) // count)][:count]
        for directory in self.directories[count]:
            file = Path(directory) / "changed"
            file.touch()
            file.unlink()

    def plant_rules(self) -> None:
        """Every hundredth directory gets a file of ignore rules, once."""
        if (self.path / ".ignore").exists():
            return
        for directory in self.all_directories()[::100]:
            (Path(directory) / ".ignore").write_text("*.o\n/build/\n!keep.o\n**/*config*.h\n")

    def fscan(self, options: str) -> str:
        """A search that is answered from the warm cache as it is."""
        return f"fscan --cache-dir {q(self.cache)} --max-age 1000d {options} {q(self.path)}"

    def build(self, options: str) -> str:
        """A first search, which builds the cache. `forget` has to run before it."""
        return f"fscan --cache-dir {q(self.cold)} --fresh {options} {q(self.path)}"

    def rebuild(self, options: str, subtree: str) -> str:
        """A search that rebuilds a subtree in the warm cache of the whole tree."""
        where = q(self.path / subtree)
        return f"fscan --cache-dir {q(self.cache)} --fresh {options} {where}"

    def direct(self, options: str) -> str:
        return f"fscan --no-cache {options} {q(self.path)}"

    def locate(self, options: str) -> str:
        return f"plocate -d {q(self.database)} {options}"

    def updatedb(self) -> str:
        everything = "--prunepaths '' --prunenames '' --prunefs '' --prune-bind-mounts no"
        return f"updatedb -l 0 {everything} -U {q(self.path)} -o {q(self.database)}"

    def forget(self) -> None:
        shutil.rmtree(self.cold, ignore_errors=True)

    def drop_database(self) -> None:
        self.database.unlink(missing_ok=True)


def q(text) -> str:
    return shlex.quote(str(text))


def say(text: str) -> None:
    print(text, file=sys.stderr, flush=True)


def rows_of(tree: Tree) -> list[Row]:
    """The rows over a generated tree."""
    path = q(tree.path)

    def warm(options: str, label: str) -> Side:
        return Side(label, tree.fscan(options))

    def direct(options: str, label: str) -> Side:
        return Side(label, tree.direct(options))

    def bfs(options: str) -> Side:
        return Side(f"bfs {options}", f"bfs {path} {options}")

    def plocate(options: str) -> Side:
        return Side(f"plocate {options}", tree.locate(options))

    def fd(options: str) -> Side:
        return Side(f"fd {options}", f"fdfind {options} -s -g '*.h' {path}")

    exact, size_and_name = q("\\" + NEEDLE), f"-type f -size +100k -name '*.h'"
    cold = Side("cold fscan --fresh -c", tree.build("-c"), tree.forget)
    rebuild = Side("updatedb", tree.updatedb(), tree.drop_database,
                   tree.updatedb() + f" && find {path} ! -type d | wc -l")
    rows = [
        Row("1", direct("-n '*.h'", "fscan --no-cache -n '*.h'"), [
            Peer(bfs("-name '*.h'"), 0.80, "0.58–0.67"),
            Peer(Side("find -name '*.h'", f"find {path} -name '*.h'"), 0.60, "0.47"),
            Peer(fd("-uu -j1"), 0.70, "0.51–0.55"),
            Peer(fd("-uu"), None, "aim 1.0")]),
        Row("2", direct(f"-w '{LARGE}'", f"fscan --no-cache -w '{LARGE}'"),
            [Peer(bfs("-type f -size +100k"), 0.90, "0.79")]),
        Row("3", cold, [Peer(rebuild, 0.65 if tree.name == "100k" else 0.90,
                             "0.50" if tree.name == "100k" else "0.78")]),
        Row("4", warm("-n '*.h'", "fscan -n '*.h'"), [Peer(plocate("-b '*.h'"), 0.20, "0.11")]),
        Row("5", warm("-i -n '*.h'", "fscan -i -n '*.h'"),
            [Peer(plocate("-i -b '*.h'"), 0.10, "0.04")]),
        Row("6", warm("-n '*config*'", "fscan -n '*config*'"),
            [Peer(plocate("-b '*config*'"), 0.60, "0.41")]),
        Row("7", warm(f"-w '{LARGE}' -n '*.h' -c", f"fscan -w '{LARGE}' -n '*.h' -c"),
            [Peer(bfs(size_and_name), 0.03, "0.01")]),
        Row("8", warm(f"-n {NEEDLE}", "fscan -n NAME"),
            [Peer(Side("plocate -b '\\NAME'", tree.locate(f"-b {exact}")), 0.90, "0.35–0.85")],
            flat=True),
        Row("9", warm("-n '*' --sort pathname", "fscan -n '*' --sort pathname"),
            [Peer(Side("fscan -n '*' \\| sort", tree.fscan("-n '*'") + " | LC_ALL=C sort"),
                  0.80, "0.6")]),
        Row("now", Side("checked fscan -n '*.h'", tree.checked("-n '*.h'")), [
            Peer(Side("find -name '*.h'", f"find {path} -name '*.h'"), 0.22),
            Peer(direct("-n '*.h'", "fscan --no-cache -n '*.h'"), 0.40),
            Peer(warm("-n '*.h'", "fscan --max-age -n '*.h'"), None)]),
        Row("now-100", Side("the same, 100 directories changed", tree.checked("-n '*.h'"),
                            lambda: tree.change(100)),
            [Peer(Side("the same, nothing changed", tree.checked("-n '*.h'")), 1.15)]),
        # The pause makes each run a new second, the unit of a tree's age.
        Row("sum", Side("fscan --max-age --sum dir", tree.fscan("--sum dir")),
            [Peer(Side("du -d1", f"du -d1 --apparent-size {path}"), 0.10)]),
        Row("sum", Side("checked fscan --sum dir", tree.checked("--sum dir")),
            [Peer(Side("du -d1", f"du -d1 --apparent-size {path}"), 1.0)]),
        Row("subtree", Side("fscan --fresh -c SUBTREE", tree.rebuild("-c", "small"),
                            lambda: time.sleep(1.1)), [], flat=True),
    ]
    rows += question_rows(tree) + thread_rows(tree) + slow_rows(tree) + cold_rows(tree)
    rows += watch_rows(tree)
    for row in rows:
        # In searches of a few milliseconds the start of the process dominates: no aim there.
        if row.number in {"4", "5", "6", "7", "8", "9"} and tree.name == "100k":
            row.peers = [dataclasses.replace(peer, at_most=None, limit="") for peer in row.peers]
    return rows


def question_rows(tree: Tree) -> list[Row]:
    """What people ask of find and fd, by default from the checked cache."""
    path = q(tree.path)

    def row(number: str, ours: str, at_most: float | None, options: str, pattern: str = ".",
            direct: bool = False) -> Row:
        command = tree.direct(ours) if direct else tree.checked(ours)
        label = f"fscan --no-cache {ours}" if direct else f"checked fscan {ours}"
        peer = Side(f"fd {options} {pattern}".removesuffix(" ."),
                    f"fdfind {options} {pattern} {path}")
        return Row(number, Side(label, command), [Peer(peer, at_most)])

    rows = [
        row("pattern", "config", 0.35, "-u", "config"),
        row("kind", "-t d", 0.35, "-u -t d"),
        Row("regex", Side("fscan -r 'conf.*[.]h$'", tree.fscan("-r 'conf.*[.]h$'")),
            [Peer(Side("plocate -i -b --regex 'conf.*[.]h$'",
                       tree.locate("-i -b --regex 'conf.*[.]h$'")), 0.30)]),
        row("links", "-L -n '*.h'", 0.80, "-u -L -j1 -s -g", "'*.h'", direct=True),
        row("depth", "-t f --max-depth 3", 0.80, "-u -j1 -t f --max-depth 3", direct=True),
        row("ignore", "-t f --ignore", 0.80, "-H -j1 -t f", direct=True),
    ]
    rows[-1].ours.before = tree.plant_rules
    return rows


def thread_rows(tree: Tree) -> list[Row]:
    """fscan with its default number of threads beside one thread, and beside fd's threads."""
    fd = Peer(Side("fd -u -s -g '*.h'", f"fdfind -u -s -g '*.h' {q(tree.path)}"), 0.35)

    def both(what: str, make: Callable[[str], str], options: str, *more: Peer,
             before: Callable[[], None] | None = None) -> Row:
        one = Side("the same, --threads 1", make(f"--threads 1 {options}"), before)
        return Row("threads", Side(f"{what} {options}", make(options), before),
                   [Peer(one, 0.65), *more])

    return [both("fscan --no-cache", tree.direct, "-n '*.h'", fd),
            both("fscan --no-cache", tree.direct, "-c -w '[SIZE]>102400'"),
            both("cold fscan --fresh", tree.build, "-c", before=tree.forget)]


def slow_rows(tree: Tree) -> list[Row]:
    """Each reading of a directory waits for a millisecond: 0.7 of a linear speed-up is the aim."""
    if tree.name != "100k":
        return []

    def side(threads: int) -> Side:
        options = f"--threads {threads} -c"
        return Side(f"slow fscan --no-cache {options}",
                    f"LD_PRELOAD=$SLOW_READS {tree.direct(options)}")

    return [Row("slow", side(threads), [Peer(side(1), round(1 / (0.7 * threads), 3))])
            for threads in (2, 4, 8, 16)]


def drop_caches() -> None:
    subprocess.run(["sync"], check=True)
    Path("/proc/sys/vm/drop_caches").write_text("3")


def cold_rows(tree: Tree) -> list[Row]:
    """The first searches of a day: nothing of the disk is in memory. Needs root."""

    def cold(label: str, command: str, *before: Callable[[], None], count: str | None = None) -> Side:
        def prepare() -> None:
            for step in (*before, drop_caches):
                step()
        return Side(label, command, prepare, count)

    path, exact = q(tree.path), q("\\" + NEEDLE)
    fds = [Peer(cold(f"fd -u -j{n} -s -g '*.h'", f"fdfind -u -j{n} -s -g '*.h' {path}"), 0.9)
           for n in (2, 8, 32)]
    update = cold("updatedb", tree.updatedb(), tree.drop_database,
                  count=tree.updatedb() + f" && find {path} ! -type d | wc -l")
    locate = cold("plocate -b '\\NAME'", tree.locate(f"-b {exact}"))
    return [
        Row("cold", cold("fscan --no-cache -n '*.h'", tree.direct("-n '*.h'")),
            [*fds, Peer(cold("find -name '*.h'", f"find {path} -name '*.h'"), None)]),
        Row("cold", cold("fscan --fresh -c", tree.build("-c"), tree.forget), [Peer(update, 0.8)]),
        Row("cold", cold("fscan --max-age -n NAME", tree.fscan(f"-n {NEEDLE}")),
            [Peer(locate, 1.5)]),
        Row("cold", cold("checked fscan -n '*.h'", tree.checked("-n '*.h'")),
            [Peer(cold("fscan --no-cache -n '*.h'", tree.direct("-n '*.h'")), None)]),
    ]


class Watches:
    """The watches that keep caches current while rows run. They end with this program."""

    def __init__(self) -> None:
        self.running: dict[str, subprocess.Popen] = {}

    def keep(self, tree: Tree, environment: dict[str, str]) -> None:
        """Returns when a watch of the tree's warm cache is ready."""
        if tree.name in self.running:
            return
        name = f"\0fscan-compare-{os.getpid()}-{tree.name}"
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as heard:
            heard.bind(name)
            command = shlex.split(tree.checked("--watch"))
            self.running[tree.name] = subprocess.Popen(
                command, env={**environment, "NOTIFY_SOCKET": "@" + name[1:]})
            while b"READY=1" not in heard.recv(4096):
                pass

    def end(self) -> None:
        for process in self.running.values():
            process.terminate()
            process.wait()


WATCHES = Watches()


def watch_rows(tree: Tree) -> list[Row]:
    """A cache that a watch keeps current, beside the same cache as it is."""

    def row(what: str, options: str, at_most: float, *before: Callable[[], None]) -> Row:
        def prepare() -> None:
            WATCHES.keep(tree, environment_for(tree.bin))
            for step in before:
                step()
        as_it_is = Side(f"fscan --max-age {options}".replace(NEEDLE, "NAME"), tree.fscan(options))
        return Row("watch", Side(f"{what} {options}".replace(NEEDLE, "NAME"),
                                 tree.checked(options), prepare), [Peer(as_it_is, at_most)])

    def change(pause: float) -> Callable[[], None]:
        def changes() -> None:
            tree.change(1000)
            time.sleep(pause)
        return changes

    return [row("watched fscan", f"-n {NEEDLE}", 1.3), row("watched fscan", "-n '*.h'", 1.3),
            row("1000 directories changed, fscan", "-n '*.h'", 2.0, change(0)),
            row("and two seconds passed, fscan", "-n '*.h'", 2.0, change(2))]


def other_rows(work: Path, bin_directory: Path) -> list[Row]:
    """The rows that need no generated tree."""
    usr = Tree(Path("/usr"), work, "usr", bin_directory)
    sorter, data = q(bin_directory / "sort_bench"), q(work / "sort")

    def record_sort(key: int, lines: str, options: str, at_most: float, limit: str) -> Row:
        """The counts mean nothing here: both sides sort their whole input."""
        fresh = lambda: shutil.copyfile(work / "sort/records", work / "sort/mine")
        name = lines.removeprefix("lines-")
        ours = Side(f"record file by {name}", f"{sorter} --sort {key} {data}/mine", fresh)
        sort = f"LC_ALL=C sort -S16M --parallel=1 {options} -o {data}/out {data}/{lines}"
        return Row("10", ours, [Peer(Side(f"sort -S16M {options}", sort), at_most, limit)])

    elf = "find /usr/bin /usr/lib ! -type d -print0 | xargs -0 file"
    first = Side("first fscan -n '*.h' /usr", usr.build("-n '*.h'"), usr.forget,
                 usr.build(""))
    return [
        record_sort(2, "lines-name", "-s", 8, "6.9"),
        record_sort(4, "lines-size", "-n", 2.5, "2.2"),
        Row("11", Side("fscan -w 'type(…,\"ELF\")'", f"fscan --no-cache -w '{ELF}' /usr/bin /usr/lib"),
            [Peer(Side("find … \\| xargs file", elf, None, elf + " | grep ': .*ELF'"), 1.1, "1")]),
        Row("usr-warm", Side("second fscan -n '*.h' /usr", usr.fscan("-n '*.h'")),
            [Peer(Side("find /usr -name '*.h'", "find /usr -name '*.h' ! -type d"), 0.10)]),
        Row("usr-first", first,
            [Peer(Side("find /usr -printf '%s'", "find /usr -printf '%s\\n'", None,
                       "find /usr ! -type d"), 3.0)]),
    ]


def environment_for(bin_directory: Path) -> dict[str, str]:
    environment = {**os.environ, "LC_ALL": "C.UTF-8",
                   "PATH": f"{bin_directory}:{os.environ['PATH']}",
                   "SLOW_READS": str(bin_directory.parent / "lib/slow_reads.so")}
    for name in ("FSCANNER_CONFIG", "XDG_CONFIG_HOME", "POSIXLY_CORRECT", "LS_COLORS"):
        environment.pop(name, None)
    return environment


class Measure:
    def __init__(self, work: Path, bin_directory: Path):
        self.runner, self.result = bin_directory / "measure", work / "result"
        self.environment = environment_for(bin_directory)

    def run(self, side: Side, private: bool = False, configuration: str | None = None) -> Cost:
        if side.before:
            side.before()
        # A shell is used only if needed, because its start takes time.
        needed = " | " in side.command or "=" in side.command.split()[0]
        command = ["sh", "-c", side.command] if needed else shlex.split(side.command)
        options = ["-p"] if private else []
        environment = dict(self.environment)
        if configuration:
            environment["FSCANNER_CONFIG"] = configuration
        subprocess.run([self.runner, *options, self.result, *command], check=True,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, env=environment)
        status, elapsed, cpu, peak, anonymous = self.result.read_text().split()
        if int(status) >= 126 or int(status) > 1 and side.command.startswith("fscan"):
            raise RuntimeError(f"failed with {status}: {side.command}")
        return Cost(int(status), int(elapsed) / 1e6, int(cpu) / 1e6, int(peak), int(anonymous))

    def found(self, side: Side) -> int:
        """How many paths the command finds: the number that it prints, or the number of lines."""
        if side.before:
            side.before()
        process = subprocess.Popen(["sh", "-c", side.count or side.command], env=self.environment,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        lines, last = 0, b""
        for last in process.stdout:
            lines += 1
        process.wait()
        return int(last) if lines == 1 and last.strip().isdigit() else lines

    def pair(self, row: Row, rounds: int) -> list[list[Cost]]:
        sides = [row.ours, *(peer.side for peer in row.peers)]
        warm_up = [self.run(side) for side in sides]
        if min(cost.seconds for cost in warm_up) < SHORT_RUN and not row.ours.before:
            rounds *= SHORT_ROUNDS
        return [[self.run(side) for side in sides] for _ in range(rounds)]


def milliseconds(costs: list[Cost]) -> str:
    value = statistics.median(cost.seconds for cost in costs) * 1e3
    return f"{value:,.0f}" if value >= 100 else f"{value:.1f}"


def verdict(ratio: float, at_most: float | None) -> str:
    return "" if at_most is None else "met" if ratio <= at_most else "**missed**"


class Report:
    def __init__(self):
        self.lines: list[str] = []
        self.notes: list[str] = []

    def head(self) -> None:
        self.lines += ["| row | tree | fscan | against | found | ms | ms | ratio | of CPU | at most "
                       "| bare limit | |", "|---" * 12 + "|"]

    def compared(self, row: Row, tree: str, rounds: list[list[Cost]], found: list[int]) -> None:
        ours = [costs[0] for costs in rounds]
        for i, peer in enumerate(row.peers, 1):
            theirs = [costs[i] for costs in rounds]
            ratio = statistics.median(a.seconds / b.seconds for a, b in zip(ours, theirs))
            cpu = statistics.median(a.cpu / max(b.cpu, 1e-4) for a, b in zip(ours, theirs))
            self.lines.append(
                f"| {row.number} | {tree} | `{row.ours.label}` | `{peer.side.label}` | {found[0]:,} "
                f"| {milliseconds(ours)} | {milliseconds(theirs)} | {ratio:.3g} | {cpu:.3g} "
                f"| {'' if peer.at_most is None else peer.at_most} | {peer.limit} "
                f"| {verdict(ratio, peer.at_most)} |")
            say(self.lines[-1])
            if found[i] != found[0]:
                self.notes.append(f"Row {row.number}, {tree}: `{peer.side.label}` finds "
                                  f"{found[i]:,} paths, fscan {found[0]:,}.")

def growth(measure: Measure, trees: list[Tree], rounds: int, is_wanted) -> list[str]:
    """How CPU time grows with the tree: exponent 1 means in proportion, 0 not at all.

    Both sizes run in turn, because the speed of the machine may change in the meantime.
    """
    lines = ["| row | fscan | 100k ms | 1m ms | exponent | at most | |", "|---" * 7 + "|"]
    for small, large in zip(*(rows_of(tree) for tree in trees)):
        if not is_wanted(small.number):
            continue
        pairs = measure.pair(Row("", small.ours, [Peer(large.ours, None)]), rounds)
        ratio = statistics.median(b.cpu / a.cpu for a, b in pairs)
        exponent = math.log(ratio) / math.log(SIZES["1m"] / SIZES["100k"])
        at_most = 0.1 if small.flat else 1.05
        before, after = (statistics.median(pair[i].cpu for pair in pairs) for i in (0, 1))
        lines.append(f"| {small.number} | `{small.ours.label}` | {before * 1e3:,.1f} "
                     f"| {after * 1e3:,.1f} | {exponent:.2f} | {at_most} "
                     f"| {verdict(exponent, at_most)} |")
        say(lines[-1])
    return lines


def disk_use(directory: Path) -> tuple[int, int]:
    files = [entry.stat() for entry in os.scandir(directory)]
    return sum(s.st_size for s in files), sum(s.st_blocks * 512 for s in files)


def memory(measure: Measure, tree: Tree, work: Path, bin_directory: Path) -> list[str]:
    """Peak memory, and the size of the cache. Measured once: they are the same in every run."""
    lines = ["| what | tree | measured | at most | |", "|---" * 5 + "|"]

    def add(what: str, value: float, at_most: float, unit: str = " MiB", detail: str = "") -> None:
        lines.append(f"| {what} | {tree.name} | {value:.3g}{unit}{detail} | {at_most}{unit} "
                     f"| {verdict(value, at_most)} |")
        say(lines[-1])

    direct = measure.run(Side("", tree.direct("-n '*.h'")))
    add("direct scan, peak RSS", direct.peak / 1024, 8)
    build = Side("", tree.build("-c"), tree.forget)
    cold = measure.run(build)
    peer = measure.run(Side("", tree.updatedb(), tree.drop_database))
    add("cold build, peak RSS of updatedb's", cold.peak / peer.peak, 0.6, "",
        f" ({cold.peak / 1024:.1f} of {peer.peak / 1024:.1f} MiB)")
    add("cold build, private memory", measure.run(build, private=True).private / 1024,
        64 if tree.name == "10m" else 16)
    if tree.name == "1m":
        for key, name in ((2, "name"), (4, "size")):
            shutil.copyfile(work / "sort/records", work / "sort/mine")
            side = Side("", f"{q(bin_directory / 'sort_bench')} --sort {key} {q(work / 'sort/mine')}")
            add(f"record-file sort by {name}, private memory",
                measure.run(side, private=True).private / 1024, 8)

    configuration = work / "compressed.conf"
    configuration.write_text("[provider_cache]\ncompressed = true\n")
    os.chmod(configuration, 0o600)
    measure.run(build, configuration=str(configuration))
    apparent, blocks = disk_use(tree.cold)
    paths = subprocess.run(["find", tree.path], stdout=subprocess.PIPE, check=True).stdout
    add("compressed cache, of the flat list's bytes", apparent / len(paths), 0.8, "",
        f" ({apparent / 2**20:.1f} of {len(paths) / 2**20:.1f} MiB; {blocks / 2**20:.1f} on disk)")
    tree.forget()
    return lines


def machine(work: Path) -> str:
    cpu = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo", encoding="utf-8")
                if line.startswith("model name")), platform.machine())
    kib = int(Path("/proc/meminfo").read_text().split()[1])
    file_system = subprocess.run(["findmnt", "-no", "FSTYPE", "-T", work], capture_output=True,
                                 text=True, check=False).stdout.strip()
    return (f"{datetime.date.today()}: {cpu}, {os.cpu_count()} cores, {kib / 2**20:.0f} GiB, "
            f"{file_system}, Linux {platform.release()}; load {os.getloadavg()[0]:.1f} at the end.")


def make_tree(work: Path, bin_directory: Path, name: str) -> Tree:
    path = work / f"tree-{name}"
    if not path.exists():
        say(f"making {path}")
        half = work / f"half-{name}"  # renamed when complete, so that --keep never keeps a part
        shutil.rmtree(half, ignore_errors=True)
        subprocess.run([bin_directory / "make_tree", half, str(SIZES[name])], check=True,
                       stdout=subprocess.DEVNULL)
        half.rename(path)
    return Tree(path, work, name, bin_directory)


def parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="bench/compare", description="Compares fscan with others.")
    parser.add_argument("--size", choices=[*SIZES, "both"], default="both",
                        help="entries of the tree; both: 100k and 1m (default)")
    parser.add_argument("--rows", help="only these rows, such as 1,4,memory,usr-warm")
    parser.add_argument("--rounds", type=int, default=7, help="rounds of each row (default 7)")
    parser.add_argument("--work", type=Path, help="where trees and caches are made "
                        "(default: below build/)")
    parser.add_argument("--keep", action="store_true", help="keep them for the next run")
    parser.add_argument("--output", type=Path, help="write the tables to this file, too")
    parser.add_argument("--bin", type=Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def compare(options: argparse.Namespace, work: Path) -> str:
    wanted = set(options.rows.split(",")) if options.rows else None
    is_wanted = lambda number: wanted is None or number in wanted
    names = BOTH if options.size == "both" else [options.size]
    needs_tree = wanted is None or wanted - {"10", "11", "usr-warm", "usr-first"}
    trees = [make_tree(work, options.bin, name) for name in names] if needs_tree else []
    measure, report = Measure(work, options.bin), Report()
    report.head()

    if not (work / "sort/lines-size").exists() and (is_wanted("10") or is_wanted("memory")):
        (work / "sort").mkdir(exist_ok=True)
        subprocess.run([options.bin / "sort_bench", "--make", work / "sort", "1000000"], check=True)
    todo = [(row, tree.name) for tree in trees for row in rows_of(tree)]
    todo += [(row, "1m records" if row.number == "10" else "/usr")
             for row in other_rows(work, options.bin)]
    for tree in trees:
        measure.run(Side("updatedb", tree.updatedb()))
    for row, tree in todo:
        if not is_wanted(row.number) or row.number == "cold" and os.geteuid() != 0:
            continue
        found = [measure.found(side) for side in (row.ours, *(peer.side for peer in row.peers))]
        report.compared(row, tree, measure.pair(row, options.rounds), found)

    parts = [machine(work), "\n".join(report.lines)]
    if report.notes:
        parts.append("\n".join(f"- {note}" for note in report.notes))
    if len(trees) == 2 and (wanted is None or "growth" in wanted):
        parts.append("\n".join(growth(measure, trees, options.rounds, is_wanted)))
    if is_wanted("memory"):
        for tree in trees:
            parts.append("\n".join(memory(measure, tree, work, options.bin)))
    return "\n\n".join(parts) + "\n"


def main() -> int:
    options = parse()
    work = (options.work or options.bin.parent.parent / "compare").resolve()
    work.mkdir(parents=True, exist_ok=True)
    try:
        table = compare(options, work)
    finally:
        WATCHES.end()
        if not options.keep:
            shutil.rmtree(work)
    print(table, end="")
    if options.output:
        options.output.write_text(table, encoding="utf-8")
    return 0


if __name__ == "__main__":
    with contextlib.suppress(KeyboardInterrupt):
        sys.exit(main())
    sys.exit(130)
