"""Judges daemons and clients by the protocol. Python's standard library alone."""
