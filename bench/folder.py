"""folder.py MANAGER [--files N] [--runs N]: how long a real file manager takes to open a large folder, with the extension
and without. The sides run in turn, and what is printed are medians.

    none     without the extension
    silent   with the extension, which answers nothing because emblems and columns are switched off
    quick    with emblems, and a daemon that answers at once
    slow     with a daemon that takes a second for each answer
    stopped  with a daemon that takes connections and never answers
    away     without a daemon

Opening ends when the file manager tells how many files there are and has done nothing for a quarter of a second."""

import argparse
import contextlib
import os
import plistlib
import re
import shutil
import statistics
import sys
import tempfile
import time

import desktop
import filemanagers

from recording_daemon import ENABLED, RecordingDaemon, node

PLUGIN = os.path.join(os.environ["XDG_DATA_HOME"], "keldane", "plugins", "Keldane.plugin")
PREFERENCES = os.path.join(os.environ["XDG_CONFIG_HOME"], "com.keldane.preferences.plist")
SIDES = ("none", "silent", "quick", "slow", "stopped", "away")
TICKS = os.sysconf("SC_CLK_TCK")
LISTING = "childrenDictionariesForPath:"
IDLE = 10  # seconds that are looked at after the folder is open


def processor_time(process):
    """Seconds that a process has used."""
    with open(f"/proc/{process}/stat", encoding="ascii") as stream:
        fields = stream.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


def nodes(folder, names):
    return [node(f"{folder}/{name}", ENABLED, False, "Backed up", backupFlags=0x30, backupColor=2) for name in names]


class Bench:
    def __init__(self, manager, count, place):
        self.manager, self.place = manager, place
        self.files = os.path.join(place, "files")
        self.socket = os.path.join(place, "daemon.sock")
        os.mkdir(self.files)
        self.names = [f"{number:05}.txt" for number in range(count)]
        for name in self.names:
            with open(os.path.join(self.files, name), "wb"):
                pass
        self.listing = nodes(self.files, self.names)
        number = rf"\b{count // 1000}.?{count % 1000:03}\b"
        self.told = re.compile(f"{number}.*(items|files)|(Files|Items): {number}")
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
                   "dictionaryForPath:withDirSizes:": late(lambda path, _: nodes(*[os.path.dirname(path), [os.path.basename(path)]])[0]),
                   "daemonState": late(lambda: {"statusString": "Up to date"})}
        daemon = RecordingDaemon(self.socket, answers, "never" if side == "stopped" else None)
        try:
            yield
        finally:
            daemon.stop()
            os.unlink(self.socket)

    def settled(self, process):
        """When it has been idle for a quarter of a second: the time at which that began."""
        since, used = time.monotonic(), processor_time(process)
        end = since + desktop.PATIENCE
        while time.monotonic() < end:
            time.sleep(0.025)
            now = processor_time(process)
            if now > used:
                since, used = time.monotonic(), now
            elif time.monotonic() - since > 0.25:
                return since
        raise AssertionError("it never came to rest")

    def run(self, side):
        with open(PREFERENCES, "wb") as stream:
            switch = "NO" if side == "silent" else "YES"
            plistlib.dump({key: switch for key in ("ShowEmblems", "ShowColumns", "ShowRestoreEntries")}, stream)
        remove = self.manager.place_extension() if side != "none" else lambda: None
        try:
            with self.daemon(side):
                begin = time.monotonic()
                window = self.manager(self.files)
                try:
                    return self.measure(window, begin)
                finally:
                    window.end()
        finally:
            remove()

    def measure(self, window, begin):
        process = window.program.process.pid
        self.settled(process)
        desktop.eventually(lambda: any(self.told.search(each.get_name() or "") for each in
                                       desktop.walk(window.application, widest=filemanagers.WIDEST)), "all files")
        opened = self.settled(process) - begin
        used, start = processor_time(process), time.monotonic()
        opening = used
        memory = window.memory()
        time.sleep(IDLE)
        idle = (processor_time(process) - used) / (time.monotonic() - start)
        return {"opened": opened, "processor": opening, "memory": memory, "idle": idle}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("manager", choices=sorted(filemanagers.ALL))
    parser.add_argument("--files", type=int, default=10000)
    parser.add_argument("--runs", type=int, default=11)
    parser.add_argument("--sides", default=",".join(SIDES))
    options = parser.parse_args()
    manager = filemanagers.ALL[options.manager]
    manager.set_options()
    shutil.copytree(os.path.join(filemanagers.BUILD, "Keldane.plugin"), PLUGIN)
    sides = options.sides.split(",")
    place = tempfile.mkdtemp(prefix="keldane-bench-")
    results = {side: [] for side in sides}
    try:
        bench = Bench(manager, options.files, place)
        for number in range(options.runs):
            for side in sides:
                results[side].append(bench.run(side))
            print(f"run {number + 1} of {options.runs}", file=sys.stderr)
    finally:
        shutil.rmtree(place, ignore_errors=True)
    report(options, results)


def report(options, results):
    def median(side, what):
        return statistics.median(each[what] for each in results[side])
    print(f"{options.manager}, {options.files} files, medians of {options.runs} runs")
    print("| side | open in s | of silent | processor in s | memory in MiB | processor at rest |")
    print("|---|---|---|---|---|---|")
    for side in results:
        ratio = f"{median(side, 'opened') / median('silent', 'opened'):.2f}" if "silent" in results else ""
        print(f"| {side} | {median(side, 'opened'):.2f} | {ratio} | {median(side, 'processor'):.2f} | "
              f"{median(side, 'memory') / (1 << 20):.1f} | {100 * median(side, 'idle'):.1f} % |")


main()
