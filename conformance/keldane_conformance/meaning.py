"""Property-list values in JSON, so that the meaning of bytes can be written beside them.

Strings, integers, reals (always with a point), booleans, arrays and dictionaries are written as in JSON. A date is
{"$date": "2026-11-20T14:00:00Z"}, data is {"$data": "hexadecimal digits"}, and no value at all is null."""

from __future__ import annotations

import datetime
from typing import Any

DATE_FORM = "%Y-%m-%dT%H:%M:%SZ"


def to_json(value: Any) -> Any:
    """The JSON form of a value."""
    if isinstance(value, datetime.datetime):
        return {"$date": value.strftime(DATE_FORM)}
    if isinstance(value, bytes):
        return {"$data": value.hex()}
    if isinstance(value, list):
        return [to_json(each) for each in value]
    if isinstance(value, dict):
        return {key: to_json(each) for key, each in value.items()}
    return value


def from_json(value: Any) -> Any:
    """The value of a JSON form."""
    if isinstance(value, list):
        return [from_json(each) for each in value]
    if not isinstance(value, dict):
        return value
    if set(value) == {"$date"}:
        return datetime.datetime.strptime(value["$date"], DATE_FORM)
    if set(value) == {"$data"}:
        return bytes.fromhex(value["$data"])
    return {key: from_json(each) for key, each in value.items()}


def kind(value: Any) -> str:
    """The kind of a value, as protocol.json names it."""
    if value is None:
        return "absent"
    if isinstance(value, bool):
        return "boolean"
    kinds = {int: "integer", float: "real", str: "string", bytes: "data", list: "array", dict: "dictionary",
             datetime.datetime: "date"}
    return kinds[type(value)]


def same(one: Any, other: Any) -> bool:
    """Whether two values are equal, also in kind: true is not 1, and 1 is not 1.0."""
    if kind(one) != kind(other):
        return False
    if isinstance(one, list):
        return len(one) == len(other) and all(map(same, one, other))
    if isinstance(one, dict):
        return one.keys() == other.keys() and all(same(one[key], other[key]) for key in one)
    return one == other
