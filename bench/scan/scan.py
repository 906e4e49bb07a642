#!/usr/bin/env python3
"""Compares the daemon's scan with find(1) on the same tree, in alternating turns of one run, and measures the daemon with
125,000 files, twice as many, and so on.

  scan.py BUILD [--files N] [--update-docs]

BUILD is a build folder with bench-scan and recording-keldaned, the daemon with an engine that stores nothing. scan.json is
written to BUILD/bench. The trees lie in a folder in /var/tmp (TMPDIR, if it is set), which is removed at the end.
"""

import argparse
import json
import os
import pathlib
import platform
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests" / "end-to-end"))

from daemon_client import DaemonClient, Gone  # noqa: E402

DOCUMENT = ROOT / "docs" / "performance.md"
PLOT = "files.svg"
FILES_IN_FOLDER, FOLDERS_IN_PART = 20, 250
TURNS = 5
IDLE_SECONDS = 60
PATIENCE = 600


def folder_at(root, number):
    return root / f"part-{number // FOLDERS_IN_PART:04}" / f"folder-{number:06}"


def grow_tree(root, begin, end):
    """Adds the files with the numbers from `begin` up to `end`, which is not included."""
    for number in range(begin // FILES_IN_FOLDER, end // FILES_IN_FOLDER):
        place = folder_at(root, number)
        place.mkdir(parents=True)
        for file in range(FILES_IN_FOLDER):
            (place / f"Quarterly report {file:02}.odt").write_bytes(b"a few bytes")


def drop_caches():
    """Drops the page cache. Returns whether that was possible."""
    os.sync()
    try:
        pathlib.Path("/proc/sys/vm/drop_caches").write_text("3\n", encoding="ascii")
    except OSError:
        return False
    return True


def found(tree):
    begin = time.monotonic()
    subprocess.run(["find", str(tree), "-printf", "%s %T@\n"], check=True, stdout=subprocess.DEVNULL)
    return time.monotonic() - begin


def looked(build, tree, kind):
    with tempfile.TemporaryDirectory() as place:
        result = subprocess.run([str(build / "bench" / "bench-scan"), f"{place}/store", str(tree), kind], check=True,
                                capture_output=True, text=True)
    seconds, _, files, each = result.stdout.split()
    return float(seconds), int(files), float(each)


def compare(build, tree, turns):
    """The medians of both sides in seconds, by title."""
    rows = {}
    found(tree)  # so that the first turn is as warm as the others
    for kind in ("unchanged", "fresh"):
        sides = [(looked(build, tree, kind)[0], found(tree)) for _ in range(turns)]
        rows[f"warm, {'nothing has changed' if kind == 'unchanged' else 'everything is new'}"] = [
            statistics.median(side) for side in zip(*sides)]
    cold = []
    for _ in range(turns):
        if not drop_caches():
            break
        mine = looked(build, tree, "fresh")[0]
        drop_caches()
        cold.append((mine, found(tree)))
    if cold:
        rows["cold, everything is new"] = [statistics.median(side) for side in zip(*cold)]
    return rows


class Daemon:
    def __init__(self, build, place):
        self.place = place
        self.socket = str(place / "d.sock")
        place.mkdir(exist_ok=True)
        begin = time.monotonic()
        with open(place / "log", "ab") as log:
            self.process = subprocess.Popen(
                [str(build / "tests" / "recording-keldaned"), "--foreground", "--socket", self.socket, "--store",
                 str(place / "store.sqlite"), "--batch-delay", "1"], stderr=log)
        self.client = self.connected(begin)
        self.client.ask("daemonState")
        self.first_answer = time.monotonic() - begin

    def connected(self, begin=None):
        begin = begin or time.monotonic()
        while time.monotonic() - begin < PATIENCE:
            try:
                return DaemonClient(self.socket, timeout=PATIENCE)
            except Gone:
                if self.process.poll() is not None:
                    sys.exit("The daemon has ended: " + (self.place / "log").read_text(errors="replace"))
                time.sleep(0.005)
        sys.exit("The daemon does not answer.")

    def processor_seconds(self):
        """The processor time of the present threads, to the nanosecond."""
        used = 0
        for task in pathlib.Path(f"/proc/{self.process.pid}/task").iterdir():
            try:
                used += int((task / "schedstat").read_text(encoding="ascii").split()[0])
            except OSError:
                pass  # the thread has ended
        return used / 1e9

    def memory(self):
        """The greatest and the present resident memory, in MiB."""
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        return [int(re.search(rf"{name}:\s*(\d+) kB", status)[1]) / 1024 for name in ("VmHWM", "VmRSS")]

    def state(self):
        return self.client.ask("daemonState")

    def wait_until(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not condition(self.state()):
            if time.monotonic() > end:
                sys.exit(f"{what} did not come about: {self.state()}")
            time.sleep(0.1)

    def wait_for_rest(self):
        """Waits until the daemon has hardly worked for some seconds, because a full snapshot follows the last batch."""
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            before = self.processor_seconds()
            time.sleep(5)
            if self.processor_seconds() - before <= 0.02:
                return

    def stop(self):
        self.process.terminate()
        self.process.wait(PATIENCE)


class Questions(threading.Thread):
    """Asks a file manager's questions about random folders, and collects the times by the kind of question."""

    def __init__(self, daemon, tree, folders):
        super().__init__()
        self.client, self.tree, self.folders = daemon.connected(), tree, folders
        self.times = {"a listing": [], "a menu": [], "the state": []}
        self.ended = threading.Event()

    def run(self):
        while not self.ended.is_set():
            folder = folder_at(self.tree, random.randrange(self.folders))
            self.ask("a listing", "childrenDictionariesForPath:", str(folder))
            self.ask("a menu", "dictionaryForPath:withDirSizes:", str(folder / "Quarterly report 07.odt"), ("c", 0))
            self.ask("the state", "daemonState")
            time.sleep(0.005)

    def ask(self, title, *call):
        begin = time.monotonic()
        self.client.ask(*call)
        self.times[title].append(time.monotonic() - begin)

    def late(self):
        """The milliseconds within which 99 % of the questions were answered."""
        self.ended.set()
        self.join()
        self.client.close()
        return {title: sorted(times)[int(len(times) * 0.99)] * 1e3 for title, times in self.times.items() if times}


def processor_of(daemon, seconds):
    before = daemon.processor_seconds()
    time.sleep(seconds)
    return (daemon.processor_seconds() - before) * 60 / seconds


def with_daemon(build, place, tree, files):
    """The figures of the daemon with this number of files."""
    figures = {}
    folders = files // FILES_IN_FOLDER
    daemon = Daemon(build, place)
    base = daemon.memory()[1]
    daemon.client.send("setAutomaticMode:", ("c", 0))
    daemon.client.send("addFileToBackup:", str(tree))
    questions = Questions(daemon, tree, folders)
    questions.start()
    daemon.wait_until(lambda state: state["pendingFileCount"] == files, "The look at the disk")
    figures["scan"] = questions.late()
    figures["waiting MiB"] = daemon.memory()[1] - base
    questions = Questions(daemon, tree, folders)
    questions.start()
    daemon.client.send("setAutomaticMode:", ("c", 1))
    daemon.wait_until(lambda state: state["backedUpFileCount"] == files and state["pendingFileCount"] == 0, "The backup")
    figures["backup"] = questions.late()
    daemon.wait_for_rest()
    figures["idle ms"] = processor_of(daemon, IDLE_SECONDS) * 1e3
    figures["most MiB"], figures["idle MiB"] = daemon.memory()
    begin = time.monotonic()
    file = folder_at(tree, folders // 2) / "Quarterly report 07.odt"
    before = daemon.client.ask("dictionaryForPath:withDirSizes:", str(file), ("c", 0))["version"]
    file.write_bytes(os.urandom(64))
    daemon.wait_until(lambda state: state["pendingFileCount"] > 0 or daemon.client.ask(
        "dictionaryForPath:withDirSizes:", str(file), ("c", 0))["version"] != before, "The notice")
    figures["notice s"] = time.monotonic() - begin
    daemon.stop()
    daemon = Daemon(build, place)
    figures["first answer s"] = daemon.first_answer
    daemon.wait_until(lambda state: state["pendingFileCount"] == 0, "The look after the start")
    daemon.stop()
    shutil.rmtree(place)
    return figures


def machine():
    return f"{os.cpu_count()} processors, {platform.machine()}, Linux {platform.release()}"


def mark(met):
    return "" if met is None else " ✓" if met else " ✗"


def tables(result):
    lines = [f"Measured on: {result['machine']}; {result['turns']} turns, medians.", "",
             f"| {max(result['sizes']):,} files | this system, s | find, s | ratio | target |", "|---|---|---|---|---|"]
    for title, (mine, other) in result["look"].items():
        lines.append(f"| {title} | {mine:.2f} | {other:.2f} | {mine / other:.2f} | ≤ 1.5{mark(mine / other <= 1.5)} |")
    sizes = [str(size) for size in result["sizes"]]
    lines += ["", "| files | " + " | ".join(f"{int(size):,}" for size in sizes) + " | target for 1,000,000 |",
              "|---|" + "---|" * (len(sizes) + 1)]
    rows = [("a look, everything new, s", "look s", 2, None), ("processor time while idle, ms a minute", "idle ms", 0, 50),
            ("memory while idle, MiB", "idle MiB", 0, 250), ("memory at most, MiB", "most MiB", 0, 250),
            ("bytes of a waiting file", "each", 0, 120), ("from a start to the first answer, s", "first answer s", 3, 0.5),
            ("from a change to its notice, s", "notice s", 2, 2)]
    rows += [(f"{question} while {what}, 99 % of them, ms", (what_key, question), 1, 10)
             for what_key, what in (("scan", "it looks at the disk"), ("backup", "it backs up"))
             for question in ("a listing", "a menu", "the state")]
    for title, key, digits, most in rows:
        values = [value_of(result["figures"][size], key) for size in sizes]
        target = f"≤ {most:g}{mark(values[-1] <= most)}" if most else ""
        lines.append(f"| {title} | " + " | ".join(f"{value:.{digits}f}" for value in values) + f" | {target} |")
    return "\n".join(lines)


def value_of(figures, key):
    return figures[key] if isinstance(key, str) else figures[key[0]].get(key[1], 0.0)


def plot(result, path):
    """Draws the figures that double with the files against their number, on logarithmic scales; grey lines double."""
    from math import log2

    series = (("a look, everything new, ms", "look s", 1e3, "#5b9a68"), ("memory while idle, MiB", "idle MiB", 1, "#c0605a"),
              ("idle, ms a minute", "idle ms", 1, "#8a6fb8"), ("first answer, ms", "first answer s", 1e3, "#c59a3d"),
              ("a menu during a backup, µs", ("backup", "a menu"), 1e3, "#4d7ea8"))
    sizes = result["sizes"]
    points = {title: [max(value_of(result["figures"][str(size)], key) * scale, 1) for size in sizes]
              for title, key, scale, _ in series}
    low = min(log2(value) for values in points.values() for value in values) - 0.5
    high = max(log2(value) for values in points.values() for value in values) + 0.5
    left, top, width, height = 60, 16, 520, 360

    def x(size):
        return left + width * (log2(size) - log2(sizes[0])) / max(log2(sizes[-1]) - log2(sizes[0]), 1)

    def y(value):
        return top + height * (high - log2(value)) / (high - low)

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 220}" height="{top + height + 46}" '
             'font-family="sans-serif" font-size="12">', '<rect width="100%" height="100%" fill="white"/>']
    for power in range(int(low), int(high) + 1, 2):
        if low <= power <= high:
            parts.append(f'<text x="{left - 8}" y="{y(2 ** power) + 4:.1f}" text-anchor="end">{2 ** power:,}</text>')
    for size in sizes:
        parts.append(f'<text x="{x(size):.1f}" y="{top + height + 18}" text-anchor="middle">{size:,}</text>')
    parts.append(f'<text x="{left + width / 2}" y="{top + height + 38}" text-anchor="middle">files</text>')
    for title, _, _, colour in series:
        values = points[title]
        end = values[0] * sizes[-1] / sizes[0]
        parts.append(f'<line x1="{x(sizes[0]):.1f}" y1="{y(values[0]):.1f}" x2="{x(sizes[-1]):.1f}" y2="{y(end):.1f}" '
                     'stroke="#ddd" stroke-dasharray="3 3"/>')
        line = " ".join(f"{x(size):.1f},{y(value):.1f}" for size, value in zip(sizes, values))
        parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
        parts.append(f'<text x="{x(sizes[-1]) + 8:.1f}" y="{y(values[-1]) + 4:.1f}" fill="{colour}">{title}</text>')
    parts.append("</svg>")
    path.write_text("\n".join(parts) + "\n", encoding="utf-8")


def update_document(result):
    text = DOCUMENT.read_text(encoding="utf-8")
    pattern = re.compile(r"(<!-- files -->\n).*?(<!-- end -->)", re.S)
    if not pattern.search(text):
        sys.exit(f"{DOCUMENT} has no place for: files")
    DOCUMENT.write_text(pattern.sub(lambda match: f"{match[1]}{tables(result)}\n{match[2]}", text), encoding="utf-8")
    plot(result, DOCUMENT.parent / "plots" / PLOT)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--files", type=int, default=1_000_000)
    parser.add_argument("--turns", type=int, default=TURNS)
    parser.add_argument("--update-docs", action="store_true")
    options = parser.parse_args()
    sizes = [options.files // part // FILES_IN_FOLDER * FILES_IN_FOLDER for part in (8, 4, 2, 1)]
    result = {"machine": machine(), "turns": options.turns, "sizes": sizes, "figures": {}}
    with tempfile.TemporaryDirectory(dir=os.environ.get("TMPDIR", "/var/tmp")) as name:
        place = pathlib.Path(name)
        tree = place / "home" / "documents"
        tree.mkdir(parents=True)
        made = 0
        for size in sizes:
            grow_tree(tree, made, size)
            made = size
            found(tree)
            figures = with_daemon(options.build, place / "daemon", tree, size)
            looks = [looked(options.build, tree, "fresh") for _ in range(3)]
            figures["look s"] = statistics.median(look[0] for look in looks)
            figures["each"] = looks[0][2]
            result["figures"][str(size)] = figures
            print(f"{size:,} files: {json.dumps(figures)}", flush=True)
        result["look"] = compare(options.build, tree, options.turns)
    (options.build / "bench").mkdir(exist_ok=True)
    (options.build / "bench" / "scan.json").write_text(json.dumps(result, indent=1), encoding="utf-8")
    plot(result, options.build / "bench" / PLOT)
    print(tables(result))
    if options.update_docs:
        update_document(result)


if __name__ == "__main__":
    main()
