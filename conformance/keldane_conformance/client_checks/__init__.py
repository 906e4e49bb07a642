"""The checks of a client. Importing this package registers all of them in `context.CHECKS`."""

# The order of these imports is the order of a report.
from . import requests, robustness, menus, commands, following, trees, large  # noqa: F401
