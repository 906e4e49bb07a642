"""Limits: messages that a daemon must accept, and others that it must survive."""

from __future__ import annotations

import contextlib
import struct

from .. import reference
from ..frames import HEADER, MARKER, Gone, Link, Silent, request
from ..report import Failure, expect
from .context import CHECKS, NO_FILE, SOME_FOLDER, DaemonContext, expect_in_step

LIMITS = reference.protocol()["limits"]


@CHECKS.check("limits/many-paths", "Somebody marks 10,000 files with long paths.", "connection.md", profile="full")
def many_paths(context: DaemonContext) -> None:
    paths = [NO_FILE + "/" + f"{number:05}" + "x" * 750 for number in range(10_000)]
    with context.link() as link:
        link.seconds = 60
        colours = link.ask("backupColorsForFiles:", paths)
        expect(colours == [0] * len(paths), "10,000 paths have not 10,000 colours")


@CHECKS.check("limits/too-long", "A length beyond the limit ends the connection at once, before memory is taken for it.",
              "connection.md", profile="full")
def too_long(context: DaemonContext) -> None:
    for length in (LIMITS["longestRequest"] + 1, 0x7FFFFFFF, 0xFFFFFFFF):
        with context.link() as link:
            link.send(MARKER + struct.pack("<iI", 1, length))
            expect(link.ended(context.seconds), f"a request of {length} bytes was announced, and the connection stays")


@CHECKS.check("limits/too-many-paths", "A list that is too long is not carried out in part.", "connection.md", profile="full")
def too_many_paths(context: DaemonContext) -> None:
    with context.link() as link:
        link.seconds = 60
        answer = link.ask("backupColorsForFiles:", [NO_FILE] * (LIMITS["pathsInAList"] + 1))
        expect(answer is None, f"a list of {LIMITS['pathsInAList'] + 1} paths was carried out")
        expect_in_step(context, link, "After a list that was too long")


@CHECKS.check("limits/nesting", "Containers in containers end no daemon.", "values.md", profile="full")
def nesting(context: DaemonContext) -> None:
    # The bytes are made by hand, because no writer nests so deep: arrays of one array each, and their offsets.
    depth = 60_000
    objects = b"".join(b"\xa1" + struct.pack(">I", number + 1) for number in range(depth)) + b"\xa0"
    offsets = b"".join(struct.pack(">I", 8 + 5 * number) for number in range(depth + 1))
    trailer = bytes(6) + bytes([4, 4]) + struct.pack(">QQQ", depth + 1, 0, 8 + len(objects))
    payload = b"bplist00" + objects + offsets + trailer
    with context.link() as link:
        link.send(MARKER + struct.pack("<iI", 1, len(payload)) + payload)
        expect_in_step(context, link, f"After {depth} arrays in one another")


@CHECKS.check("limits/slow-reader", "Who asks and does not read holds up nobody else.", "connection.md", profile="full")
def slow_reader(context: DaemonContext) -> None:
    question = request("childrenDictionariesForPath:", SOME_FOLDER)
    with contextlib.ExitStack() as stack:
        for _ in range(4):
            link = stack.enter_context(context.link())
            link.socket.settimeout(0.2)
            with contextlib.suppress(TimeoutError, OSError):
                for _ in range(1000):  # until the daemon stops reading, because nobody reads its answers
                    link.socket.sendall(question)
        with context.link() as other:
            expect_in_step(context, other, "While four clients do not read")


@CHECKS.check("limits/slow-writer", "Who begins a message and does not end it holds up nobody else.", "connection.md",
              profile="full")
def slow_writer(context: DaemonContext) -> None:
    data = request("daemonState")
    with contextlib.ExitStack() as stack:
        for cut in (1, 20, 36, 40, HEADER, len(data) - 1):
            stack.enter_context(context.link()).send(data[:cut])
        with context.link() as other:
            expect_in_step(context, other, "While six clients have begun a message")


@CHECKS.check("limits/connections", "Every window of a file manager may have a connection.", "connection.md", profile="full")
def connections(context: DaemonContext) -> None:
    with contextlib.ExitStack() as stack:
        links: list[Link] = [stack.enter_context(context.link()) for _ in range(64)]
        for number, link in enumerate(links, 1):
            try:
                expect(isinstance(link.ask("daemonState"), dict), f"connection {number} of 64 has no state")
            except (Gone, Silent) as error:
                raise Failure(f"connection {number} of 64 is not served: {error}") from error
