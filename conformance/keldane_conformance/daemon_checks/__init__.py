"""The checks of a daemon. Importing this package registers all of them in `context.CHECKS`."""

# The order of these imports is the order of a report.
from . import framing, answers, nodes, rules, settings, callbacks, others, limits, survival  # noqa: F401
