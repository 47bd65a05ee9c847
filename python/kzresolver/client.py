"""An asyncio client of the LAN protocol on top of Resolver.

    client = await Client.connect("127.0.0.1", 7000)
    reply = await client.login("admin", "secret")
    users = await client.request("UserInfo")          # or: await client.user_info()
    async for push in client.pushes():                # messages nobody waits for
        ...

Every request coroutine sends one message and waits for the first reply of
its answering message not yet claimed: replies are matched to requests first
in, first out per method code. A time-out raises asyncio.TimeoutError in
that coroutine only; a lost connection raises ConnectionError in every
coroutine still waiting, and ends the pushes.
"""

import asyncio
import collections
import itertools
import re
from typing import AsyncIterator, Awaitable, Deque, Dict, Optional

from . import Message, Resolver
from .messages import MESSAGES

__all__ = ["Client"]

DEFAULT_TIMEOUT = 10.0


def method_name(message: str) -> str:
    """The coroutine name of a message: DeleteUser -> delete_user."""
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])|(?<=[A-Z])(?=[A-Z][a-z])", "_", message).lower()


COROUTINES = {method_name(n): n for n, m in MESSAGES.items() if "request" in m.directions}


class Client:
    """One connection to a LAN server. Make it with ``await Client.connect``."""

    def __init__(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter,
                 timeout: float = DEFAULT_TIMEOUT):
        self.timeout = timeout
        self._reader = reader
        self._writer = writer
        self._send = Resolver()
        self._receive = Resolver()
        self._waiting: Dict[int, Deque[asyncio.Future]] = collections.defaultdict(
            collections.deque)
        self._pushes: asyncio.Queue = asyncio.Queue()
        self._expected: Dict[str, Deque[asyncio.Future]] = collections.defaultdict(
            collections.deque)
        self._lost: Optional[Exception] = None
        self._task = asyncio.get_running_loop().create_task(self._read())

    @classmethod
    async def connect(cls, host: str, port: int, timeout: float = DEFAULT_TIMEOUT,
                      ssl=None) -> "Client":
        """Opens a connection (TLS with an ``ssl.SSLContext``); ``timeout``
        bounds the connection and every request that gives none."""
        reader, writer = await asyncio.wait_for(
            asyncio.open_connection(host, port, ssl=ssl), timeout)
        return cls(reader, writer, timeout)

    async def close(self) -> None:
        """Closes the connection; waiting requests raise ConnectionError."""
        self._writer.close()
        try:
            await self._writer.wait_closed()
        except OSError:
            pass
        self._task.cancel()
        self._fail(ConnectionError("connection closed"))

    async def __aenter__(self):
        return self

    async def __aexit__(self, *exc):
        await self.close()

    async def login(self, account: str, password: str, timeout: Optional[float] = None
                    ) -> Message:
        """Logs in; returns the Login reply (its ``first`` field tells whether
        the login was accepted)."""
        return await self.request("Login", timeout=timeout, account=account, password=password)

    async def request(self, message: str, timeout: Optional[float] = None, **fields) -> Message:
        """Sends the request of ``message`` and returns its reply. A message
        without a reply is only sent (None is returned)."""
        m = MESSAGES.get(message)
        if m is None or "request" not in m.directions:
            raise ValueError("no request '%s'" % message)
        frames = self._send.encode(message + ".request", **fields)
        answer = m.directions["request"].answered_by or message
        answered = "reply" in MESSAGES[answer].directions
        if self._lost is not None:
            raise ConnectionError("connection lost") from self._lost
        future = None
        if answered:
            future = asyncio.get_running_loop().create_future()
            self._waiting[MESSAGES[answer].code].append(future)
        self._writer.write(b"".join(frames))
        await self._writer.drain()
        if future is None:
            return None
        try:
            return await asyncio.wait_for(asyncio.shield(future),
                                          self.timeout if timeout is None else timeout)
        except asyncio.TimeoutError:
            # Its reply, if it comes late, is still this request's: the
            # future stays in line and takes it, so later requests stay matched.
            raise

    def expect(self, message: str, timeout: Optional[float] = None) -> Awaitable[Message]:
        """Starts waiting, at once, for the next message named ``message``
        that no request waits for (a push, or a request of the server such as
        MacTsfFileEnd); await the result to have it. The message is not given
        to ``pushes()``. Call it before sending what the message answers, so
        that it cannot pass unseen. Waiters of one name are served first in,
        first out."""
        if message not in MESSAGES:
            raise ValueError("no message '%s'" % message)
        if self._lost is not None:
            raise ConnectionError("connection lost") from self._lost
        future = asyncio.get_running_loop().create_future()
        self._expected[message].append(future)
        return self._expected_message(message, future, timeout)

    async def _expected_message(self, message, future, timeout):
        try:
            return await asyncio.wait_for(asyncio.shield(future),
                                          self.timeout if timeout is None else timeout)
        finally:
            line = self._expected.get(message)
            if line is not None and future in line:  # no longer waiting
                line.remove(future)

    def pushes(self) -> AsyncIterator[Message]:
        """The messages no request waits for (requests and pushes of the
        server, unmatched replies), as they arrive; ends when the connection does."""
        return self._push_iterator()

    async def _push_iterator(self):
        while True:
            m = await self._pushes.get()
            if m is None:
                return
            yield m

    def __getattr__(self, name):
        message = COROUTINES.get(name)
        if message is None:
            raise AttributeError(name)

        async def call(timeout: Optional[float] = None, **fields):
            return await self.request(message, timeout=timeout, **fields)

        call.__name__ = name
        call.__doc__ = MESSAGES[message].doc
        return call

    async def _read(self):
        try:
            while True:
                data = await self._reader.read(65536)
                if not data:
                    raise ConnectionError("connection closed by the server")
                for m in self._receive.feed(data):
                    self._deliver(m)
        except asyncio.CancelledError:
            raise
        except Exception as e:  # the connection is gone: every waiter learns it
            self._writer.close()
            self._fail(e if isinstance(e, ConnectionError) else ConnectionError(str(e)))

    def _deliver(self, m: Message):
        line = self._waiting.get(m.code)
        if m.flag == 1 and line:
            future = line.popleft()
            if not future.done():
                future.set_result(m)
            return
        expected = self._expected.get(m.name)
        while expected:
            future = expected.popleft()
            if not future.done():
                future.set_result(m)
                return
        self._pushes.put_nowait(m)

    def _fail(self, error: Exception):
        if self._lost is not None:
            return
        self._lost = error
        why = "connection lost: %s" % error
        for line in itertools.chain(self._waiting.values(), self._expected.values()):
            while line:
                future = line.popleft()
                if not future.done():
                    future.set_exception(ConnectionError(why))
        self._waiting.clear()
        self._expected.clear()
        self._pushes.put_nowait(None)
