"""A LAN server for test doubles, on asyncio: each connection has its own
``Resolver``; an async handler per message name answers with the reply's
fields::

    from kzresolver.testing import Refuse, Server

    server = Server()

    @server.on("DeleteUser")
    async def delete_user(connection, message):
        return {"ok": True, "names": message["names"]}   # the DeleteUser reply

    async with server:                                   # listens on 127.0.0.1
        client = await Client.connect("127.0.0.1", server.port)
        ...

A handler gets the ``Connection`` and the ``Message``. It returns the fields
of the reply of the answering message (the message itself, or the one its
request is answered by, such as MacTsfFileBegin for MacTsfFileTaskBegin), or
None to send no reply. It raises ``Refuse`` to refuse: with fields, they are
sent as the reply (``Refuse(ok=False, names=[])``); without, nothing is sent.
Any other exception is kept in ``Server.errors`` and closes the connection,
so that a test sees a broken double instead of a silent one. Messages
without a handler are kept in ``Connection.unhandled``. The messages of one
connection are handled one at a time, in the order they arrive; a handler
that never returns holds up its connection only. ``Connection.push`` sends a
message unasked.
"""

import asyncio
from typing import Any, Awaitable, Callable, Dict, List, Optional

from . import Message, Resolver
from .messages import MESSAGES

__all__ = ["Server", "Connection", "Refuse"]

Handler = Callable[["Connection", Message], Awaitable[Optional[Dict[str, Any]]]]

# Bytes read from a connection at a time: the next read waits until the
# handlers of what was read have returned.
READ_SIZE = 65536


class Refuse(Exception):
    """Raised by a handler to refuse a request: ``fields`` (when given) are
    sent as the reply, otherwise nothing is."""

    def __init__(self, **fields):
        super().__init__("refused")
        self.fields = fields


def answering(name: str) -> Optional[str]:
    """The message whose reply answers the request of ``name`` (None when it
    has no reply)."""
    m = MESSAGES[name]
    request = m.directions.get("request")
    answer = (request.answered_by if request is not None else None) or name
    return answer if "reply" in MESSAGES[answer].directions else None


class Connection:
    """One client of a ``Server``."""

    def __init__(self, server: "Server", reader, writer):
        self.server = server
        self.peer = writer.get_extra_info("peername")
        self.unhandled: List[Message] = []
        self._reader = reader
        self._writer = writer
        self._send = Resolver()
        self._receive = Resolver(max_body=server.max_body)

    def push(self, message: str, **fields) -> None:
        """Sends ``message`` (``"Name"`` for its request form, ``"Name.reply"``
        for its reply) unasked."""
        self._writer.write(b"".join(self._send.encode(message, **fields)))

    def close(self) -> None:
        """Hangs up."""
        self._writer.close()

    async def _serve(self):
        try:
            while True:
                data = await self._reader.read(READ_SIZE)
                if not data:
                    return
                for m in self._receive.feed(data):
                    await self._handle(m)
                await self._writer.drain()
        except (ConnectionError, asyncio.IncompleteReadError):
            pass
        except Exception as e:  # a broken handler: the test learns it
            self.server.errors.append(e)
        finally:
            self._writer.close()

    async def _handle(self, m: Message):
        handler = self.server.handlers.get(m.name)
        if handler is None:
            self.unhandled.append(m)
            return
        try:
            fields = await handler(self, m)
        except Refuse as refusal:
            fields = refusal.fields or None
        if fields is None:
            return
        answer = answering(m.name)
        if answer is None:
            raise TypeError("%s has no reply, but its handler returned fields" % m.name)
        self.push(answer + ".reply", **fields)


class Server:
    """A LAN server on loopback for tests. ``handlers`` maps message names to
    async handlers (or use ``@server.on(name)``); ``port`` 0 takes a free
    one, read from ``server.port`` once started."""

    def __init__(self, handlers: Optional[Dict[str, Handler]] = None, host: str = "127.0.0.1",
                 port: int = 0, max_body: int = 16 * 1024 * 1024):
        self.handlers: Dict[str, Handler] = {}
        for name, handler in (handlers or {}).items():
            self.on(name)(handler)
        self.host = host
        self.port = port
        self.max_body = max_body
        self.connections: List[Connection] = []
        self.errors: List[Exception] = []
        self._server = None
        self._tasks = set()

    def on(self, name: str) -> Callable[[Handler], Handler]:
        """A decorator that makes an async function the handler of ``name``."""
        if name not in MESSAGES:
            raise ValueError("no message '%s'" % name)

        def register(handler: Handler) -> Handler:
            self.handlers[name] = handler
            return handler
        return register

    async def start(self) -> "Server":
        self._server = await asyncio.start_server(self._accept, self.host, self.port)
        self.port = self._server.sockets[0].getsockname()[1]
        return self

    async def close(self) -> None:
        """Stops listening and hangs up every connection."""
        if self._server is not None:
            self._server.close()
            await self._server.wait_closed()
        for c in self.connections:
            c.close()
        for task in list(self._tasks):
            task.cancel()
        await asyncio.gather(*self._tasks, return_exceptions=True)

    async def __aenter__(self) -> "Server":
        return await self.start()

    async def __aexit__(self, *exc) -> None:
        await self.close()

    def push(self, message: str, **fields) -> None:
        """Sends ``message`` to every connection."""
        for c in self.connections:
            c.push(message, **fields)

    async def _accept(self, reader, writer):
        connection = Connection(self, reader, writer)
        self.connections.append(connection)
        task = asyncio.current_task()
        self._tasks.add(task)
        try:
            await connection._serve()
        finally:
            self._tasks.discard(task)
            self.connections.remove(connection)
