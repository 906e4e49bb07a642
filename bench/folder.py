"""How long a real file manager takes to open a large folder, with the extension and without.

    folder.py MANAGER... [--files N] [--runs N] [--idle-runs N] [--update-docs]

The sides run in turn, and what is printed are medians.

    none     without the extension
    silent   with the extension, which answers nothing because everything is switched off
    quick    with emblems, and a daemon that answers at once
    slow     with a daemon that takes a second for each answer
    stopped  with a daemon that takes connections and never answers
    away     without a daemon

A folder is open when its file manager tells how many files there are, and the window's thread was free for half of a
quarter of a second. Nautilus tells it only of files that are selected, so there the folder is open when the thread was free
for half of a second, and the number is checked in the end. Then it is scrolled by pages. It is at rest when nothing has
happened for a second, which is when all emblems are there. In the first runs, the processor's time in the half minute after
that is taken, too. --update-docs renews the table of each file manager in docs/performance.md."""

import argparse
import collections
import contextlib
import os
import pathlib
import platform
import plistlib
import re
import shutil
import statistics
import sys
import tempfile
import time

import desktop
import filemanagers

from recording_daemon import ENABLED, Encoded, RecordingDaemon, node

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "docs" / "performance.md"
PLUGIN = os.path.join(os.environ["XDG_DATA_HOME"], "keldane", "plugins", "Keldane.plugin")
PREFERENCES = os.path.join(os.environ["XDG_CONFIG_HOME"], "com.keldane.preferences.plist")
SIDES = ("none", "silent", "quick", "slow", "stopped", "away")
TITLES = {"none": "no extension", "silent": "one that answers nothing", "quick": "a quick daemon",
          "slow": "a daemon that takes 1 s an answer", "stopped": "a daemon that is stopped", "away": "no daemon"}
LISTING = "childrenDictionariesForPath:"
IDLE = 30  # seconds
PAGES = 40
BEAT = 0.01
FIRST = "00000.txt"
MOST_OPENING, MOST_MEMORY, MOST_IDLE = 1.05, 20, 1.0  # of the silent side; MiB more; % of a processor more


class Use:
    """The processor's time in seconds of the window's thread, and of the whole process. The time for which the window's
    thread waits for a processor counts as used, because the machine may have other work."""

    def __init__(self, process):
        self.process = process

    def of_window(self):
        with open(f"/proc/{self.process}/schedstat", encoding="ascii") as stream:
            used, waited, _ = stream.read().split()
        return (int(used) + int(waited)) / 1e9

    def of_all(self):
        """This includes the threads that have ended."""
        with open(f"/proc/{self.process}/stat", encoding="ascii") as stream:
            fields = stream.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def wait_for_calm(used, seconds, share):
    """Until less than this share of so many seconds was used: the time at which they began."""
    samples = collections.deque([(time.monotonic(), used())])
    end = time.monotonic() + desktop.PATIENCE
    while time.monotonic() < end:
        time.sleep(BEAT)
        samples.append((time.monotonic(), used()))
        while samples[-1][0] - samples[1][0] >= seconds:
            samples.popleft()
        (since, before), (now, after) = samples[0], samples[-1]
        if now - since >= seconds and after - before < share * (now - since):
            return since
    raise AssertionError("it never came to rest")


class SelectingNautilus(filemanagers.Nautilus):
    """Without a selection its files do not take keys."""

    def __init__(self, folder):
        filemanagers.FileManager.__init__(self, folder)  # the other one waits for longer than the opening takes

    @classmethod
    def start_command(cls, folder):
        return ["nautilus", "--select", os.path.join(folder, FIRST)]


def nodes(folder, names):
    return [node(f"{folder}/{name}", ENABLED, False, "Backed up", backupFlags=0x30, backupColor=2) for name in names]


class Bench:
    def __init__(self, manager, count, place):
        self.manager, self.place = manager, place
        self.files = os.path.join(place, "files")
        self.socket = os.path.join(place, "daemon.sock")
        os.mkdir(self.files)
        names = [f"{number:05}.txt" for number in range(count)]
        for name in names:
            with open(os.path.join(self.files, name), "wb"):
                pass
        self.listing = Encoded.of(nodes(self.files, names))
        number = rf"\b{count // 1000}.?{count % 1000:03}\b"
        self.told = re.compile(f"{number}.*(items|files)|(files|items): {number}", re.IGNORECASE)
        info = os.path.join(PLUGIN, "Contents", "Info.plist")
        with open(info, "rb") as stream:
            entries = plistlib.load(stream)
        with open(info, "wb") as stream:
            plistlib.dump({**entries, "DaemonPath": self.socket}, stream)

    @contextlib.contextmanager
    def daemon(self, side):
        if side in ("none", "silent", "away"):
            yield
            return
        def late(answer):
            def wait(*arguments):
                time.sleep(1 if side == "slow" else 0)
                return answer(*arguments)
            return wait
        answers = {LISTING: late(lambda folder: self.listing if folder == self.files else []),
                   "dictionaryForPath:withDirSizes:": late(lambda path, _: nodes(os.path.dirname(path),
                                                                                 [os.path.basename(path)])[0]),
                   "daemonState": late(lambda: {"statusString": "Up to date"})}
        daemon = RecordingDaemon(self.socket, answers, "never" if side == "stopped" else None)
        try:
            yield
        finally:
            daemon.stop()
            os.unlink(self.socket)

    def run(self, side, with_idle):
        with open(PREFERENCES, "wb") as stream:
            switch = "NO" if side == "silent" else "YES"
            plistlib.dump({key: switch for key in ("ShowEmblems", "ShowColumns", "ShowRestoreEntries")}, stream)
        remove = self.manager.place_extension() if side != "none" else lambda: None
        try:
            with self.daemon(side):
                begin = time.monotonic()
                window = self.manager(self.files)
                try:
                    return self.measure(window, begin, with_idle)
                finally:
                    window.end()
        finally:
            remove()

    def tells(self, window):
        return any(self.told.search(each.get_name() or "") for each in
                   desktop.walk(window.application, widest=filemanagers.WIDEST))

    def measure(self, window, begin, with_idle):
        use = Use(window.program.process.pid)
        opened = wait_for_calm(use.of_window, 0.25, 0.5)
        if self.manager.tells_count:
            while not self.tells(window):
                opened = wait_for_calm(use.of_window, 0.25, 0.5)
        else:
            opened = wait_for_calm(use.of_window, 1, 0.5)
            window.wait()
        figures = {"opened": opened - begin, **self.scroll(use)}
        figures["rested"] = wait_for_calm(use.of_all, 1, 0.02) - begin
        figures["processor"] = use.of_all()
        figures["memory"] = window.memory() / (1 << 20)
        if with_idle:
            before = use.of_all()
            time.sleep(IDLE)
            figures["idle"] = 100 * (use.of_all() - before) / IDLE
        if not self.manager.tells_count:
            desktop.press("ctrl+a")
            desktop.eventually(lambda: self.tells(window), "all files")
        return figures

    @staticmethod
    def scroll(use):
        begin = time.monotonic()
        desktop.xdotool("key", "--delay", 25, *["Next"] * PAGES)
        return {"scrolled": wait_for_calm(use.of_window, 0.25, 0.5) - begin}


def install():
    """What a package puts into its places."""
    shutil.copytree(os.path.join(filemanagers.BUILD, "Keldane.plugin"), PLUGIN)
    shutil.copytree(ROOT / "hosts" / "icons", os.path.join(os.environ["XDG_DATA_HOME"], "icons", "hicolor", "scalable",
                                                           "emblems"))


def measure(name, options):
    manager = SelectingNautilus if name == "nautilus" else filemanagers.ALL[name]
    manager.set_options()
    place = tempfile.mkdtemp(prefix="keldane-bench-")
    results = {side: [] for side in options.sides.split(",")}
    try:
        bench = Bench(manager, options.files, place)
        for number in range(options.runs):
            for side, figures in results.items():
                figures.append(bench.run(side, number < options.idle_runs))
            print(f"{name}: run {number + 1} of {options.runs}", file=sys.stderr)
    finally:
        shutil.rmtree(place, ignore_errors=True)
    return results


def table(name, options, results):
    medians = {side: {what: statistics.median(each[what] for each in runs if what in each) for what in runs[0]}
               for side, runs in results.items()}
    silent = medians.get("silent", next(iter(medians.values())))
    def judged(value, target, text):
        return f"{text} {'✓' if value <= target else '✗'}"
    lines = [f"{name.capitalize()}, {options.files:,} files; {os.cpu_count()} processors, {platform.machine()}, "
             f"Linux {platform.release()}; medians of {options.runs} runs in turn.", "",
             "| | opens in s | of the one that answers nothing | scrolls in s | at rest after s | processor, s | "
             "memory, MiB | more of it | processor at rest |", "|---|---|---|---|---|---|---|---|---|"]
    for side, figures in medians.items():
        ratio, more = figures["opened"] / silent["opened"], figures["memory"] - silent["memory"]
        idle = figures["idle"] - silent["idle"]
        is_ours = side not in ("none", "silent")
        cells = [TITLES[side], f"{figures['opened']:.2f}",
                 judged(ratio, MOST_OPENING, f"{ratio:.2f}") if is_ours else f"{ratio:.2f}",
                 f"{figures['scrolled']:.2f}", f"{figures['rested']:.1f}", f"{figures['processor']:.2f}",
                 f"{figures['memory']:.0f}", judged(more, MOST_MEMORY, f"{more:.0f}") if is_ours else "",
                 judged(idle, MOST_IDLE, f"{figures['idle']:.2f} %") if is_ours else f"{figures['idle']:.2f} %"]
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def update_document(name, text):
    whole = DOCUMENT.read_text(encoding="utf-8")
    pattern = re.compile(rf"(<!-- folder {name} -->\n).*?(<!-- end -->)", re.S)
    if not pattern.search(whole):
        sys.exit(f"{DOCUMENT} has no place for: folder {name}")
    DOCUMENT.write_text(pattern.sub(lambda match: f"{match[1]}{text}\n{match[2]}", whole), encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("managers", nargs="+", choices=sorted(filemanagers.ALL))
    parser.add_argument("--files", type=int, default=10000)
    parser.add_argument("--runs", type=int, default=11)
    parser.add_argument("--idle-runs", type=int, default=3)
    parser.add_argument("--sides", default=",".join(SIDES))
    parser.add_argument("--update-docs", action="store_true")
    options = parser.parse_args()
    install()
    for name in options.managers:
        text = table(name, options, measure(name, options))
        print(text + "\n", flush=True)
        if options.update_docs:
            update_document(name, text)


main()
