"""Limits of clients: answers that are large or deep."""

from __future__ import annotations

import struct

from ..frames import RESPONSE, frame
from .context import CHECKS, ClientContext
from .played import Turn


def deep_payload(depth: int) -> bytes:
    """The bytes of nested arrays, made by hand, because no writer nests so deep."""
    objects = b"".join(b"\xa1" + struct.pack(">I", number + 1) for number in range(depth)) + b"\xa0"
    offsets = b"".join(struct.pack(">I", 8 + 5 * number) for number in range(depth + 1))
    trailer = bytes(6) + bytes([4, 4]) + struct.pack(">QQQ", depth + 1, 0, 8 + len(objects))
    return b"bplist00" + objects + offsets + trailer


@CHECKS.check("large/nesting", "Containers in containers end no client.", "values.md", profile="full")
def nesting(context: ClientContext) -> None:
    payload = deep_payload(100_000)
    with context.daemon(lambda turn: [frame(RESPONSE, payload)] if turn.wants_answer else []):
        context.ask()


@CHECKS.check("large/texts", "A text may be long.", "values.md", profile="full")
def texts(context: ClientContext) -> None:
    def long(turn: Turn) -> list[bytes]:
        if isinstance(turn.value, dict):
            turn.value = {**turn.value, "state": "x" * (4 << 20)}
        return [turn.answer()]
    with context.daemon(long):
        context.ask()


@CHECKS.check("large/keys", "A dictionary may have many keys.", "values.md", profile="full")
def keys(context: ClientContext) -> None:
    def many(turn: Turn) -> list[bytes]:
        if isinstance(turn.value, dict):
            turn.value = {**turn.value, **{f"key{number}": number for number in range(50_000)}}
        return [turn.answer()]
    with context.daemon(many):
        context.ask()
