# SPDX-License-Identifier: Apache-2.0

"""A connection to the host's socket: frames go out and come in, each in bounded time and memory."""

from __future__ import annotations

import os
import pwd
import select
import socket
import struct
import sys
import time
from typing import Optional, Tuple, Union

from . import _wire
from .errors import BadArgument, BrokenAnswer, CannotConnect, ConnectionLost, TimedOut, WrongHost

_STEP = 1 << 16
_LONGEST_WAIT = 1e6  # seconds


def default_path() -> str:
    """Returns the path of the socket at which the host listens by default.

    The environment variable QV_RUN_DIR names the directory. A set-id process ignores it.
    """
    own = (os.getuid(), os.getgid()) == (os.geteuid(), os.getegid())
    usual = "/var/run/Vornak/LorxCore" if sys.platform == "darwin" else "/run/Vornak/LorxCore"
    return ((own and os.environ.get("QV_RUN_DIR")) or usual) + "/namingService.sock"


class Deadline:
    """The end of a time in seconds. None stands for no end."""

    def __init__(self, timeout: Optional[float]) -> None:
        if timeout is not None and not timeout >= 0:
            raise BadArgument(f"{timeout} is no time-out")
        self._end = None if timeout is None else time.monotonic() + timeout

    def left(self) -> Optional[float]:
        return None if self._end is None else max(self._end - time.monotonic(), 0.0)

    def is_over(self) -> bool:
        return self.left() == 0.0

    def sooner(self, other: Deadline) -> Deadline:
        ends = [end for end in (self._end, other._end) if end is not None]
        deadline = Deadline(None)
        deadline._end = min(ends) if ends else None
        return deadline


def user_id(user: Union[int, str]) -> int:
    if isinstance(user, int):
        return user
    try:
        return pwd.getpwnam(user).pw_uid
    except (KeyError, ValueError):
        raise BadArgument(f"no user {user!r}") from None


def _peer(connection: socket.socket) -> int:
    """Returns the user who listens."""
    if sys.platform == "linux":
        size = struct.calcsize("iII")
        return int(struct.unpack("iII", connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, size))[1])
    # LOCAL_PEERCRED of SOL_LOCAL: a struct xucred begins with its version and the user.
    return int(struct.unpack_from("II", connection.getsockopt(0, 1, 76))[1])


class Stream:
    def __init__(self, path: str, deadline: Deadline, host_user: Optional[int]) -> None:
        """Connects. If there is a host_user, only root and this user may listen."""
        self._received = bytearray()
        try:
            self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            try:
                self._connect(path, deadline)
                user = _peer(self._socket)
            except BaseException:
                self._socket.close()
                raise
        except BlockingIOError:
            raise TimedOut(f"cannot connect to {path} in time") from None
        except (OSError, ValueError) as error:
            raise CannotConnect(f"cannot connect to {path}: {error}") from error
        if host_user is not None and user not in (0, host_user):
            self._socket.close()
            raise WrongHost(f"user {user} listens at {path}, and not root or user {host_user}")

    def _connect(self, path: str, deadline: Deadline) -> None:
        self._socket.settimeout(None)
        left = deadline.left()
        if left is not None:
            # A socket that does not block would fail at once if many clients connect.
            left = min(left, _LONGEST_WAIT)
            wait = struct.pack("ll", int(left), max(int(left % 1 * 1e6), 1))
            self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, wait)
        self._socket.connect(path)

    def close(self) -> None:
        self._socket.close()

    def send(self, command: int, content: bytes, number: int, deadline: Deadline) -> bool:
        """Sends a request. Returns False if the host closes the connection. It may have told why."""
        if len(content) > _wire.LONGEST_CONTENT:
            raise BadArgument("the request is too long to be sent")
        header = _wire.Header(command, len(content), number).packed()
        try:
            self._bound(deadline)
            self._socket.sendall(header + content)
            return True
        except (socket.timeout, BlockingIOError):
            raise TimedOut("the host did not take the request in time") from None
        except OSError:
            return False

    def receive(self, deadline: Deadline) -> Tuple[_wire.Header, bytes]:
        """Returns the next answer. If the time is over, keeps what has arrived and raises TimedOut."""
        while len(self._received) < _wire.HEADER_SIZE:
            self._receive_some(_wire.HEADER_SIZE, deadline)
        header = _wire.Header.unpacked(self._received[: _wire.HEADER_SIZE])
        if header.length > _wire.LONGEST_ANSWER:
            raise BrokenAnswer(f"the host's answer claims to have {header.length} bytes")
        size = _wire.HEADER_SIZE + header.length
        while len(self._received) < size:
            self._receive_some(size, deadline)
        content = bytes(memoryview(self._received)[_wire.HEADER_SIZE :])
        self._received = bytearray()
        return header, content

    def wait(self, deadline: Deadline) -> bool:
        """Returns True when there is something to receive. Returns False if the time is over first."""
        poll = select.poll()
        poll.register(self._socket, select.POLLIN)
        left = deadline.left()
        return bool(poll.poll(None if left is None else 1000 * min(left, _LONGEST_WAIT)))

    def has_part(self) -> bool:
        """Tells whether part of an answer has arrived."""
        return bool(self._received)

    def _receive_some(self, size: int, deadline: Deadline) -> None:
        try:
            self._bound(deadline)
            part = self._socket.recv(min(size - len(self._received), _STEP))
        except (socket.timeout, BlockingIOError):
            raise TimedOut("the host did not answer in time") from None
        except OSError as error:
            raise ConnectionLost(f"the connection to the host broke: {error}") from error
        if not part:
            raise ConnectionLost("the host closed the connection")
        self._received += part


    def _bound(self, deadline: Deadline) -> None:
        """Bounds the next call of the socket."""
        left = deadline.left()
        self._socket.settimeout(None if left is None else min(left, _LONGEST_WAIT))
