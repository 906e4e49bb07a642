"""The calls that the daemon makes to its clients."""

from __future__ import annotations

from typing import Any

from ..frames import MARKER, Frame, Link, Silent
from ..report import Failure, expect
from .context import CHECKS, DaemonContext, expect_in_step, expect_kind, expect_schema

# In seconds. The state is told at most once a second, so this is generous.
SOON = 8.0


def expect_call(message: Frame, selector: str) -> Any:
    """The argument of a callback, which must be a one-way request with one dictionary."""
    expect(message.marker == MARKER, f"the callback begins with {message.marker!r}")
    value = message.value
    expect_kind(value, "array", "a callback")
    expect(len(value) == 6 and value[:2] == [0, "v"] and value[3:5] == [1, "@"],
           f"the callback is the array {value[:5]} of {len(value)} elements")
    expect(value[2] == selector, f"the callback is {value[2]} and not {selector}")
    expect_kind(value[5], "dictionary", f"the argument of {selector}")
    return value[5]


def callback(link: Link, what: str) -> Frame:
    """The next callback, which must come soon."""
    try:
        return link.callback(SOON)
    except Silent as error:
        raise Failure(f"{what} did not come within {SOON:.0f} seconds") from error


@CHECKS.check("callbacks/state", "Whoever asks to be told of the state is told it soon, without a change.", "callbacks.md",
              profile="full")
def state(context: DaemonContext) -> None:
    with context.link() as link:
        link.call("setStateHandler")
        expect_schema(expect_call(callback(link, "The state"), "stateChanged:"), "state", "the state that was told")
        link.call("endStateHandler")
        expect_in_step(context, link, "After callbacks")


@CHECKS.check("callbacks/between-answers", "A callback comes between answers, never within one.", "callbacks.md", profile="full")
def between_answers(context: DaemonContext) -> None:
    with context.link() as link:
        link.call("setStateHandler")
        for _ in range(200):
            state_dictionary = link.ask("daemonState")
            expect_kind(state_dictionary, "dictionary", "the answer to daemonState")
        link.call("endStateHandler")


@CHECKS.check("callbacks/change", "A changed state is told, and what did not change is not told again.", "callbacks.md",
              profile="full", destructive=True)
def change(context: DaemonContext) -> None:
    context.folder("callbacks")
    with context.link() as link, context.link() as other, context.resting(other):
        link.call("setStateHandler")
        before = expect_call(callback(link, "The state"), "stateChanged:")["lowerPriorityMode"]
        other.call("setLowerPriorityMode:", int(not before))
        try:
            for _ in range(10):
                told = expect_call(callback(link, "The changed state"), "stateChanged:")
                if told["lowerPriorityMode"] != before:
                    break
            else:
                raise Failure("ten states were told, none of them the changed one")
        finally:
            other.call("setLowerPriorityMode:", int(before))


@CHECKS.check("callbacks/end", "Who no longer wants to be told is not told.", "callbacks.md", profile="full", destructive=True)
def end(context: DaemonContext) -> None:
    context.folder("callbacks")
    with context.link() as link, context.link() as other:
        link.call("setStateHandler")
        callback(link, "The state")
        link.call("endStateHandler")
        before = link.ask("daemonState")["lowerPriorityMode"]
        link.callbacks.clear()
        other.call("setLowerPriorityMode:", int(not before))
        other.ask("daemonState")
        try:
            link.callback(2.5)
        except Silent:
            return
        finally:
            other.call("setLowerPriorityMode:", int(before))
        raise Failure("a state was told after endStateHandler")


@CHECKS.check("callbacks/wizard", "A restore window is asked for at those who handle alerts, and at nobody else.",
              "callbacks.md", profile="full", destructive=True)
def wizard(context: DaemonContext) -> None:
    context.folder("callbacks")
    with context.link() as handler, context.link() as bystander, context.link() as caller:
        handler.call("setAlertHandler")
        handler.ask("pausedMinutes")  # so that the call was carried out before the next one, on another connection
        caller.call("showRestoreWizard")
        who = expect_call(callback(handler, "The call for a restore window"), "showRestoreWizard:")
        expect_kind(who.get("user"), "integer", '"user" of the call')
        handler.call("endAlertHandler")
        expect_in_step(context, bystander, "While others are told of alerts")
        expect(not bystander.callbacks, "a client that handles no alerts was called")
