"""The checks of a client. Importing this package writes them all down in `context.CHECKS`."""

# The order of a report.
from . import requests, robustness, menus, commands, following, trees, large  # noqa: F401
