#!/usr/bin/env python3
"""Runs the benchmarks and compares this system with the floor and with other systems. Each result is a ratio of medians
of two measurements that alternate in one run. Figures of different runs are never compared.

  report.py BUILD [--quick] [--update-docs]

BUILD is a build folder with the benchmarks in it; bench.json and the plots are written to BUILD/bench. --quick takes
three turns instead of ten. --update-docs also renews the tables and plots of docs/performance.md.
"""

import argparse
import json
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "docs" / "performance.md"

# Prefix of the names, program, arguments, turns. Quick benchmarks have many short turns, because the speed of a busy machine
# changes from one second to the next.
MENU = "menu: "
PROGRAMS = (
    ("", "bench-calls", ["--benchmark_min_time=0.03", "--benchmark_filter=^(call|log)/"], 75),
    (MENU, "bench-calls", ["--benchmark_min_time=0.15", "--benchmark_filter=^(call/floor/|cycle)"], 15),
    ("", "bench-property-lists", ["--benchmark_min_time=0.05", "--benchmark_filter=/(request|node|state|nodes1000|nodes10000)/"],
     10),
    ("", "bench-load", [], 15),
    ("", "bench-daemon", [], 5),
    ("", "bench-file-tree", ["--benchmark_min_time=0.005", "--benchmark_filter=/(1000|100000)$"], 5),
)

SAMPLES = (("request", "a request"), ("node", "a node"), ("state", "a state"), ("nodes10000", "10,000 nodes"))
PEERS = (("libplist", "libplist"), ("rapidjson", "RapidJSON"), ("copy", "a copy of the bytes"))


class Pair:
    """Two measurements and the target for their ratio. `per` divides the first one."""

    def __init__(self, group, title, mine, other, most=None, least=None, per=1.0, inverse=False):
        self.group, self.title, self.mine, self.other = group, title, mine, other
        self.most, self.least, self.per, self.inverse = most, least, per, inverse


def pairs():
    call = "call/{}/process_time/real_time".format
    yield Pair("A call", "this system / the floor: the same bytes, sends, reads and hand-over", call("keldane"),
               call("floor"), most=1.15)
    yield Pair("A call", "its client alone / the floor", call("keldane-to-floor"), call("floor"))
    yield Pair("A call", "this system / the floor that reads ahead as well", call("keldane"), call("floor-ahead"))
    yield Pair("A call", "this system / one send and one read a message", call("keldane"), call("floor-in-one"))
    yield Pair("A call", "this system / sd-bus", call("keldane"), call("sd-bus"), most=1.0)
    yield Pair("A call", "this system / GDBus", call("keldane"), call("gdbus"), most=1.0)
    yield Pair("A call", "this system / lines of text, read by the caller itself", call("keldane"), call("lines"))
    yield Pair("A call", "the floor that looks for 50 µs before it sleeps / the floor", call("floor-looking"),
               call("floor"))
    yield Pair("A call", "the same, processor time", "call/floor-looking/process_time/cpu", "call/floor/process_time/cpu")
    yield Pair("A call", "the same with a peer that takes 1 ms, processor time", "call/floor-slow-looking/process_time/cpu",
               "call/floor-slow/process_time/cpu")
    cycle = (MENU + "cycle/{}/iterations:{}/real_time").format
    for files, iterations in ((1, 40), (10, 40), (100, 8), (1000, 2), (10000, 1)):
        yield Pair("A menu", f"{files:,} items / as many calls of the floor", cycle(files, iterations),
                   MENU + call("floor"),
                   most=1.25 if files == 1000 else None, per="calls")
    yield Pair("A menu", "an item of 10,000 / an item of 100", cycle(10000, 1), cycle(100, 8), most=1.1, per=100.0)
    yield Pair("A menu", "100 items with the reference daemon / with one that answers at once",
               cycle(100, 8).replace("cycle", "cycle-reference"), cycle(100, 8))
    yield Pair("The log", "a line while it is off / a byte test", "log/off", "log/byte-test")
    for form in ("binary", "xml"):
        for sample, title in SAMPLES:
            for verb, word in (("decode", "reading"), ("encode", "writing")):
                for peer, name in PEERS:
                    target = None
                    if (form, sample, peer) == ("binary", "nodes10000", "libplist"):
                        target = 8 if verb == "decode" else 15
                    yield Pair(f"Property lists, {form}: how many times as fast", f"{word} {title} / {name}",
                               f"{verb}/{form}/{sample}/keldane", f"{verb}/{form}/{sample}/{peer}", least=target,
                               inverse=True)
        for sample, title in (("node", "a node"), ("nodes1000", "1,000 nodes")):
            for verb, word in (("decode", "reading"), ("encode", "writing")):
                yield Pair(f"Property lists, {form}: how many times as fast", f"{word} {title} / GNUstep",
                           f"{verb}/{form}/{sample}/keldane", f"{verb}/{form}/{sample}/gnustep", inverse=True)
    yield Pair("Loading", "from dlopen to the first menu / an empty C++ shared object",
               "load/first-menu/iterations:10/manual_time", "load/empty/iterations:10/manual_time", most=3.0)
    for verb, title in (("Build", "building"), ("Sort", "sorting"), ("Select", "selecting"), ("Flush", "dropping")):
        yield Pair("Trees of file nodes", f"{title}, a node of 100,000 / a node of 1,000",
                   f"BM_{verb}Tree/100000", f"BM_{verb}Tree/1000", per=100.0)
    daemon = "daemon/clients/{}/iterations:1/real_time".format
    for clients in (10, 100, 500):
        yield Pair("The reference daemon", f"5,000 questions of {clients} clients / of one", daemon(clients), daemon(1))


def run(build, quick):
    """The real times of each benchmark by turn, and its last counters."""
    times, counters = {}, {}
    with tempfile.TemporaryDirectory() as folder:
        for prefix, program, arguments, turns in PROGRAMS:
            output = pathlib.Path(folder) / f"{program}.json"
            command = [str(build / "bench" / program), f"--benchmark_repetitions={3 if quick else turns}",
                       "--benchmark_enable_random_interleaving=true", f"--benchmark_out={output}",
                       "--benchmark_out_format=json", *arguments]
            print(f"== {program}", flush=True)
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            for entry in json.loads(output.read_text(encoding="utf-8"))["benchmarks"]:
                if entry["run_type"] != "iteration":
                    continue
                if entry.get("error_occurred"):
                    sys.exit(f"{entry['name']}: {entry['error_message']}")
                name = prefix + entry["run_name"]
                scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[entry["time_unit"]]
                times.setdefault(name, []).append(entry["real_time"] * scale)
                times.setdefault(name.removesuffix("/real_time") + "/cpu", []).append(entry["cpu_time"] * scale)
                counters[name] = {key: value for key, value in entry.items()
                                  if isinstance(value, (int, float)) and key not in
                                  ("real_time", "cpu_time", "iterations", "repetitions", "repetition_index", "threads",
                                   "family_index", "per_family_instance_index")}
    return times, counters


def compare(times, counters):
    rows = []
    for pair in pairs():
        mine, other = times.get(pair.mine), times.get(pair.other)
        if not mine or not other:
            continue
        per = counters[pair.mine][pair.per] if isinstance(pair.per, str) else pair.per
        mine = [time / per for time in mine]
        ratio = statistics.median(mine) / statistics.median(other)
        turns = sorted(a / b for a, b in zip(mine, other))
        spread = [turns[len(turns) // 4], turns[(3 * len(turns)) // 4]]
        if pair.inverse:
            ratio, spread = 1 / ratio, [1 / spread[1], 1 / spread[0]]
        bound = f"≤ {pair.most:g}" if pair.most else f"≥ {pair.least:g}" if pair.least else ""
        met = (ratio <= pair.most if pair.most else ratio >= pair.least) if bound else None
        rows.append({"group": pair.group, "title": pair.title, "ratio": ratio, "spread": spread, "target": bound,
                     "met": met, "mine": pair.mine, "other": pair.other})
    return rows


SYSTEM_CALLS = ("sendto", "read", "futex", "newfstatat")


def counted(build, files):
    """The numbers of system calls of a daemon and of a process that shows one menu, by name, with their sum under "all";
    none where the kernel does not allow counting. A tracer would slow the senders down and so change the numbers."""
    events = ["raw_syscalls:sys_enter", *(f"syscalls:sys_enter_{name}" for name in SYSTEM_CALLS)]
    with tempfile.NamedTemporaryFile("r", suffix=".csv") as output:
        result = subprocess.run(["perf", "stat", "-x", ";", "-o", output.name, "-e", ",".join(events),
                                 str(build / "tests" / "menu-cycle-cost"), str(files)], check=False, capture_output=True,
                                text=True)
        counts = [line.split(";")[0] for line in output if ";" in line]
    if result.returncode != 0 or len(counts) != len(events) or not all(count.isdigit() for count in counts):
        print(f"The system calls could not be counted. {result.stderr.strip()}")
        return None
    return dict(zip(("all", *SYSTEM_CALLS), map(int, counts)))


def calls_per_item(build):
    """The number of system calls for one more item of a menu, from the difference between two menus. The calls that make and
    remove the files belong to the same process and are included."""
    few, many = 100, 1100
    totals = [counted(build, files) for files in (few, many)]
    if None in totals:
        return None
    each = {name: (totals[1][name] - totals[0][name]) / (many - few) for name in totals[0]}
    return {name: each[name] for name in SYSTEM_CALLS} | {
        "others": each["all"] - sum(each[name] for name in SYSTEM_CALLS)}


def peak_memory(build, files):
    """The greatest memory, in KiB, of a process that shows one menu."""
    result = subprocess.run([str(build / "tests" / "menu-cycle-cost"), str(files)], check=True, capture_output=True,
                            text=True)
    return int(re.search(r"VmHWM:\s*(\d+) kB", result.stdout)[1])


def facts(build, times, counters):
    """The figures that are counted rather than compared."""
    median = lambda name: statistics.median(times[name])
    cycle = {1: 40, 10: 40, 100: 8, 1000: 2, 10000: 1}
    module = next((build / "Keldane.plugin").rglob("KeldaneCMM.so"))
    instructions = int((ROOT / "tests" / "cost" / "menu-cycle.instructions").read_text(encoding="ascii"))
    result = {
        "machine": f"{os.cpu_count()} processors, {platform.machine()}, Linux {platform.release()}",
        "call": {name: median(f"call/{name}/process_time/real_time") / 1e3
                 for name in ("keldane", "floor", "floor-in-one", "sd-bus", "gdbus", "lines")},
        "cycle": {str(files): {
            "microseconds an item": median(f"{MENU}cycle/{files}/iterations:{n}/real_time") / files / 1e3,
            "allocations an item": counters[f"{MENU}cycle/{files}/iterations:{n}/real_time"]["allocations/file"],
            "peak KiB": peak_memory(build, files)} for files, n in cycle.items()},
        "system calls an item": calls_per_item(build),
        "instructions of 100 items": instructions,
        "allocations of reading 10,000 nodes": counters["decode/binary/nodes10000/keldane"]["allocations"],
        "allocations of writing 10,000 nodes": counters["encode/binary/nodes10000/keldane"]["allocations"],
        "module bytes": module.stat().st_size,
        "pages": {name: counters[f"load/{name}/iterations:10/manual_time"]["pages"] for name in ("first-menu", "empty")},
        "daemon": {str(clients): {key: counters[f"daemon/clients/{clients}/iterations:1/real_time"][key]
                                  for key in ("items_per_second", "p50", "p99", "p99.9")}
                   for clients in (1, 10, 100, 500)},
        "listing of 100,000 milliseconds": median("daemon/children100000/iterations:1/real_time") / 1e6,
    }
    return result


def table(rows):
    """The rows of one group as Markdown."""
    lines = ["| | ratio | middle half of the turns | target |", "|---|---|---|---|"]
    for row in rows:
        mark = {None: "", True: " ✓", False: " ✗"}[row["met"]]
        lines.append(f"| {row['title']} | {row['ratio']:.3g} | {row['spread'][0]:.3g} – {row['spread'][1]:.3g} | "
                     f"{row['target']}{mark} |")
    return "\n".join(lines)


def grouped(rows):
    groups = {}
    for row in rows:
        groups.setdefault(row["group"], []).append(row)
    return groups


def plot(rows, path):
    """Draws ratios as bars on a logarithmic scale, with a line at 1, a mark at each target, and the spread."""
    from math import log10

    low = min(min(row["ratio"], row["spread"][0], 1.0) for row in rows)
    high = max(max(row["ratio"], row["spread"][1], 1.0) for row in rows)
    left, width, step, top = 430, 480, 22, 14
    lowest, highest = log10(low) - 0.05, log10(high) + 0.05

    def x(value):
        return left + width * (log10(value) - lowest) / (highest - lowest)

    height = top + step * len(rows) + 26
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 80}" height="{height}" '
             'font-family="sans-serif" font-size="12">', '<rect width="100%" height="100%" fill="white"/>']
    for i, row in enumerate(rows):
        y = top + step * i
        begin, end = sorted((x(1.0), x(row["ratio"])))
        colour = {None: "#8aa2b8", True: "#5b9a68", False: "#c0605a"}[row["met"]]
        title = row["title"].replace("&", "&amp;").replace("<", "&lt;")
        parts.append(f'<text x="{left - 8}" y="{y + 13}" text-anchor="end">{title}</text>')
        parts.append(f'<rect x="{begin:.1f}" y="{y + 2}" width="{max(end - begin, 1):.1f}" height="14" fill="{colour}"/>')
        a, b = x(row["spread"][0]), x(row["spread"][1])
        parts.append(f'<line x1="{a:.1f}" x2="{b:.1f}" y1="{y + 9}" y2="{y + 9}" stroke="#333"/>')
        if row["target"]:
            at = x(float(row["target"].split()[1]))
            parts.append(f'<line x1="{at:.1f}" x2="{at:.1f}" y1="{y}" y2="{y + 18}" stroke="#333" stroke-width="2"/>')
        parts.append(f'<text x="{max(end, b) + 6:.1f}" y="{y + 13}">{row["ratio"]:.2f}</text>')
    base = top + step * len(rows)
    parts.append(f'<line x1="{x(1):.1f}" x2="{x(1):.1f}" y1="{top - 6}" y2="{base}" stroke="#333" stroke-dasharray="3 3"/>')
    parts.append(f'<text x="{x(1):.1f}" y="{base + 16}" text-anchor="middle">1</text>')
    parts.append("</svg>")
    path.write_text("\n".join(parts) + "\n", encoding="utf-8")


PLOTS = {"A call": "call.svg", "A menu": "menu.svg",
         "Property lists, binary: how many times as fast": "plist.svg"}


def fact_tables(found):
    """The tables of counted figures, by the name that the document uses for them."""
    cycle = ["| items | µs an item | allocations an item | peak memory of the process |", "|---|---|---|---|"]
    for files, row in found["cycle"].items():
        cycle.append(f"| {int(files):,} | {row['microseconds an item']:.0f} | {row['allocations an item']:.0f} | "
                     f"{row['peak KiB'] / 1024:.1f} MiB |")
    daemon = ["| clients | questions a second | half within | 99 % within | 99.9 % within |", "|---|---|---|---|---|"]
    for clients, row in found["daemon"].items():
        daemon.append(f"| {clients} | {row['items_per_second']:,.0f} | {row['p50'] / 1e3:.2f} ms | "
                      f"{row['p99'] / 1e3:.2f} ms | {row['p99.9'] / 1e3:.2f} ms |")
    call, floor = found["call"]["keldane"], found["call"]["floor"]
    item = found["cycle"]["1000"]["microseconds an item"]
    per_client = found["daemon"]["500"]["items_per_second"]
    model = [
        "| | |", "|---|---|",
        f"| a call, to and fro | {call:.1f} µs; the floor takes {floor:.1f} |",
        f"| an item of a menu | {item:.0f} µs |",
        f"| a menu on 100,000 items | {item * 1e5 / 1e6:.0f} s, all of it asking |",
        f"| 1,000 clients, each with a question on its way | {1000 / per_client * 1e3:.0f} ms until each has its answer |",
        f"| listing a folder of 100,000 entries | {found['listing of 100,000 milliseconds'] / 1e3:.1f} s |",
        f"| instructions of a menu on 100 items | {found['instructions of 100 items'] / 1e6:.1f} million |",
        f"| heap allocations of reading 10,000 nodes | {found['allocations of reading 10,000 nodes']:.0f} |",
        f"| heap allocations of writing them | {found['allocations of writing 10,000 nodes']:.0f} |",
        f"| size of the module | {found['module bytes'] / 1024:.0f} KiB with its line tables |",
        f"| pages touched until the first menu | {found['pages']['first-menu']:.0f}; an empty C++ shared object "
        f"touches {found['pages']['empty']:.0f} |",
    ]
    tables = {"cycle": cycle, "daemon": daemon, "model": model, "machine": [f"Measured on: {found['machine']}."]}
    if found["system calls an item"] is not None:
        kernel = [f"| {f'`{name}`' if name in SYSTEM_CALLS else name} | {number:.1f} |"
                  for name, number in found["system calls an item"].items()]
        tables["kernel"] = ["| system call | an item |", "|---|---|", *kernel]
    return tables


def update_document(rows, found, folder):
    text = DOCUMENT.read_text(encoding="utf-8")
    blocks = {name: "\n".join(lines) for name, lines in fact_tables(found).items()}
    blocks |= {group: table(members) for group, members in grouped(rows).items()}
    for name, block in blocks.items():
        pattern = re.compile(rf"(<!-- {re.escape(name)} -->\n).*?(<!-- end -->)", re.S)
        if not pattern.search(text):
            sys.exit(f"{DOCUMENT} has no place for: {name}")
        text = pattern.sub(lambda match, block=block: f"{match[1]}{block}\n{match[2]}", text)
    DOCUMENT.write_text(text, encoding="utf-8")
    for name in PLOTS.values():
        (DOCUMENT.parent / "plots" / name).write_bytes((folder / name).read_bytes())


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--update-docs", action="store_true")
    options = parser.parse_args()
    times, counters = run(options.build, options.quick)
    rows = compare(times, counters)
    found = facts(options.build, times, counters)
    folder = options.build / "bench"
    (folder / "bench.json").write_text(
        json.dumps({"ratios": rows, "facts": found, "nanoseconds": times}, indent=1, ensure_ascii=False) + "\n",
        encoding="utf-8")
    for group, members in grouped(rows).items():
        print(f"\n{group}")
        for row in members:
            mark = {None: "", True: "met", False: "MISSED"}[row["met"]]
            print(f"  {row['title']:<72} {row['ratio']:8.3g}  ({row['spread'][0]:.3g} – {row['spread'][1]:.3g})  "
                  f"{row['target']:>7} {mark}")
        if group in PLOTS:
            plot(members, folder / PLOTS[group])
    for name, lines in fact_tables(found).items():
        print(f"\n{name}")
        print("\n".join(lines))
    print(f"\nAll of it: {folder / 'bench.json'}")
    if options.update_docs:
        update_document(rows, found, folder)


if __name__ == "__main__":
    main()
