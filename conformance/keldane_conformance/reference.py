"""The protocol's tables, golden frames and recordings. They are kept beside the reference's pages."""

from __future__ import annotations

import json
import os
from functools import lru_cache
from typing import Any

HERE = os.path.dirname(os.path.abspath(__file__))

# The places in the source tree and in the installed one.
PLACES = (os.path.join(HERE, "..", "..", "docs", "protocol"), os.path.join(HERE, "..", "..", "protocol"))


@lru_cache
def folder() -> str:
    """The folder of protocol.json; KELDANE_PROTOCOL names another one."""
    for place in (os.environ.get("KELDANE_PROTOCOL", ""), *PLACES):
        if place and os.path.isfile(os.path.join(place, "protocol.json")):
            return os.path.abspath(place)
    raise FileNotFoundError("protocol.json is neither beside the kit nor where KELDANE_PROTOCOL says")


def load(name: str) -> Any:
    """The content of one JSON file of the reference."""
    with open(os.path.join(folder(), name), encoding="utf-8") as stream:
        return json.load(stream)


@lru_cache
def protocol() -> dict[str, Any]:
    """All tables."""
    return load("protocol.json")


@lru_cache
def methods() -> dict[str, dict[str, Any]]:
    """The methods of the table by their selectors, in the order of the table."""
    return {method["selector"]: method for method in protocol()["methods"]}


@lru_cache
def signatures() -> dict[str, tuple[str, str]]:
    """The return code and argument codes of each method by its selector."""
    return {selector: (method["returns"], "".join(argument[0] for argument in method["arguments"]))
            for selector, method in methods().items()}


@lru_cache
def widths() -> dict[str, int]:
    """The width in bytes of a value by its type code."""
    return {row["code"]: row["width"] for row in protocol()["typeCodes"]}


def flag(name: str) -> int:
    """The mask of a backup flag or a simple flag."""
    for table in ("backupFlags", "simpleFlags"):
        for row in protocol()[table]:
            if row["name"] == name:
                return int(row["mask"], 16)
    raise KeyError(name)


def golden(name: str) -> list[dict[str, Any]]:
    """The golden frames of one file."""
    return load(os.path.join("frames", name + ".json"))["frames"]


def recording(name: str) -> dict[str, Any]:
    """One recorded session."""
    return load(os.path.join("recordings", name + ".json"))
