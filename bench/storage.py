#!/usr/bin/env python3
"""Compares storing and restoring with plain restic on the same tree and machine. Both do the same work in alternating turns
of one run, and take turns in going first. Prints ratios of medians, and whether each meets its target.

  storage.py BUILD [--quick] [--update-docs] [--only NAME]...

BUILD is a build folder with keldaned, keldanectl and the bundle; storage.json is written to BUILD/bench. --quick takes
three turns instead of five. --update-docs renews "Storing and restoring" in docs/performance.md. Trees and repositories
lie in a folder in /var/tmp (TMPDIR, if it is set), which needs 6 GiB and is removed at the end.
"""

import argparse
import contextlib
import json
import os
import pathlib
import platform
import random
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from storage_sides import ROOT, Keldaned, Restic, eventually

DOCUMENT = ROOT / "docs" / "performance.md"
PARTS, FOLDERS, FILES, FILE_BYTES = 10, 50, 200, 2048  # parts that hold folders that hold files
COUNT = PARTS * FOLDERS * FILES
PART = FOLDERS * FILES
CHANGED = 1000
BIG_BYTES = 1 << 30
MENU_SECONDS = 4
# A short delay, so that a turn with changed files takes one scan and not two minutes.
SHORT_DELAY = 5


def make_tree(root):
    for part in range(PARTS):
        for folder in range(FOLDERS):
            place = root / f"part-{part}" / f"folder-{folder:02}"
            place.mkdir(parents=True)
            data = os.urandom(FILES * FILE_BYTES)
            for file in range(FILES):
                (place / f"file-{file:03}").write_bytes(data[file * FILE_BYTES:(file + 1) * FILE_BYTES])


def file_at(tree, number):
    """The path of a file in any part but the last one, which stays unchanged."""
    part, rest = divmod(number, PART)
    folder, file = divmod(rest, FILES)
    return tree / f"part-{part}" / f"folder-{folder:02}" / f"file-{file:03}"


def make_big(file):
    with open(file, "wb") as stream:
        for _ in range(BIG_BYTES >> 20):
            stream.write(os.urandom(1 << 20))


class Measured:
    """The figures of both sides, by turn."""

    def __init__(self):
        self.mine, self.other = [], []

    def take(self, turn, mine, other):
        """Calls both sides; another one goes first at each turn."""
        sides = [(self.mine, mine), (self.other, other)]
        for figures, side in sides if turn % 2 == 0 else reversed(sides):
            os.sync()  # one side must not pay for the other's unwritten data
            figures.append(side())


class Benchmark:
    def __init__(self, build, place, turns, only):
        self.build, self.place, self.turns, self.only = build, place, turns, only
        self.tree = place / "tree"
        self.big = place / "big" / "one.bin"
        self.rows, self.facts = [], {}
        self.daemon = self.restic = None
        self._fresh = 0

    def close(self):
        if self.daemon:
            self.daemon.stop()

    def wants(self, name):
        return not self.only or name in self.only

    def add(self, title, measured, most=None, extra=None):
        """Adds a row. `most` limits the ratio, `extra` the difference in seconds."""
        mine, other = statistics.median(measured.mine), statistics.median(measured.other)
        ratio, more = mine / other, mine - other
        target = f"≤ {most:g} ×" if most else f"≤ {extra:g} s more" if extra else ""
        met = (ratio <= most if most else more <= extra) if target else None
        self.rows.append({"title": title, "mine": mine, "other": other, "ratio": ratio, "target": target, "met": met,
                          "turns": [measured.mine, measured.other]})
        print(f"  {title}: {short(mine)} / {short(other)} = {ratio:.3g}  {target} {mark(met)}", flush=True)

    def add_fact(self, title, text, met=None, target=""):
        self.facts[title] = {"text": text, "target": target, "met": met}
        print(f"  {title}: {text}  {target} {mark(met)}", flush=True)

    def fresh(self, name):
        self._fresh += 1
        return self.place / f"{name}-{self._fresh}"

    def fresh_daemon(self):
        if self.daemon:
            self.daemon.remove()
        self.daemon = Keldaned(self.build, self.fresh("daemon"), "--root", str(self.place), "--batch-delay",
                               str(SHORT_DELAY))

    def fresh_restic(self):
        if self.restic:
            self.restic.remove()
        self.restic = Restic(self.fresh("restic"))

    # --- The measurements ---

    def first_backup(self):
        """Measures the first backup. Both sides keep the last turn's result, a repository of all files."""
        measured, processor = Measured(), Measured()
        wanted = self.wants("first")
        for turn in range(self.turns if wanted else 1):
            if self.daemon:
                self.daemon.remove()
                self.daemon = None  # it rests while the other side works

            def mine():
                self.fresh_daemon()
                before = self.daemon.processor_seconds()
                begin = time.monotonic()
                self.daemon.include(self.tree)
                self.daemon.wait_until_stored(COUNT)
                seconds = time.monotonic() - begin
                processor.mine.append(self.daemon.processor_seconds() - before)
                return seconds

            def other():
                self.fresh_restic()
                os.sync()
                seconds, work = self.restic.backup(self.tree)
                processor.other.append(work)
                return seconds

            measured.take(turn, mine, other)
        if wanted:
            self.add(f"first backup of {COUNT:,} files, s", measured, most=1.3)
            self.add("the same, processor time, s", processor)

    def one_file(self):
        measured = Measured()
        self.daemon.switch_automatic(False)
        for turn in range(self.turns):
            file = file_at(self.tree, turn * 7919)
            file.write_bytes(os.urandom(FILE_BYTES))
            eventually(lambda file=file: self.daemon.standing(file) != "Backed up", "The change")

            def mine(file=file):
                begin = time.monotonic()
                self.daemon.prefer(file)
                eventually(lambda: self.daemon.standing(file) == "Backed up", "The preferred file", 0.01)
                return time.monotonic() - begin

            measured.take(turn, mine, lambda file=file: self.restic.backup_list([file])[0])
        self.daemon.switch_automatic(True)
        self.add("one changed file, as soon as possible, s", measured, extra=1)

    def changed_files(self):
        """Measures the batch alone: noticing changes takes the same scan however many there are."""
        same, others = Measured(), Measured()
        step = (COUNT - PART) // CHANGED
        for turn in range(self.turns):
            self._change(same, [file_at(self.tree, number * step) for number in range(CHANGED)])
        for turn in range(self.turns):
            self._change(others, [file_at(self.tree, number * step + turn + 1) for number in range(CHANGED)])
        self.add(f"{CHANGED:,} changed files, processor time, s", same, most=1.3)
        self.add("the same with those that changed earlier in the hour, which go along, s", others)
        usage = subprocess.run([str(self.build / "bin" / "keldaned"), "--help"], check=True, capture_output=True,
                               text=True).stdout
        delay = float(re.search(r"--batch-delay .*=(\d+)", usage)[1])
        self.add_fact("from the notice of a change to its batch", f"{delay:g} s", delay <= 60, "≤ 60 s")

    # The sides do not take turns in going first, because the daemon would notice the changes for the other side.
    def _change(self, measured, files):
        self.daemon.wait_for_quiet()
        for file in files:
            file.write_bytes(os.urandom(FILE_BYTES))
        os.sync()
        eventually(lambda: self.daemon.state()["pendingFileCount"] > 0, "The notice", 0.5)
        time.sleep(SHORT_DELAY / 2)  # the scan is over by then, and the batch has not begun
        before = self.daemon.processor_seconds()
        self.daemon.wait_until_stored(COUNT, 0.5)
        measured.mine.append(self.daemon.processor_seconds() - before)
        measured.other.append(self.restic.backup_list(files)[1])

    def restore(self):
        folder = self.tree / f"part-{PARTS - 1}"
        snapshot = self.restic.newest_with(self.tree)
        self._restored(f"restoring a folder of {PART:,} files, s", folder, snapshot, 1.3)
        self.big.parent.mkdir()
        make_big(self.big)
        self.restic.backup(self.big)
        self.daemon.include(self.big)
        self.daemon.wait_until_stored(COUNT + 1)
        self.daemon.wait_for_quiet()
        self._restored("restoring a file of 1 GiB, s", self.big, self.restic.newest_with(self.big), 1.15)

    def _restored(self, title, path, snapshot, most):
        measured = Measured()
        for turn in range(self.turns):
            targets = [self.fresh("restored"), self.fresh("restored")]
            targets[0].mkdir()
            measured.take(turn, lambda: self.daemon.restore(path, targets[0]),
                          lambda: self.restic.restore(snapshot, path, targets[1])[0])
            for restored in (targets[0] / path.name, targets[1] / path.relative_to("/")):
                subprocess.run(["diff", "-rq", str(path), str(restored)], check=True)
            for target in targets:
                shutil.rmtree(target)
        self.add(title, measured, most=most)

    def memory(self):
        most, now = self.daemon.memory()
        self.add_fact(f"memory of the daemon itself with {COUNT:,} files, at most", f"{most:.0f} MiB", most <= 100,
                      "≤ 100 MiB")
        self.add_fact("the same, at the end", f"{now:.0f} MiB")

    def menus(self):
        """Measures a menu's questions about random files, during a first backup and afterwards."""
        middle, late, beside = Measured(), Measured(), Measured()
        for _ in range(self.turns):
            self.fresh_daemon()
            self.daemon.include(self.tree)
            eventually(lambda: self.daemon.state()["currentBackupFile"], "The backup", 0.02)
            busy = self._ask(MENU_SECONDS)
            self.daemon.wait_until_stored(COUNT)
            self.daemon.wait_for_quiet()
            idle = self._ask(MENU_SECONDS)
            self.fresh_restic()
            other = threading.Thread(target=lambda: self.restic.backup(self.tree))
            other.start()
            time.sleep(1)
            plain = self._ask(MENU_SECONDS)
            other.join()
            for measured, at in ((middle, 0.5), (late, 0.99)):
                measured.mine.append(quantile(busy, at))
                measured.other.append(quantile(idle, at))
            beside.mine.append(quantile(plain, 0.5))
            beside.other.append(quantile(idle, 0.5))
        self.add("a menu's question during a backup / idle, half of them, µs", middle, most=1.5)
        self.add("the same, 99 % of them, µs", late)
        self.add("while plain restic backs up beside an idle daemon, half of them, µs", beside)

    def _ask(self, seconds):
        """The microseconds of each question, sorted."""
        times = []
        chance = random.Random(1)
        with contextlib.closing(self.daemon.another_client()) as client:
            end = time.monotonic() + seconds
            while time.monotonic() < end:
                path = str(file_at(self.tree, chance.randrange(COUNT)))
                begin = time.monotonic_ns()
                client.ask("dictionaryForPath:withDirSizes:", path, ("c", 0))
                times.append((time.monotonic_ns() - begin) / 1e3)
        return sorted(times)

    def run(self):
        print("== making the files", flush=True)
        make_tree(self.tree)
        for _ in range(2):  # both sides find the files in the page cache
            subprocess.run(["cp", "-r", str(self.tree), str(self.place / "copy")], check=True)
            shutil.rmtree(self.place / "copy")
        if self.wants("menus"):
            print("== menus", flush=True)
            self.menus()
        print("== first backup", flush=True)
        self.first_backup()
        if not self.daemon:
            sys.exit("There is no daemon.")
        self.daemon.wait_for_quiet()
        for name, measure in (("one", self.one_file), ("changed", self.changed_files), ("restore", self.restore),
                              ("memory", self.memory)):
            if self.wants(name):
                print(f"== {name}", flush=True)
                measure()


def quantile(times, at):
    return times[min(int(len(times) * at), len(times) - 1)]


def short(number):
    return f"{number:,.0f}" if number >= 100 else f"{number:.3g}"


def mark(met):
    return {None: "", True: "✓", False: "✗"}[met]


def table(benchmark):
    """The section of the document as Markdown."""
    version = subprocess.run(["restic", "version"], check=True, capture_output=True, text=True).stdout.split()[1]
    lines = [f"Measured on: {os.cpu_count()} processors, {platform.machine()}, Linux {platform.release()}, "
             f"restic {version}; {benchmark.turns} turns.", "",
             "| | this system | restic, or idle | ratio | target |", "|---|---|---|---|---|"]
    for row in benchmark.rows:
        lines.append(f"| {row['title']} | {short(row['mine'])} | {short(row['other'])} | {row['ratio']:.2f} | "
                     f"{row['target']} {mark(row['met'])} |")
    for title, fact in benchmark.facts.items():
        lines.append(f"| {title} | {fact['text']} | | | {fact['target']} {mark(fact['met'])} |")
    return "\n".join(re.sub(r" +\|", " |", line) for line in lines)


def update_document(benchmark):
    text = DOCUMENT.read_text(encoding="utf-8")
    pattern = re.compile(r"(<!-- storage -->\n).*?(<!-- end -->)", re.S)
    if not pattern.search(text):
        sys.exit(f"{DOCUMENT} has no place for: storage")
    DOCUMENT.write_text(pattern.sub(lambda match: f"{match[1]}{table(benchmark)}\n{match[2]}", text), encoding="utf-8")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--update-docs", action="store_true")
    parser.add_argument("--only", action="append", choices=("menus", "first", "one", "changed", "restore", "memory"))
    options = parser.parse_args()
    if options.only and options.update_docs:
        parser.error("a part of the figures is no table for the document")
    for ending in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(ending, lambda number, _: sys.exit(128 + number))  # so that nothing is left behind
    place = pathlib.Path(tempfile.mkdtemp(prefix="keldane-storage-", dir=os.environ.get("TMPDIR", "/var/tmp")))
    benchmark = Benchmark(options.build.resolve(), place, 3 if options.quick else 5, options.only)
    try:
        benchmark.run()
    finally:
        benchmark.close()
        shutil.rmtree(place, ignore_errors=True)
    folder = options.build / "bench"
    folder.mkdir(exist_ok=True)
    (folder / "storage.json").write_text(json.dumps({"ratios": benchmark.rows, "facts": benchmark.facts}, indent=1,
                                                    ensure_ascii=False) + "\n", encoding="utf-8")
    print(f"\n{table(benchmark)}\n\nAll of it: {folder / 'storage.json'}")
    if options.update_docs:
        update_document(benchmark)


if __name__ == "__main__":
    main()
