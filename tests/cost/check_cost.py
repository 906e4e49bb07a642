#!/usr/bin/env python3
"""How many instructions a menu on 100 files takes, against the number that is kept beside this file.

  check_cost.py PROGRAM            fails when they have become more than 5 % more
  check_cost.py PROGRAM --update   keeps the number as it is now

What is counted is what the host waits for: the plug-in's two entry points on the calling thread, and the reading
of the answers on the receive thread. The daemon answers at once and is not counted. Which thread is first at a lock
moves the number by less than 1 %, another processor by less than 2 %; so 5 % is a change of the code.
"""

import os
import pathlib
import re
import subprocess
import sys

KEPT = pathlib.Path(__file__).with_name("menu-cycle.instructions")
FILES = 100
TOLERANCE = 0.05
COUNTED = ("KeldanePlugin_ExamineContext", "KeldanePlugin_PostMenuCleanup", "*KeldaneProxy::processData*")

# The C library's plainest routines, whatever the processor could do, and nothing that is looked up on the way.
ENVIRONMENT = {
    "LC_ALL": "C",
    "LD_BIND_NOW": "1",
    "GLIBC_TUNABLES": "glibc.cpu.hwcaps=-AVX2,-AVX512F,-BMI2,-ERMS,-FSRM",
    "TMPDIR": "/tmp",
    "HOME": "/nonexistent",
    "PATH": os.environ["PATH"],
}


def count(program):
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"]
    command += [f"--toggle-collect={name}" for name in COUNTED]
    result = subprocess.run(command + [program, str(FILES)], env=ENVIRONMENT, capture_output=True, text=True,
                            check=False)
    collected = re.search(r"Collected : (\d+)", result.stderr)
    if result.returncode != 0 or not collected or int(collected[1]) == 0:
        sys.exit(f"The cycle could not be counted:\n{result.stdout}{result.stderr}")
    return int(collected[1])


def main():
    program = sys.argv[1]
    now = count(program)
    if sys.argv[2:] == ["--update"]:
        KEPT.write_text(f"{now}\n", encoding="ascii")
        print(f"{now} instructions are kept.")
        return
    kept = int(KEPT.read_text(encoding="ascii"))
    print(f"{now} instructions, {now / kept - 1:+.1%} against the {kept} that are kept.")
    if now > kept * (1 + TOLERANCE):
        sys.exit(f"A menu on {FILES} files takes more than {TOLERANCE:.0%} more instructions than it did. If that is\n"
                 "worth it: cmake --build --preset release --target update-menu-cost")
    if now < kept * (1 - TOLERANCE):
        print("It has become cheaper; keep that: cmake --build --preset release --target update-menu-cost")


if __name__ == "__main__":
    main()
