"""Judges daemons and clients by the protocol. It needs only Python's standard library."""
