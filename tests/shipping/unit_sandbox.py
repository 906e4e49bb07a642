"""Applies the restrictions of the daemon's unit to a process without the service manager: the system calls, the kinds of
sockets, and memory that is writable and executable. The service manager's own program lists the calls of its groups."""

import ctypes
import errno
import functools
import re
import shutil
import socket
import subprocess

LIBRARY = "libseccomp.so.2"
ALLOW, REFUSE = 0x7FFF0000, 0x00050000 | errno.EPERM
IS_EQUAL = 4
MOST_FAMILIES = 46
SET_MEMORY_DENY_WRITE_EXECUTE, REFUSE_EXEC_GAIN = 65, 1


class Comparison(ctypes.Structure):
    _fields_ = [("argument", ctypes.c_uint), ("operator", ctypes.c_int), ("value", ctypes.c_uint64),
                ("other", ctypes.c_uint64)]


def library():
    try:
        seccomp = ctypes.CDLL(LIBRARY)
    except OSError:
        return None
    seccomp.seccomp_init.restype = ctypes.c_void_p
    seccomp.seccomp_load.argtypes = [ctypes.c_void_p]
    seccomp.seccomp_rule_add_array.argtypes = [ctypes.c_void_p, ctypes.c_uint32, ctypes.c_int, ctypes.c_uint,
                                               ctypes.POINTER(Comparison)]
    return seccomp


def can_be_applied():
    return library() is not None and shutil.which("systemd-analyze") is not None


@functools.cache
def members(group):
    """The calls of one of the service manager's groups, including those of the groups in it."""
    text = subprocess.run(["systemd-analyze", "syscall-filter", group], capture_output=True, text=True, check=True).stdout
    names = [line.strip() for line in text.splitlines()[1:] if line.strip() and not line.strip().startswith("#")]
    return frozenset().union(*(members(name) if name.startswith("@") else {name} for name in names))


def values(unit, key):
    return re.findall(rf"^{key}=(.*)$", unit, re.MULTILINE)


def allowed_calls(unit):
    calls = set(members("@default"))
    for line in values(unit, "SystemCallFilter"):
        for name in line.removeprefix("~").split():
            named = members(name) if name.startswith("@") else {name}
            calls = calls - named if line.startswith("~") else calls | named
    return calls


class Sandbox:
    """Made before the process starts; `enter` is called in the process, before its program begins."""

    def __init__(self, unit):
        self._seccomp = library()
        calls = self._filter(REFUSE)
        for name in allowed_calls(unit):
            self._add(calls, ALLOW, name)
        sockets = self._filter(ALLOW)
        families = {getattr(socket, name) for line in values(unit, "RestrictAddressFamilies") for name in line.split()}
        for family in set(range(MOST_FAMILIES)) - families:
            self._add(sockets, REFUSE, "socket", Comparison(0, IS_EQUAL, family, 0))
        if values(unit, "RestrictNamespaces") == ["yes"]:
            for name in ("unshare", "setns"):
                self._add(sockets, REFUSE, name)
        self._filters = [sockets, calls]
        self._denies_memory = values(unit, "MemoryDenyWriteExecute") == ["yes"]

    def _filter(self, action):
        return ctypes.c_void_p(self._seccomp.seccomp_init(ctypes.c_uint32(action)))

    def _add(self, rules, action, name, *comparisons):
        number = self._seccomp.seccomp_syscall_resolve_name(name.encode())
        if number >= 0:  # otherwise this processor has no such call
            array = (Comparison * len(comparisons))(*comparisons)
            assert self._seccomp.seccomp_rule_add_array(rules, action, number, len(comparisons), array) == 0, name

    def enter(self):
        if self._denies_memory:  # an older kernel does not have this option
            ctypes.CDLL(None).prctl(SET_MEMORY_DENY_WRITE_EXECUTE, REFUSE_EXEC_GAIN, 0, 0, 0)
        for each in self._filters:
            assert self._seccomp.seccomp_load(each) == 0
