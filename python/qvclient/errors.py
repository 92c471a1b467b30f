# SPDX-License-Identifier: Apache-2.0

"""The exceptions of qvclient. Every one is a QvError and tells a person what happened in one line."""

from __future__ import annotations


class QvError(Exception):
    """Begins the hierarchy of the module's exceptions."""


class BadArgument(QvError, ValueError):
    """The host could not take an argument. Nothing was sent."""


class CannotConnect(QvError):
    """No host listens at the path, or this user may not connect to it."""


class WrongHost(QvError):
    """A user whom the caller does not trust listens at the path. Nothing was sent."""


class ConnectionLost(QvError):
    """The connection broke during a request. The host may have carried the request out."""


class TimedOut(QvError):
    """The time is over. If it was that of a request, the host may have carried the request out."""


class BrokenAnswer(QvError):
    """The bytes that arrived are no answer to the request."""


class Refused(QvError):
    """The host answered with a result that is not 0."""

    def __init__(self, code: int, text: str) -> None:
        super().__init__(f"the host answered {code}" + (f": {text}" if text else ""))
        self.code = code
        # For people. Control characters are escaped.
        self.text = text
