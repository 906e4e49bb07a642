"""The messages that a client sends."""

from __future__ import annotations

from .. import reference
from ..report import Skip, expect
from .context import CHECKS, ClientContext


@CHECKS.check("request/frames", "A daemon passes over what is no request, and the client waits for ever.", "frame.md",
              profile="basic")
def frames(context: ClientContext) -> None:
    with context.daemon() as daemon:
        context.ask()
        expect(not daemon.problems, " ".join(daemon.problems))
        expect(daemon.frames, "the client has asked nothing")


@CHECKS.check("request/table", "Selectors, order of arguments and type codes are the protocol.", "methods.md", profile="basic")
def table(context: ClientContext) -> None:
    with context.daemon() as daemon:
        context.ask()
        for frame in daemon.frames:
            width, returns, selector, _, *pairs = frame.value
            expect(selector in reference.signatures(), f"there is no method {selector}")
            wanted = reference.signatures()[selector]
            expect((returns, "".join(pairs[::2])) == wanted, f"{selector} was sent with the codes {returns} {pairs[::2]}")
            expect(width == reference.widths()[returns], f"{selector} was sent with the width {width}")


@CHECKS.check("request/booleans", "A number for the code c is an integer; not every daemon takes a boolean.", "values.md",
              profile="basic")
def booleans(context: ClientContext) -> None:
    with context.daemon() as daemon:
        context.ask()
        for frame in daemon.frames:
            for code, value in zip(frame.value[4::2], frame.value[5::2]):
                expect(code not in "csilqCSILQ" or type(value) is int,  # pylint: disable=unidiomatic-typecheck
                       f"{frame.value[2]} was sent with {value!r} for the code {code}")


@CHECKS.check("request/one-at-a-time", "Answers belong to requests by their order, so a client waits for each.",
              "connection.md", profile="basic")
def one_at_a_time(context: ClientContext) -> None:
    with context.daemon() as daemon:
        result = context.ask()
        expect(len(daemon.connections) == 1, f"{len(daemon.connections)} connections were made for one command")
        expect(result.returncode == 0, f"the client has ended with the status {result.returncode}: {result.stderr}")


@CHECKS.check("request/names", "A name is text; nothing in it is a sign for anything.", "values.md", profile="basic")
def names(context: ClientContext) -> None:
    if "{file}" not in " ".join([*context.command, *context.asking()]):
        raise Skip("the command does not name {file}")
    before = context.places["file"]
    try:
        for name in ("with blank", "50%", "quote\"'", "emoji 😀", "ÄÖÜ"):
            context.places["file"] = context.make(name)
            with context.daemon() as daemon:
                context.ask()
                asked = [arguments[0] for _, arguments in daemon.calls() if arguments]
                expect(context.places["file"] in asked, f"the name {name!r} was sent as {asked[:1]}")
    finally:
        context.places["file"] = before
