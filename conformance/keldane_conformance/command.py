"""The command line of keldane-conformance."""

from __future__ import annotations

import argparse
import os
import shlex
import sys
from typing import Any

from . import reference
from .report import CLIENT_PROFILES, PROFILES, Check, JsonReport, Result, TapReport, run

DESCRIPTION = """Judges a daemon or a client by the protocol. Each check tells why it is made and which page of the
reference says so. Exit status: 0 every check was passed or skipped, 1 a check was failed, 2 usage."""

EPILOG = """A client's COMMAND may hold {socket}, {file}, {folder} and, with --bundle, {bundle}. The profile menu
appends "show PATH..." and "choose backup|exclude|asap PATH..."; the profile keldanectl appends that program's commands;
the profile preferences runs COMMAND as it is and follows it; the profile basic runs COMMAND as it is, once for each
check, and wants it to ask about {file}."""


def parser() -> argparse.ArgumentParser:
    """The parser of the command line's options."""
    top = argparse.ArgumentParser("keldane-conformance", description=DESCRIPTION)
    top.add_argument("--version", action="version", version=f"protocol version {reference.protocol()['version']}")
    sides = top.add_subparsers(dest="side", required=True, metavar="daemon|client")
    for side, what in (("daemon", "judge a daemon by playing clients"), ("client", "judge a client by playing a daemon")):
        sub = sides.add_parser(side, help=what, epilog=EPILOG if side == "client" else None)
        sub.add_argument("--profile", choices=list(PROFILES), action="append", default=[],
                         help="what the program is for; may be repeated. A daemon: full unless told otherwise. A client: "
                         "basic; with full beside its profile, limits too")
        sub.add_argument("--only", action="append", default=[], metavar="NAME",
                         help="only this check, or those of this room (\"frame\"); may be repeated")
        sub.add_argument("--list", action="store_true", help="print the checks and make none")
        sub.add_argument("--json", action="store_true", help="print JSON instead of TAP")
        sub.add_argument("--timeout", type=float, default=20, metavar="SECONDS",
                         help="how long an answer, or a client's end, is waited for (20)")
        if side == "daemon":
            sub.add_argument("socket", metavar="SOCKET", nargs="?", help="where the daemon listens")
            sub.add_argument("--destructive", action="store_true",
                             help="also checks that set rules and settings; settings are put back, rules taken back")
            sub.add_argument("--scratch", metavar="DIR", help="a folder that may be backed up, for --destructive")
            sub.add_argument("--restart", metavar="COMMAND",
                             help="how to start the daemon again; with it, it is also killed and told to end")
        else:
            sub.add_argument("--bundle", metavar="DIR",
                             help="a plug-in bundle; a copy of it names the played daemon's socket")
            sub.add_argument("command", metavar="COMMAND", nargs="*", help="the client, after --")
    return top


def union(table: dict[str, tuple[str, ...]], profiles: list[str]) -> set[str]:
    """All profiles that these profiles include."""
    return {each for profile in profiles for each in table[profile]}


def make(checks: list[Check], context: Any, as_json: bool) -> int:
    """Makes the checks one after the other and prints their results."""
    report = (JsonReport if as_json else TapReport)(len(checks))
    results: list[Result] = []
    try:
        for check in checks:
            results.append(run(check, context))
            report.add(results[-1])
    finally:
        context.close()
    report.end(results)
    return int(any(result.status == "failed" for result in results))


def print_list(checks: list[Check]) -> int:
    """Prints the checks with their reasons."""
    for check in checks:
        mark = " (destructive)" if check.destructive else ""
        print(f"{check.name}  [{check.profile}]{mark}\n    {check.why}\n    {check.page}")
    return 0


def judge_daemon(options: argparse.Namespace, usage: argparse.ArgumentParser) -> int:
    """Runs the command "keldane-conformance daemon"."""
    from .daemon_checks.context import CHECKS, DaemonContext  # pylint: disable=import-outside-toplevel
    checks = [check for check in CHECKS.chosen(union(PROFILES, options.profile or ["full"]), options.only)
              if options.destructive or options.list or not check.destructive]
    if options.list:
        return print_list(checks)
    if not options.socket:
        usage.error("a daemon needs a SOCKET")
    if options.destructive != bool(options.scratch):
        usage.error("--destructive and --scratch need each other")
    if options.scratch and not os.path.isdir(options.scratch):
        usage.error(f"{options.scratch} is no folder")
    restart = shlex.split(options.restart) if options.restart else None
    context = DaemonContext(options.socket, options.timeout, options.scratch, restart)
    return make(checks, context, options.json)


def judge_client(options: argparse.Namespace, usage: argparse.ArgumentParser) -> int:
    """Runs the command "keldane-conformance client"."""
    from .client_checks.context import CHECKS, ClientContext  # pylint: disable=import-outside-toplevel
    trades = [profile for profile in options.profile if profile != "full"] or ["basic"]
    if len(trades) > 1:
        usage.error("a client has one profile, and full beside it")
    checks = CHECKS.chosen(union(CLIENT_PROFILES, [*options.profile, *trades]), options.only)
    if options.list:
        return print_list(checks)
    if not options.command:
        usage.error("a client needs a COMMAND after --")
    return make(checks, ClientContext(options.command, trades[0], options.timeout, options.bundle), options.json)


def main(arguments: list[str]) -> int:
    """Runs the program and returns its exit status."""
    from . import client_checks, daemon_checks  # noqa: F401  pylint: disable=import-outside-toplevel,unused-import
    usage = parser()
    options = usage.parse_args(arguments)
    try:
        return judge_daemon(options, usage) if options.side == "daemon" else judge_client(options, usage)
    except BrokenPipeError:
        sys.stderr.close()
        return 1
