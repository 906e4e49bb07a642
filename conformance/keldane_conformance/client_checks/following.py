"""Clients that follow the state for as long as they run."""

from __future__ import annotations

from typing import Any

from ..frames import RESPONSE, frame, response
from ..report import expect
from .context import CHECKS, ClientContext
from .played import PlayedDaemon, Turn, callback
from .world import World

# In seconds. A client asks every two seconds, and tries every second to connect again.
SOON = 30.0


def wait_for_questions(daemon: PlayedDaemon, count: int, what: str) -> None:
    """Fails unless the client has asked for the state `count` times, or has asked to be told of it."""
    def asked() -> bool:
        selectors = daemon.selectors()
        return "daemonState" in selectors and (selectors.count("daemonState") >= count or "setStateHandler" in selectors)
    expect(daemon.wait(asked, SOON), f"{what}: the state was asked for {daemon.selectors().count('daemonState')} times")


def follows(name: str, why: str, page: str) -> Any:
    """Registers a check for each of the two kinds of client that follow the state."""
    def note(run: Any) -> Any:
        for profile in ("keldanectl", "preferences"):
            CHECKS.check(f"follow/{name}", why, page, profile=profile)(run)
        return run
    return note


@follows("asks", "What is shown is as old as the last answer.", "state.md")
def asks(context: ClientContext) -> None:
    with context.daemon() as daemon, context.follower():
        wait_for_questions(daemon, 3, "A client that follows the state")
        expect(not daemon.problems, " ".join(daemon.problems))


@follows("reconnects", "A daemon is started anew when its package is.", "connection.md")
def reconnects(context: ClientContext) -> None:
    with context.daemon() as daemon, context.follower():
        wait_for_questions(daemon, 1, "A client that follows the state")
        daemon.stop()
        for what in ("again", "once more"):
            with PlayedDaemon(context.socket, World()) as next_one:
                wait_for_questions(next_one, 1, f"After the daemon was started {what}")


@follows("waits", "A client may be started before the daemon is.", "connection.md")
def waits(context: ClientContext) -> None:
    with context.follower(), PlayedDaemon(context.socket, World()) as daemon:
        wait_for_questions(daemon, 1, "A daemon that was started after the client")


@follows("strange-states", "A state may lack keys, have values of other kinds, or be none.", "state.md")
def strange_states(context: ClientContext) -> None:
    states: list[Any] = [None, {}, 5, "text", [], {"statusString": 5, "pendingFileCount": "many", "paused": []}]

    class Strange:
        """Gives one answer after the other."""

        number = 0

        def __call__(self, turn: Turn) -> list[bytes]:
            if turn.selector != "daemonState":
                return [turn.answer()]
            self.number += 1
            return [response(states[self.number % len(states)])]

    with context.daemon(Strange()) as daemon, context.follower():
        wait_for_questions(daemon, 4, "After strange states")


@follows("strange-frames", "Calls, noise and frames of unknown types do not end a client that follows the state.",
         "connection.md")
def strange_frames(context: ClientContext) -> None:
    def noisy(turn: Turn) -> list[bytes]:
        return [callback("stateChanged:", 5), callback("callOfTomorrow:"), b"!" * 36, turn.answer(), frame(RESPONSE, b"\xff")]
    with context.daemon(noisy) as daemon, context.follower():
        wait_for_questions(daemon, 3, "Among strange frames")
