"""Trees in windows: the questions of a client, and listings that it must survive."""

from __future__ import annotations

from typing import Any

from ..frames import response
from ..report import expect
from .context import CHECKS, ClientContext
from .following import SOON, wait_for_questions
from .played import Turn

LISTING, ONE = "childrenDictionariesForPath:", "dictionaryForPath:"


@CHECKS.check("tree/asks", "A tree shows the daemon's word for each row, and asks for a folder when it is opened.", "node.md",
              profile="preferences")
def asks(context: ClientContext) -> None:
    with context.daemon() as daemon, context.follower():
        expect(daemon.wait(lambda: {LISTING, ONE} <= set(daemon.selectors()), SOON),
               f"the client asks {sorted(set(daemon.selectors()))} and for no tree")
        expect(not daemon.problems, " ".join(daemon.problems))


@CHECKS.check("tree/changes-nothing", "To show a tree changes no rule.", "methods.md", profile="preferences")
def changes_nothing(context: ClientContext) -> None:
    with context.daemon() as daemon, context.follower():
        wait_for_questions(daemon, 3, "A client that shows a tree")
        sent = {selector for selector in daemon.selectors() if ":" in selector}
    expect(sent <= {LISTING, ONE, "dictionaryForPath:withDirSizes:", "stringValueForProfileKey:", "getFileTypeToggle:"},
           f"the client sends {sorted(sent)} by itself")


@CHECKS.check("tree/strange-listings", "Entries may lack keys, be no dictionaries, lie elsewhere or be listed twice.", "node.md",
              profile="preferences")
def strange_listings(context: ClientContext) -> None:
    loop = {"fileName": "loop", "path": context.place, "isDirectory": True, "simpleFlags": 7}
    listings: list[Any] = [None, 5, "text", [], [5, "text", {}], [loop, loop],
                           [{"fileName": 5, "isDirectory": "yes", "simpleFlags": [], "backupDate": "never"}],
                           [{"fileName": "../up", "path": "/elsewhere"}, {"fileName": ""}, {"fileName": "a\0b"}]]

    class Strange:
        """Gives one listing after the other."""

        number = 0

        def __call__(self, turn: Turn) -> list[bytes]:
            if turn.selector != LISTING:
                return [turn.answer()]
            self.number += 1
            return [response(listings[self.number % len(listings)])]

    with context.daemon(Strange()) as daemon, context.follower():
        expect(daemon.wait(lambda: LISTING in daemon.selectors(), SOON), "the client asks for no listing")
        wait_for_questions(daemon, 4, "After strange listings")


@CHECKS.check("tree/strange-nodes", "A row's node may be absent, or be something else.", "node.md", profile="preferences")
def strange_nodes(context: ClientContext) -> None:
    nodes: list[Any] = [None, 5, {}, {"children": [5, {"children": [{}]}]}, {"isDirectory": [], "state": 5, "size": "x"}]

    class Strange:
        """Gives one node after the other."""

        number = 0

        def __call__(self, turn: Turn) -> list[bytes]:
            if turn.selector != ONE:
                return [turn.answer()]
            self.number += 1
            return [response(nodes[self.number % len(nodes)])]

    with context.daemon(Strange()) as daemon, context.follower():
        expect(daemon.wait(lambda: ONE in daemon.selectors(), SOON), "the client asks for no node")
        wait_for_questions(daemon, 4, "After strange nodes")
