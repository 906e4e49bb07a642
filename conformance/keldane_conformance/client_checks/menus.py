"""Menus: the effect of each flag, and the calls that the commands send."""

from __future__ import annotations

from itertools import product

from .. import menu
from ..frames import response
from ..report import expect
from .context import CHECKS, ClientContext
from .played import Turn

PRIORITIES = (0, menu.PRIORITY_ENABLED, menu.PRIORITY_VISIBLE, menu.PRIORITY_OFFER,
              menu.PRIORITY_OFFER | menu.PRIORITY_CHECKED)
ITEMS = tuple(sum(bits) for bits in product((0, menu.ENABLED), (0, menu.CHECKED), (0, menu.GRAYED)))
QUESTIONS = {"dictionaryForPath:withDirSizes:", "getFileTypeToggle:"}


def offers(context: ClientContext, *paths: str) -> list[str] | None:
    """The commands that the menu of a selection offers."""
    return menu.shown(context.run("show", *paths).stdout)[0]


@CHECKS.check("menu/flags", "The simple flags alone decide what a menu offers.", "flags.md", profile="menu")
def flags(context: ClientContext) -> None:
    for item, priority in product(ITEMS, PRIORITIES):
        for path in (context.file, context.folder):
            with context.daemon(flags=item | priority):
                shown = offers(context, path)
            wanted = menu.expected(item | priority, path == context.folder)
            expect(shown == wanted, f"with the flags {item | priority:#x} of a {'folder' if path == context.folder else 'file'}"
                                    f" the menu shows {shown} and not {wanted}")


@CHECKS.check("menu/backup-flags", "The backup flags, the colour and the state decide nothing.", "flags.md", profile="menu")
def backup_flags(context: ClientContext) -> None:
    for bits in (0, 0x7FFFFFFF, 0xFFFFFFFF):
        def other(turn: Turn, bits: int = bits) -> list[bytes]:
            if isinstance(turn.value, dict):
                turn.value = {**turn.value, "backupFlags": bits, "backupColor": bits & 7}
            return [turn.answer()]
        with context.daemon(other):
            shown = offers(context, context.file)
        expect(shown == menu.expected(menu.ENABLED | menu.PRIORITY_OFFER, False), f"with the backup flags {bits:#x} the menu "
                                                                                  f"shows {shown}")


@CHECKS.check("menu/status", "The menu shows the daemon's own words.", "node.md", profile="menu")
def status(context: ClientContext) -> None:
    for text in ("Backed up", "Ünïcode 😀 %s %d %@", "x" * 500):
        def say(turn: Turn, text: str = text) -> list[bytes]:
            if isinstance(turn.value, dict):
                turn.value = {**turn.value, "state": text}
            return [turn.answer()]
        with context.daemon(say):
            shown = menu.shown(context.run("show", context.file).stdout)[1]
        expect(f"Status: {text}" in shown, f"the state {text!r:.40} is shown as {shown!r:.120}")


@CHECKS.check("menu/several", "Of several items the menu offers what fits any of them, and preferring only what fits all.",
              "flags.md", profile="menu")
def several(context: ClientContext) -> None:
    with context.daemon(rules={context.file: True}):
        shown = offers(context, context.file, context.other)
    expect(shown == list(menu.COMMANDS), f"one file is included and one is not, and the menu shows {shown}")
    with context.daemon(preferred={context.file}):
        shown = offers(context, context.file, context.other)
    expect(shown == [menu.BACK_UP, menu.PREFERENCES], f"one of two files is preferred, and the menu shows {shown}")
    with context.daemon():
        shown = offers(context, context.file, context.folder)
    expect(menu.ASAP not in (shown or []), "the menu offers to prefer a folder")


@CHECKS.check("menu/one-barred", "One barred item among several leaves no menu.", "flags.md", profile="menu")
def one_barred(context: ClientContext) -> None:
    def bar(turn: Turn) -> list[bytes]:
        if isinstance(turn.value, dict) and turn.value.get("path") == context.other:
            turn.value["simpleFlags"] = 0
        return [turn.answer()]
    with context.daemon(bar):
        expect(offers(context, context.file, context.other) is None, "one of two items is barred, and there is a menu")


@CHECKS.check("menu/absent", "Of what the daemon does not know, the menu shows what needs no answer.", "node.md", profile="menu")
def absent(context: ClientContext) -> None:
    with context.daemon(lambda turn: [response(None)] if turn.wants_answer else []):
        shown = offers(context, context.file)
    expect(shown == [menu.PREFERENCES], f"the daemon knows nothing, and the menu shows {shown}")


@CHECKS.check("menu/questions", "A menu asks for nodes without folder sizes, which take time, and for types.", "methods.md",
              profile="menu")
def questions(context: ClientContext) -> None:
    with context.daemon() as daemon:
        context.run("show", context.file, context.folder)
        calls = daemon.calls()
    expect({selector for selector, _ in calls} <= QUESTIONS, f"the menu asks {sorted({selector for selector, _ in calls})}")
    looked_up = [arguments for selector, arguments in calls if selector == "dictionaryForPath:withDirSizes:"]
    expect(all(arguments[1] == 0 for arguments in looked_up), "the menu asks for the sizes of folders")
    expect([path for path, _ in looked_up] == sorted((path for path, _ in looked_up),
                                                     key=[context.file, context.folder].index),
           "the items are not asked about in the order of the selection")


def chosen(context: ClientContext, word: str, *paths: str) -> list[tuple[str, list[object]]]:
    """The calls that choosing a command sends, without the questions."""
    with context.daemon() as daemon:
        context.run("choose", word, *paths)
        return [call for call in daemon.calls() if call[0] not in QUESTIONS]


@CHECKS.check("menu/commands", "Each command is one call for each item, in the order of the selection.", "methods.md",
              profile="menu")
def commands(context: ClientContext) -> None:
    paths = [context.other, context.file]
    for word, selector in (("backup", "addFileToBackup:"), ("exclude", "removeFileFromBackup:")):
        word_flags = menu.CHECKED if word == "exclude" else 0
        with context.daemon(flags=menu.ENABLED | word_flags) as daemon:
            context.run("choose", word, *paths)
            sent = [call for call in daemon.calls() if call[0] not in QUESTIONS]
        expect(sent == [(selector, [path]) for path in paths], f"{word} sends {sent}")


@CHECKS.check("menu/as-soon-as-possible", "A preference is for what is included, so the rule is sent first.", "methods.md",
              profile="menu")
def as_soon_as_possible(context: ClientContext) -> None:
    sent = chosen(context, "asap", context.other, context.file)
    expect(sent == [(selector, [path]) for path in (context.other, context.file)
                    for selector in ("addFileToBackup:", "setPriorityBackup:")], f"asap sends {sent}")
