"""kzresolver: the LAN protocol of the machine fleet from Python.

``Resolver`` encodes messages into frames and decodes received bytes into
``Message`` objects with the C++ library's own codecs::

    from kzresolver import Resolver
    r = Resolver()
    frames = r.encode("DeleteUser", names=["carol"])   # a list of bytes
    for m in r.feed(b"".join(frames)):
        print(m.name, m.kind, m.fields)                # DeleteUser request {'names': ['carol']}
"""

import datetime
from dataclasses import dataclass, field
from typing import Any, Dict, List

from . import _native
from .messages import MESSAGES

__all__ = ["Resolver", "Message", "MESSAGES"]

REQUEST = 0
REPLY = 1

# The date fields of every direction, by (method code, flag): they travel as
# "yyyy-MM-dd" text and are given as datetime.date (None for an empty or
# invalid date).
_DATES = {(m.code, d.flag): [p.name for p in d.params if p.type == "QDate"]
          for m in MESSAGES.values() for d in m.directions.values()}


def _date(text):
    try:
        return datetime.date.fromisoformat(text)
    except (TypeError, ValueError):
        return None


@dataclass
class Message:
    """A received message: its name, flag (0 request, 1 reply), method code and
    fields by the protocol's field names. Records arrive as objects with their
    fields as attributes, lists as lists, maps as dicts, dates as
    datetime.date. A name a message reads more than once (the nodes of a
    group tree) gives the list of its values in wire order. ``cut`` is true when
    the body ended inside a field (the fields read until then are given)."""

    name: str
    flag: int
    code: int
    fields: Dict[str, Any] = field(default_factory=dict)
    cut: bool = False
    dropped: int = 0

    @property
    def kind(self) -> str:
        """"request" or "reply"."""
        return "reply" if self.flag == REPLY else "request"

    def __getitem__(self, name):
        return self.fields[name]


class Resolver:
    """One direction of a connection's codec: ``encode`` what is sent,
    ``feed`` what is received. Not safe to share between threads."""

    def __init__(self, max_body: int = 16 * 1024 * 1024, max_entries: int = 65536):
        """``max_body`` bounds a reassembled message body; ``max_entries``
        the list and map entries kept of one message, all its lists
        together (those past it are read, not kept, and counted in
        ``Message.dropped``)."""
        self._native = _native.Resolver()
        self._native.set_max_body(max_body)
        self._native.set_max_entries(max_entries)

    def encode(self, message: str, **fields) -> List[bytes]:
        """The frames of one message. ``message`` is a message's name for its
        request (or its only direction), ``"Name.reply"`` for its reply; the
        fields are given by name. A missing or unknown field or a value of the
        wrong type raises TypeError, a value out of its field's range
        ValueError; both name the field."""
        return self._native.encode(message, **fields)

    def feed(self, data: bytes) -> List[Message]:
        """Feeds received bytes (any split of the stream); returns the
        messages they complete, in order. Damaged frames and unknown messages
        are skipped."""
        out = []
        for m in self._native.feed(bytes(data)):
            fields = m["fields"]
            for name in _DATES.get((m["code"], m["flag"]), ()):
                if isinstance(fields.get(name), str):
                    fields[name] = _date(fields[name])
            out.append(Message(**m))
        return out
