"""The commands of keldanectl: the calls that each makes, its question for the result, and its exit status."""

from __future__ import annotations

from typing import Any

from .. import reference
from ..frames import response
from ..report import expect
from .context import CHECKS, ClientContext
from .played import Turn

DONE, NOT_TAKEN, UNREACHABLE, DEADLINE = 0, 1, 3, 4
Call = tuple[str, list[Any]]


# The methods with an answer that change something, and for each the method without an answer that does the same.
CHANGES = {"excludeFileFromBackup:": "removeFileFromBackup:"}


def told(calls: list[Call]) -> list[Call]:
    """The calls that change something. Two methods that do the same count as one."""
    return [(CHANGES.get(selector, selector), arguments) for selector, arguments in calls
            if selector in CHANGES or reference.signatures()[selector][0] == "v"]


def expectations(context: ClientContext) -> list[tuple[list[str], list[Call]]]:
    """Each command, and the calls that it must make."""
    path, types = context.file, reference.protocol()["typeToggles"]
    return [
        (["add", path], [("addFileToBackup:", [path])]),
        (["remove", path], [("removeFileFromBackup:", [path])]),
        (["asap", path], [("addFileToBackup:", [path]), ("setPriorityBackup:", [path])]),
        (["type", "txt", "backup"], [("setFileTypeToggle:toggle:", [".txt", types["backUp"]])]),
        (["type", ".txt", "exclude"], [("setFileTypeToggle:toggle:", [".txt", types["exclude"]])]),
        (["pause", "5"], [("setPausedMinutes:", [5])]),
        (["resume"], [("setPausedMinutes:", [0]), ("setRecoverMode:", [0])]),
        (["automatic", "off"], [("setAutomaticMode:", [0])]),
        (["low-priority", "on"], [("setLowerPriorityMode:", [1])]),
        (["profile", "set", "Nickname", "böx"], [("setValueForProfileKey:withString:", ["Nickname", "böx"])]),
    ]


@CHECKS.check("ctl/commands", "Each command sends its calls and then asks, so that what it says has happened.", "methods.md",
              profile="keldanectl")
def commands(context: ClientContext) -> None:
    for words, wanted in expectations(context):
        with context.daemon() as daemon:
            result = context.run(*words)
            calls = daemon.calls()
        expect(told(calls) == wanted, f"{' '.join(words)} sends {told(calls)} and not {wanted}")
        expect(reference.signatures()[calls[-1][0]][0] != "v", f"{' '.join(words)} does not ask what came of it")
        expect(result.returncode == DONE, f"{' '.join(words)} ends with {result.returncode}: {result.stderr}")


@CHECKS.check("ctl/refused", "A command that was not taken says so.", "rules.md", profile="keldanectl")
def refused(context: ClientContext) -> None:
    for words, _ in expectations(context):
        if words == ["resume"]:
            continue  # nothing is paused, so nothing can be refused
        with context.daemon(refuses=True):
            result = context.run(*words)
        expect(result.returncode == NOT_TAKEN, f"{' '.join(words)} was refused and ends with {result.returncode}")
        expect(result.stderr, f"{' '.join(words)} was refused, and no sentence says so")


@CHECKS.check("ctl/questions", "What a command asks for, it prints.", "methods.md", profile="keldanectl")
def questions(context: ClientContext) -> None:
    for words, selectors, shown in (
            (["ls", context.file], {"dictionaryForPath:withDirSizes:"}, "Played"),
            (["ls", context.folder], {"childrenDictionariesForPath:"}, "inner.txt"),
            (["tree", context.files], {"childrenDictionariesForPath:"}, "inner.txt"),
            (["versions", context.file], {"dictionaryForPath:"}, "17"),
            (["profile", "get", "SkinId"], {"stringValueForProfileKey:"}, "plain"),
            (["type", "txt", "show"], {"getFileTypeToggle:"}, "none"),
            (["status"], {"daemonState", "userEmail", "serverURL", "computerNumber", "pausedMinutes", "automaticMode"},
             "ann@example.org")):
        with context.daemon() as daemon:
            result = context.run(*words)
            asked = {selector for selector, _ in daemon.calls()}
        expect(selectors <= asked, f"{' '.join(words)} does not ask {sorted(selectors - asked)}")
        expect(not told([(selector, []) for selector in asked]), f"{' '.join(words)} changes something")
        expect(shown in result.stdout, f"{' '.join(words)} prints {result.stdout!r:.200} without {shown!r}")


@CHECKS.check("ctl/unknown-path", "Of what the daemon knows nothing, a command says so.", "node.md", profile="keldanectl")
def unknown_path(context: ClientContext) -> None:
    for words in (["ls"], ["add"], ["versions"], ["tree"]):
        with context.daemon():
            result = context.run(*words, context.files + "/none")
        expect(result.returncode == NOT_TAKEN and result.stderr, f"{words[0]} of nothing ends with {result.returncode}")


@CHECKS.check("ctl/state", "The state may lack keys, or have others, or be none.", "state.md", profile="keldanectl")
def state(context: ClientContext) -> None:
    known = reference.protocol()["state"]
    for value in (None, {}, 5, "text", [1], {row["key"]: "text" for row in known}, {row["key"]: [] for row in known},
                  {row["key"]: 2**64 - 1 for row in known}, {"keyOfTomorrow": {"deep": [1]}}):
        with context.daemon(answers={"daemonState": value}):
            context.run("status")
            context.run("status", "--json")


@CHECKS.check("ctl/away", "A daemon that cannot be reached has an exit status of its own.", "connection.md",
              profile="keldanectl")
def away(context: ClientContext) -> None:
    for words in (["status"], ["ls", context.file], ["add", context.file], ["pause", "5"]):
        result = context.run(*words)
        expect(result.returncode == UNREACHABLE, f"{words[0]} without a daemon ends with {result.returncode}")


@CHECKS.check("ctl/hang-up", "An answer that did not come is no answer.", "connection.md", profile="keldanectl")
def hang_up(context: ClientContext) -> None:
    for words in (["ls", context.file], ["add", context.file], ["pause", "5"], ["type", "txt", "show"]):
        with context.daemon(lambda turn: None if turn.wants_answer else []):
            result = context.run(*words)
        expect(result.returncode == UNREACHABLE, f"{words[0]} with a daemon that hangs up ends with {result.returncode}")


@CHECKS.check("ctl/deadline", "A daemon that does not answer has an exit status of its own.", "connection.md",
              profile="keldanectl")
def deadline(context: ClientContext) -> None:
    with context.daemon(lambda turn: []):
        result = context.run("--deadline", "1", "ls", context.file)
    expect(result.returncode == DEADLINE, f"after its deadline the client ends with {result.returncode}")


@CHECKS.check("ctl/listings", "Entries that are no dictionaries, or lie elsewhere, are nobody's.", "node.md",
              profile="keldanectl")
def listings(context: ClientContext) -> None:
    entries = [5, "text", {}, {"fileName": "../up"}, {"fileName": ""}, {"fileName": "a", "path": "/elsewhere/a"},
               {"fileName": "loop", "path": context.folder, "isDirectory": True}]

    def strange(turn: Turn) -> list[bytes]:
        return [response(entries)] if turn.selector == "childrenDictionariesForPath:" else [turn.answer()]
    for words in (["ls"], ["ls", "-R"], ["tree"], ["select"]):
        with context.daemon(strange):
            context.run(*words, context.folder)
