"""The checks of a daemon. Importing this package writes them all down in `context.CHECKS`."""

# The order of a report.
from . import framing, answers, nodes, rules, settings, callbacks, others, limits, survival  # noqa: F401
