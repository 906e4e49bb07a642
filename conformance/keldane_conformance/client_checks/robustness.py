"""Faults of a daemon that a client must survive. It may show nothing, or end with an error. A signal may not end it, and
it may not hang."""

from __future__ import annotations

import contextlib
import os
import socket
import struct
import time
from typing import Any

from .. import reference
from ..frames import MARKER, RESPONSE, frame, response
from ..report import expect
from .context import CHECKS, ClientContext
from .played import Turn, Twist, callback

MOST_MEMORY = 1 << 30  # bytes that a client may use for an answer of three bytes

WRONG: tuple[Any, ...] = ("text", 5, -1, 1.5, True, b"bytes", ["array"], {"key": "value"}, 2**64 - 1)


def expect_same(context: ClientContext, twist: Twist, what: str, greeting: bytes = b"") -> None:
    """Fails unless the client prints the same as with a daemon that does not do this."""
    wanted = context.plain_output()
    with context.daemon(twist, greeting):
        output = context.ask().stdout
    expect(output == wanted, f"{what}: the client prints {output!r:.300} and not {wanted!r:.300}")


def expect_survival(context: ClientContext, twist: Twist, **settings: Any) -> None:
    """Fails when a signal ends the client, or when it does not end."""
    with context.daemon(twist, **settings):
        context.ask()


def answering(value: Any) -> Twist:
    """Answers every question with one value."""
    return lambda turn: [response(value)] if turn.wants_answer else []


@CHECKS.check("client/split-answers", "A stream has no borders: an answer may come byte by byte.", "frame.md", profile="basic")
def split_answers(context: ClientContext) -> None:
    expect_same(context, lambda turn: [bytes([byte]) for byte in turn.answer()], "When answers come byte by byte")


@CHECKS.check("client/wrong-marker", "A reader steps over 36 bytes that are no marker.", "connection.md", profile="basic")
def wrong_marker(context: ClientContext) -> None:
    def noisy(turn: Turn) -> list[bytes]:
        return [b"?" * 36 + turn.answer()] if turn.wants_answer else []
    expect_same(context, noisy, "After 36 bytes of noise")


@CHECKS.check("client/callbacks", "A daemon may call, also what this client does not know. A call has no answer.",
              "callbacks.md", profile="basic")
def callbacks(context: ClientContext) -> None:
    calls = (callback("stateChanged:", {}) + callback("callOfTomorrow:", 5) + callback("alertRaised:", "no dictionary")
             + frame(1, b"") + frame(1, b"bplist00"))
    expect_same(context, lambda turn: [calls, turn.answer()], "When the daemon calls meanwhile", greeting=calls)


@CHECKS.check("client/unknown-keys", "A daemon of tomorrow tells more.", "versioning.md", profile="basic")
def unknown_keys(context: ClientContext) -> None:
    def richer(turn: Turn) -> list[bytes]:
        if isinstance(turn.value, dict) and "path" in turn.value:
            turn.value = {**turn.value, "keyOfTomorrow": {"deep": [1, 2, {"deeper": b"x"}]}, "another": 1.5}
        return [turn.answer()]
    expect_same(context, richer, "With keys that nobody knows")


@CHECKS.check("client/unknown-flags", "A daemon of tomorrow sets other flags.", "versioning.md", profile="menu")
def unknown_flags(context: ClientContext) -> None:
    def richer(turn: Turn) -> list[bytes]:
        if isinstance(turn.value, dict) and "simpleFlags" in turn.value:
            turn.value["simpleFlags"] |= 0x7FF80000 | 0x0000F8F8
        return [turn.answer()]
    expect_same(context, richer, "With simple flags that nobody knows")


@CHECKS.check("client/other-formats", "A reader takes every published form of property list.", "frame.md", profile="full")
def other_formats(context: ClientContext) -> None:
    expect_same(context, lambda turn: [response(turn.value, xml=True)] if turn.wants_answer else [], "When answers are XML")


@CHECKS.check("client/missing-keys", "What is missing reads as 0, false or absent.", "node.md", profile="basic")
def missing_keys(context: ClientContext) -> None:
    for key in (None, *(row["key"] for row in reference.protocol()["node"] if row["required"])):
        def without(turn: Turn, key: str | None = key) -> list[bytes]:
            if isinstance(turn.value, dict):
                turn.value = {} if key is None else {name: each for name, each in turn.value.items() if name != key}
            return [turn.answer()]
        expect_survival(context, without)


@CHECKS.check("client/wrong-types", "A value of another kind reads as 0, false or absent.", "values.md", profile="basic")
def wrong_types(context: ClientContext) -> None:
    for wrong in WRONG:
        def spoil(turn: Turn, wrong: Any = wrong) -> list[bytes]:
            if isinstance(turn.value, dict):
                turn.value = {key: wrong for key in turn.value}
            return [turn.answer()]
        expect_survival(context, spoil)
        expect_survival(context, answering(wrong))


@CHECKS.check("client/absent-answers", "An answer may be absent.", "values.md", profile="basic")
def absent_answers(context: ClientContext) -> None:
    expect_survival(context, answering(None))


@CHECKS.check("client/no-property-list", "A payload that cannot be read is an absent answer.", "connection.md", profile="basic")
def no_property_list(context: ClientContext) -> None:
    for payload in (b"bplist00", b"bplist00" + b"\xff" * 40, b"\0" * 100, b"<plist><array>", b"{a=;}"):
        expect_survival(context, lambda turn, payload=payload: [frame(RESPONSE, payload)] if turn.wants_answer else [])


@CHECKS.check("client/stray-answers", "Answers that nobody asked for do no harm.", "connection.md", profile="basic")
def stray_answers(context: ClientContext) -> None:
    expect_survival(context, lambda turn: [turn.answer()] * 3 if turn.wants_answer else [],
                    greeting=response({"fileName": 5}) + response(None))


@CHECKS.check("client/unknown-types", "A frame of an unknown type ends no client.", "connection.md", profile="basic")
def unknown_types(context: ClientContext) -> None:
    def odd(turn: Turn) -> list[bytes]:
        return [frame(7, b"what") + turn.answer()]
    expect_survival(context, odd)
    expect_survival(context, lambda turn: [frame(-1, b""), turn.answer()], greeting=frame(0, b"x" * 100))


@CHECKS.check("client/hang-up", "A daemon may end at any moment.", "connection.md", profile="basic")
def hang_up(context: ClientContext) -> None:
    with context.daemon(hangs_up=True):
        context.ask()
    for count in (0, 1, 3):
        expect_survival(context, lambda turn, count=count: [turn.answer()] if turn.number < count else None)


@CHECKS.check("client/cut-answers", "A daemon may end within an answer.", "connection.md", profile="basic")
def cut_answers(context: ClientContext) -> None:
    for length in (1, 35, 36, 40, 43, 44, 60):
        cut_short(context, length)


def cut_short(context: ClientContext, length: int) -> None:
    """Plays a daemon that sends this many bytes of an answer and then leaves."""
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    with contextlib.suppress(FileNotFoundError):
        os.unlink(context.socket)
    listener.bind(context.socket)
    listener.listen(4)
    listener.settimeout(context.seconds)
    with listener, context.start(*context.asking()) as process:
        try:
            with contextlib.suppress(OSError):
                peer, _ = listener.accept()
                with peer:
                    peer.settimeout(context.seconds)
                    peer.recv(1 << 16)
                    peer.sendall(response({"state": "x" * 100})[:length])
            listener.close()
            os.unlink(context.socket)
            _, errors = process.communicate(timeout=context.seconds)
        finally:
            process.kill()
    context.expect_no_crash(process.returncode, errors)


@CHECKS.check("client/huge-length", "A length of 4 GiB takes no memory before the bytes are there.", "connection.md",
              profile="basic")
def huge_length(context: ClientContext) -> None:
    def huge(turn: Turn) -> list[bytes] | None:
        return [MARKER + struct.pack("<iI", RESPONSE, 0xFFFFFFFF) + b"few"] if turn.number == 0 and turn.wants_answer else None
    with context.daemon(huge) as daemon:
        with context.start(*context.asking()) as process:
            daemon.wait(lambda: bool(daemon.selectors()), context.seconds)
            end = time.monotonic() + 3  # a slow machine needs a while to provide so much memory
            while (memory := resident(process.pid)) < MOST_MEMORY and time.monotonic() < end:
                time.sleep(0.05)
            daemon.stop()
            _, errors = process.communicate(timeout=context.seconds)
    context.expect_no_crash(process.returncode, errors)
    expect(memory < MOST_MEMORY, f"the client holds {memory >> 20} MiB for an answer of three bytes")


def resident(process: int) -> int:
    """The bytes of memory that a process holds; 0 when it has ended."""
    with contextlib.suppress(OSError, IndexError, ValueError):
        with open(f"/proc/{process}/statm", encoding="ascii") as stream:
            return int(stream.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")
    return 0


@CHECKS.check("client/silence", "A daemon may take its time. Whoever waits can be told to end.", "connection.md", profile="basic")
def silence(context: ClientContext) -> None:
    with context.daemon(lambda turn: []) as daemon, context.start(*context.asking()) as process:
        try:
            expect(daemon.wait(lambda: bool(daemon.selectors()), context.seconds), "the client has asked nothing")
            time.sleep(0.5)
            if process.poll() is None:
                process.terminate()
                process.communicate(timeout=context.seconds)
                return
            context.expect_no_crash(process.returncode, process.stderr.read() if process.stderr else "")
        finally:
            process.kill()


@CHECKS.check("client/no-daemon", "Without a daemon, a client ends or shows what needs none.", "connection.md", profile="basic")
def no_daemon(context: ClientContext) -> None:
    context.ask()
    dead = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    dead.bind(context.socket)  # nobody listens there
    dead.close()
    try:
        context.ask()
    finally:
        os.unlink(context.socket)

