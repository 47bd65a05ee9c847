"""The Python module's pieces from the table: python_encoders.inc (one KZ_PY_ENCODER line per
direction: message, kind, encoder and its keyword names in call order), python_records.inc (the
named fields of every record, for the conversions from Python values) and kzresolver_messages.py
(the messages, their codes and fields with their docs, for the asyncio client and the stubs)."""



import keyword
import re

from .model import Param

HEADER = "// Generated from protocol/*.table by protocol/kzgen: do not edit; edit the table."


def keywords(d):
    """The keyword parameters of a direction, in the order of its C++ call: the fields by their
    names (what a received message shows too), or the encoder's own parameters where they are
    not the fields."""
    if d.send is not None:
        return [Param(p.type, p.name) for p in d.send]
    return [Param(f.type, f.name) for f in d.api_fields()]


def encoders_inc(protocol):
    out = [HEADER,
           "// KZ_PY_ENCODER(message, kind, encoder, keyword names in the call's order...);\n"
           "// KZ_PY_ENCODER0 for an encoder without parameters."]
    for d in protocol.directions():
        names = ", ".join('"%s"' % p.name for p in keywords(d))
        if names:
            out.append('KZ_PY_ENCODER(%s, "%s", %s, %s)' % (d.message.name, d.kind, d.encoder, names))
        else:
            out.append('KZ_PY_ENCODER0(%s, "%s", %s)' % (d.message.name, d.kind, d.encoder))
    return "\n".join(out) + "\n"


def records_inc(protocol):
    out = [HEADER,
           "// kz::py::RecordFields<R>::each(record, f) calls f(name, field) for every field."]
    for r in protocol.records:
        if r.word_bits is not None:
            continue  # a word of bits travels as its integer
        out.append("template <>")
        out.append("struct RecordFields<%s>" % r.name)
        out.append("{")
        out.append("    template <class F>")
        out.append("    static void each(%s& v, F&& f)" % r.name)
        out.append("    {")
        for f in r.fields:
            out.append('        f("%s", v.%s);' % (f.name, f.name))
        out.append("    }")
        out.append("};")
    return "\n".join(out) + "\n"


def messages_py(protocol):
    """A Python table (hand: decoded with the wire's field names, which may differ from the
    encoder's parameters; answered_by: the message whose reply answers a request, where not its
    own): MESSAGES[name] = Message(name, code, doc, {kind: Direction}), and the
    records' fields."""
    out = ['"""The messages of the protocol, generated from its table: do not edit."""', "",
           "from collections import namedtuple", "",
           'Message = namedtuple("Message", "name code doc directions")',
           'Direction = namedtuple("Direction", "kind flag encoder params doc hand answered_by")',
           'Param = namedtuple("Param", "name type doc")', "", "MESSAGES = {"]
    for m in protocol.messages:
        dirs = []
        for d in m.directions:
            params = []
            for p in keywords(d):
                params.append("Param(%r, %r, %r)" % (p.name, p.type, m.field_docs.get(p.name, "")))
            answer = d.answered_by.split(".")[0] if d.answered_by else None
            dirs.append("%r: Direction(%r, %d, %r, [%s], %r, %r, %r)" % (
                d.kind, d.kind, d.flag, d.encoder, ", ".join(params), " ".join(d.doc), d.hand,
                answer))
        out.append("    %r: Message(%r, 0x%04X, %r, {%s})," % (
            m.name, m.name, m.code, m.doc, ", ".join(dirs)))
    out.append("}")
    out += ["", "# RECORDS[name] = [Param(field, C++ type, doc), ...]; a word of bits is an int.",
            "RECORDS = {"]
    for r in protocol.records:
        if r.word_bits is not None:
            continue
        fields = ", ".join("Param(%r, %r, %r)" % (f.name, f.type, f.doc) for f in r.fields)
        out.append("    %r: [%s]," % (r.name, fields))
    out.append("}")
    return "\n".join(out) + "\n"


def python_type(ctype, protocol):
    """The Python type a C++ parameter type takes in the module, as a stub writes it."""
    t = ctype.replace(" ", "")
    simple = {"QString": "str", "bool": "bool", "double": "float", "QDate": "datetime.date",
              "QByteArray": "bytes", "QStringList": "List[str]", "QVariant": "Any"}
    if t in simple:
        return simple[t]
    if t.startswith("QList<") and t.endswith(">"):
        return "List[%s]" % python_type(t[6:-1], protocol)
    if t.startswith("QMap<") and t.endswith(">"):
        key, value = t[5:-1].split(",", 1)
        return "Dict[%s, %s]" % (python_type(key, protocol), python_type(value, protocol))
    r = protocol.record(t)
    if r is not None:
        return "int" if r.word_bits is not None else "Record"
    if t in ("MapQueryStatistic", "StopMap"):
        return "Dict[Any, Any]"
    return "int"


def client_pyi(protocol):
    """client.pyi: the Client's coroutines, one per request, typed and documented for editors."""
    out = ['"""Generated from protocol/*.table by protocol/kzgen: do not edit; edit the table."""',
           "", "import datetime", "import ssl",
           "from typing import Any, AsyncIterator, Awaitable, Dict, List, Mapping, Optional, Union",
           "", "from . import Message", "from .testing import MessageName", "",
           "Record = Union[Mapping[str, Any], Any]", "",
           "def method_name(message: str) -> str: ...", "", "class Client:",
           "    timeout: float",
           "    @classmethod",
           "    async def connect(cls, host: str, port: int, timeout: float = ...,",
           "                      ssl: Optional[ssl.SSLContext] = ...) -> Client: ...",
           "    async def close(self) -> None: ...",
           "    async def __aenter__(self) -> Client: ...",
           "    async def __aexit__(self, *exc: Any) -> None: ...",
           "    async def login(self, account: str, password: str,",
           "                    timeout: Optional[float] = ...) -> Message: ...",
           "    async def request(self, message: str, timeout: Optional[float] = ...,",
           "                      **fields: Any) -> Optional[Message]: ...",
           "    def expect(self, message: MessageName,",
           "               timeout: Optional[float] = ...) -> Awaitable[Message]: ...",
           "    def pushes(self) -> AsyncIterator[Message]: ..."]
    for m in protocol.messages:
        d = m.direction("request")
        if d is None:
            continue
        name = re.sub(r"(?<=[a-z0-9])(?=[A-Z])|(?<=[A-Z])(?=[A-Z][a-z])", "_", m.name).lower()
        params = ["%s: %s" % (p.name, python_type(p.type, protocol)) for p in keywords(d)]
        if any(keyword.iskeyword(p.name) for p in keywords(d)):
            params = ["**fields: Any"]  # a name such as "from" is given as **{"from": ...}
        out.append("    async def %s(self, *, timeout: Optional[float] = ...%s)"
                   " -> Optional[Message]:" % (name, "".join(", " + p for p in params)))
        out.append('        """%s"""' % m.doc.replace('"""', "'''"))
    return "\n".join(out) + "\n"


def testing_pyi(protocol):
    """testing.pyi: the test-double server, its handlers registered by message names an editor
    completes."""
    names = ", ".join('"%s"' % m.name for m in protocol.messages)
    return "\n".join([
        '"""Generated from protocol/*.table by protocol/kzgen: do not edit; edit the table."""',
        "", "from typing import Any, Awaitable, Callable, Dict, List, Literal, Optional", "",
        "from . import Message", "",
        "MessageName = Literal[%s]" % names, "",
        "Handler = Callable[[Connection, Message], Awaitable[Optional[Dict[str, Any]]]]", "",
        "def answering(name: MessageName) -> Optional[str]: ...", "",
        "class Refuse(Exception):",
        "    fields: Dict[str, Any]",
        "    def __init__(self, **fields: Any) -> None: ...", "",
        "class Connection:",
        "    server: Server",
        "    peer: Any",
        "    unhandled: List[Message]",
        "    def push(self, message: str, **fields: Any) -> None: ...",
        "    def close(self) -> None: ...", "",
        "class Server:",
        "    handlers: Dict[str, Handler]",
        "    host: str",
        "    port: int",
        "    max_body: int",
        "    connections: List[Connection]",
        "    errors: List[Exception]",
        "    def __init__(self, handlers: Optional[Dict[MessageName, Handler]] = ...,",
        "                 host: str = ..., port: int = ..., max_body: int = ...) -> None: ...",
        "    def on(self, name: MessageName) -> Callable[[Handler], Handler]: ...",
        "    async def start(self) -> Server: ...",
        "    async def close(self) -> None: ...",
        "    async def __aenter__(self) -> Server: ...",
        "    async def __aexit__(self, *exc: Any) -> None: ...",
        "    def push(self, message: str, **fields: Any) -> None: ...",
    ]) + "\n"
