"""The state and the settings."""

from __future__ import annotations

import time

from .. import reference
from ..frames import Link
from ..meaning import kind
from ..report import Skip, expect
from .context import CHECKS, DaemonContext, expect_schema

NUMBERS = ("integer", "boolean")


@CHECKS.check("state/schema", "keldanectl and the preferences show each of these values.", "state.md", profile="keldanectl")
def schema(context: DaemonContext) -> None:
    with context.link() as link:
        expect_schema(link.ask("daemonState"), "state", "the state")


@CHECKS.check("state/preferences", "The preferences follow the state every two seconds.", "state.md", profile="preferences")
def preferences(context: DaemonContext) -> None:
    with context.link() as link:
        for _ in range(3):
            expect_schema(link.ask("daemonState"), "state", "the state")


@CHECKS.check("state/order", "The values have numbers by their order, so new keys come last.", "state.md", profile="full")
def order(context: DaemonContext) -> None:
    with context.link() as link:
        told = list(link.ask("daemonState"))
    known = [row["key"] for row in reference.protocol()["state"] if row["key"] in told]
    expect(told[:len(known)] == known, f"the state's keys come in the order {told}")


def steady_state(link: Link) -> tuple[dict[str, object], list[object]]:
    """The state and each value by its number, read while the state did not change."""
    for _ in range(20):
        before = link.ask("daemonState")
        numbered = [link.ask("longForState:" if kind(value) in NUMBERS else "stringForState:", number)
                    for number, value in enumerate(before.values())]
        if link.ask("daemonState") == before:
            return before, numbered
        time.sleep(0.1)
    raise Skip("the state changes all the time")


@CHECKS.check("state/numbered", "Each value of the state can be asked for by its number.", "state.md", profile="full")
def numbered_values(context: DaemonContext) -> None:
    with context.link() as link:
        state, numbered = steady_state(link)
        for number, ((key, value), answer) in enumerate(zip(state.items(), numbered)):
            if kind(value) in NUMBERS:
                expect(answer == int(value), f'value {number} is {answer}, "{key}" is {value}')  # type: ignore[call-overload]
            elif kind(value) == "string":
                expect(answer == value, f'value {number} is {answer!r}, "{key}" is {value!r}')
        expect(link.ask("stringForState:", 4_000_000_000) is None, "a value that does not exist has a text")
        expect(link.ask("longForState:", 4_000_000_000) == 0, "a value that does not exist has a number")


@CHECKS.check("settings/pause", "The minutes of a pause are told at once, and 0 ends it.", "methods.md", profile="keldanectl",
              destructive=True)
def pause(context: DaemonContext) -> None:
    context.folder("settings")
    with context.link() as link:
        before = link.ask("pausedMinutes")
        link.call("setPausedMinutes:", 90)
        left, state = link.ask("pausedMinutes"), link.ask("daemonState")
        link.call("setPausedMinutes:", 0)
        after, state_after = link.ask("pausedMinutes"), link.ask("daemonState")
        link.call("setPausedMinutes:", before)
        expect(left in (89, 90), f"of a pause of 90 minutes, {left} are left")
        expect(state["paused"] is True, "the backup rests, and the state does not say so")
        expect(after == 0 and state_after["paused"] is False, f"the pause was ended, and {after} minutes are left")


@CHECKS.check("settings/modes", "Each switch can be switched on and off, and the next answer says how it stands.", "methods.md",
              profile="keldanectl", destructive=True)
def modes(context: DaemonContext) -> None:
    context.folder("settings")
    with context.link() as link:
        expect_switch(link, "setAutomaticMode:", "automaticMode")
        for selector, key in (("setLowerPriorityMode:", "lowerPriorityMode"), ("setRecoverMode:", "recoverMode")):
            before = link.ask("daemonState")[key]
            for wanted in (True, False):
                link.call(selector, int(wanted))
                told = link.ask("daemonState")[key]
                expect(told is wanted, f'"{key}" of the state is {told} after {selector} {int(wanted)}')
            link.call(selector, int(before))


@CHECKS.check("settings/full", "The other settings are kept, though nothing depends on them.", "methods.md", profile="full",
              destructive=True)
def other_modes(context: DaemonContext) -> None:
    context.folder("settings")
    with context.link() as link:
        expect_switch(link, "setDelayShutdown:", "delayShutdown")
        expect_switch(link, "setRecoverMode:", "recoverMode")
        expect_switch(link, "setLowerPriorityMode:", "lowerPriorityMode")
        before = link.ask("daemonState")["backupControlFlags"]
        link.call("setBackupControl:", 4_000_000_000)
        told = link.ask("daemonState")["backupControlFlags"]
        link.call("setBackupControl:", before)
        expect(told == 4_000_000_000, f'"backupControlFlags" is {told} after it was set to 4000000000')


def expect_switch(link: Link, setter: str, getter: str) -> None:
    """Fails unless a switch can be switched. Restores it afterwards."""
    before = link.ask(getter)
    told = []
    for wanted in (1, 0, 1):
        link.call(setter, wanted)
        told.append(link.ask(getter))
    link.call(setter, before)
    expect(told == [1, 0, 1], f"{getter} answers {told} after {setter} 1, 0 and 1")


@CHECKS.check("settings/profile", "A profile value reads back as it was written.", "methods.md", profile="keldanectl",
              destructive=True)
def profile(context: DaemonContext) -> None:
    context.folder("settings")
    key = "KeldaneConformance"
    with context.link() as link:
        for text in ("plain", "böx\n😀", "x" * 4096, ""):
            link.call("setValueForProfileKey:withString:", key, text)
            told = link.ask("stringValueForProfileKey:", key)
            expect((told or "") == text, f"a value of {len(text)} characters reads back as {told!r:.60}")
