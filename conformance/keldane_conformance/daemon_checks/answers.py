"""Values: the answer of each method, and the conversion of arguments of another kind."""

from __future__ import annotations

from typing import Any

from .. import reference
from ..frames import Gone, Silent
from ..meaning import kind
from ..report import Failure, expect
from .context import CHECKS, LOOK_UP, SOME_FILE, SOME_FOLDER, DaemonContext, expect_in_step, expect_kind

RANGES = {"c": (-128, 127), "I": (0, 2**32 - 1), "q": (-2**63, 2**63 - 1), "Q": (0, 2**64 - 1)}

# The kinds of the objects that each method answers; "absent" for those that may be absent.
OBJECTS: dict[str, tuple[str, ...]] = {
    "serverURL": ("string",), "daemonState": ("dictionary",), "policyExcludeList": ("array",), "userEmail": ("string",),
    "computerNumber": ("integer",), "marketingMessage": ("string", "absent"), "liveStateString": ("string", "absent"),
    "backedupStateString": ("string", "absent")}

MENU = ("getFileTypeToggle:",)
KELDANECTL = ("pausedMinutes", "automaticMode", "serverURL", "daemonState", "userEmail", "computerNumber")
FULL = ("recoverMode", "lowerPriorityMode", "delayShutdown", "serviceState", "getCurrentRestoreJob",
        "policyExcludeList", "marketingMessage", "liveStateString", "backedupStateString")


def expect_answer(context: DaemonContext, selector: str, *arguments: Any) -> None:
    """Fails unless a method answers with its kind, within the width of its type."""
    returns = reference.signatures()[selector][0]
    with context.link() as link:
        try:
            value = link.ask(selector, *arguments)
        except (Gone, Silent) as error:
            raise Failure(f"{selector} has no answer") from error
    if returns == "@":
        wanted = OBJECTS[selector]
        expect(kind(value) in wanted, f"{selector} answers {kind(value)} and not {' or '.join(wanted)}")
        return
    # A boolean reads as 0 or 1, but the tables demand an integer.
    expect_kind(value, "integer", f"the answer to {selector}")
    least, most = RANGES[returns]
    expect(least <= value <= most, f"{selector} answers {value}, which is no {returns}")


@CHECKS.check("answer/menu", "The menu asks for each file's type.", "methods.md")
def menu_answers(context: DaemonContext) -> None:
    for selector in MENU:
        expect_answer(context, selector, ".keldane-conformance")


@CHECKS.check("answer/keldanectl", "keldanectl and the preferences wait for these without a limit.", "methods.md",
              profile="keldanectl")
def ctl_answers(context: DaemonContext) -> None:
    for selector in KELDANECTL:
        expect_answer(context, selector)


@CHECKS.check("answer/preferences", "The preferences ask for these every ten seconds.", "methods.md", profile="preferences")
def preferences_answers(context: DaemonContext) -> None:
    for selector in KELDANECTL:
        expect_answer(context, selector)


@CHECKS.check("answer/full", "Every method that returns a value answers, with its kind.", "methods.md", profile="full")
def full_answers(context: DaemonContext) -> None:
    for selector in FULL:
        expect_answer(context, selector)


@CHECKS.check("answer/wrong-kinds", "A daemon that ends for an argument of another kind can be ended by anybody.",
              "methods.md")
def wrong_kinds(context: DaemonContext) -> None:
    for argument in (5, True, 1.5, b"bytes", [SOME_FILE], {"path": SOME_FILE}, "", "relative/path", "/a\0b"):
        with context.link() as link:
            value = link.ask(LOOK_UP, argument, 0, codes="@c")
            expect(value is None, f"{argument!r} is no absolute path, and its node is {kind(value)}")
            expect_in_step(context, link, f"After a question about {argument!r}")


@CHECKS.check("answer/senders-codes", "A request carries its sender's type codes; a number of another width means the same.",
              "values.md")
def senders_codes(context: DaemonContext) -> None:
    with context.link() as link:
        for code, number in (("i", 0), ("q", 0), ("C", 0), ("d", 0.0), ("B", False)):
            node = link.ask(LOOK_UP, SOME_FILE, number, codes="@" + code)
            expect(isinstance(node, dict), f"the argument with the code {code} was not understood")


@CHECKS.check("answer/arguments", "Arguments that are missing read as absent, zero or false; more than there are count for "
              "nothing.", "values.md")
def arguments(context: DaemonContext) -> None:
    with context.link() as link:
        node = link.ask(LOOK_UP, SOME_FOLDER, codes="@", returns="@")
        expect(isinstance(node, dict), "without its second argument, the first one was not understood")
        node = link.ask(LOOK_UP, SOME_FOLDER, 0, 5, codes="@cI", returns="@")
        expect(isinstance(node, dict), "with one argument too many, the others were not understood")
        expect_in_step(context, link, "After requests with other numbers of arguments")


@CHECKS.check("answer/profile", "A profile key without a value is answered absent, not with an empty text.", "methods.md",
              profile="keldanectl")
def profile(context: DaemonContext) -> None:
    with context.link() as link:
        value = link.ask("stringValueForProfileKey:", "KeldaneConformanceNobodySetsThis")
        expect(value is None, f"a key that nobody has set has the value {value!r}")
        expect_in_step(context, link, "After a question for the profile")


@CHECKS.check("answer/restores", "A job that does not exist has the status 0.", "methods.md", profile="full")
def restores(context: DaemonContext) -> None:
    with context.link() as link:
        status = link.ask("getRestoreJobStatus:", 4_000_000_000)
        expect(status == 0, f"the status of a job that nobody started is {status}")


@CHECKS.check("answer/users", "A user's number has a name, a name is answered as it is.", "methods.md", profile="full")
def users(context: DaemonContext) -> None:
    with context.link() as link:
        name = link.ask("mappedUserAsString:", 0)
        expect(name == "root", f"the user 0 is called {name!r}")
        expect(link.ask("mappedUserAsString:", "somebody") == "somebody", "a name was changed")
        expect(link.ask("mappedUserAsString:", ["nobody"]) is None, "an array has a user's name")


@CHECKS.check("answer/colours", "Each path of the array has one colour, in the same order; what is no path has 0.",
              "flags.md", profile="full")
def colours(context: DaemonContext) -> None:
    with context.link() as link:
        known = [context.node(link, path).get("backupColor") for path in (SOME_FILE, SOME_FOLDER)]
        answer = link.ask("backupColorsForFiles:", [SOME_FILE, 5, SOME_FOLDER, "relative"])
        expect(answer == [known[0], 0, known[1], 0], f"the colours are {answer}, by the nodes {known}")
