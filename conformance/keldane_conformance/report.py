"""Checks, their results, and the reports."""

from __future__ import annotations

import json
import sys
import time
from collections.abc import Callable, Iterable
from dataclasses import dataclass
from typing import Any

# Each profile includes the profiles that it names. Only "full" includes the limits.
PROFILES: dict[str, tuple[str, ...]] = {
    "basic": ("basic",),
    "menu": ("basic", "menu"),
    "keldanectl": ("basic", "menu", "keldanectl"),
    "preferences": ("basic", "menu", "preferences"),
    "full": ("basic", "menu", "keldanectl", "preferences", "full"),
}
# A client has one trade. The checks of other trades are not made.
CLIENT_PROFILES: dict[str, tuple[str, ...]] = {
    "basic": ("basic",),
    "menu": ("basic", "menu"),
    "keldanectl": ("basic", "keldanectl"),
    "preferences": ("preferences",),
    "full": ("full",),
}


class Failure(Exception):
    """Raised by a check that fails, with a sentence."""


class Skip(Exception):
    """Raised by a check that cannot be made here, with the reason."""


@dataclass(frozen=True)
class Check:
    """One requirement that is checked."""

    name: str
    profile: str
    why: str
    page: str
    destructive: bool
    run: Callable[[Any], None]


@dataclass(frozen=True)
class Result:
    """The result of a check."""

    check: Check
    status: str  # passed, failed or skipped
    detail: str
    seconds: float


class Checks:
    """The checks of one side, in the order in which they were registered."""

    def __init__(self) -> None:
        self.all: list[Check] = []

    def check(self, name: str, why: str, page: str, profile: str = "menu",
              destructive: bool = False) -> Callable[[Callable[[Any], None]], Callable[[Any], None]]:
        """Registers a function as a check."""
        def note(run: Callable[[Any], None]) -> Callable[[Any], None]:
            self.all.append(Check(name, profile, why, page, destructive, run))
            return run
        return note

    def chosen(self, profiles: Iterable[str], only: Iterable[str]) -> list[Check]:
        """The checks of these profiles. `only` restricts them to the checks that it names, by full name or by the part
        before the slash."""
        wanted, names = set(profiles), set(only)
        return [check for check in self.all if check.profile in wanted
                and (not names or names & {check.name, check.name.partition("/")[0]})]


def expect(holds: object, sentence: str) -> None:
    """Fails the check with a sentence unless something holds."""
    if not holds:
        raise Failure(sentence)


def run(check: Check, context: Any) -> Result:
    """Makes one check. Any exception in it is a failure."""
    begin = time.monotonic()
    status, detail = "passed", ""
    try:
        check.run(context)
    except Skip as reason:
        status, detail = "skipped", str(reason)
    except Failure as failure:
        status, detail = "failed", str(failure)
    except Exception as error:  # pylint: disable=broad-exception-caught
        status, detail = "failed", f"{type(error).__name__}: {error}"
    return Result(check, status, detail, time.monotonic() - begin)


class TapReport:
    """Prints the Test Anything Protocol, version 13, with one line for each check when it is made."""

    def __init__(self, count: int) -> None:
        self.number = 0
        print(f"TAP version 13\n1..{count}", flush=True)

    def add(self, result: Result) -> None:
        """Prints one result."""
        self.number += 1
        word = "not ok" if result.status == "failed" else "ok"
        skip = f" # SKIP {result.detail}" if result.status == "skipped" else ""
        print(f"{word} {self.number} - {result.check.name}{skip}")
        if result.status == "failed":
            detail = result.detail.replace("\n", "\n  #   ")
            print(f"  # {detail}\n  # Why: {result.check.why}\n  # See {result.check.page}")
        sys.stdout.flush()

    def end(self, results: list[Result]) -> None:
        """Prints the totals."""
        counts = {status: sum(result.status == status for result in results)
                  for status in ("passed", "failed", "skipped")}
        print("# " + ", ".join(f"{count} {status}" for status, count in counts.items()))


class JsonReport:
    """Prints one JSON document at the end."""

    def __init__(self, _count: int) -> None:
        pass

    def add(self, result: Result) -> None:
        """Nothing is printed before the end."""

    def end(self, results: list[Result]) -> None:
        """Prints everything."""
        rows = [{"name": result.check.name, "profile": result.check.profile, "status": result.status,
                 "detail": result.detail, "why": result.check.why, "page": result.check.page,
                 "seconds": round(result.seconds, 3)} for result in results]
        print(json.dumps({"checks": rows, "failed": sum(row["status"] == "failed" for row in rows)}, indent=1))
