"""The protocol as read from the table: what every output is made from."""

from dataclasses import dataclass, field
from typing import Dict, List, Optional


@dataclass(frozen=True)
class Where:
    """A place in the table, for errors: file and line."""

    file: str
    line: int

    def __str__(self):
        return "%s:%d" % (self.file, self.line)


class TableError(Exception):
    """A table that cannot be used, with the place that says so."""

    def __init__(self, where, message):
        super().__init__("%s: %s" % (where, message))
        self.where = where
        self.message = message


@dataclass
class FormDef:
    """A named wire form of the vocabulary (protocol/forms.table)."""

    name: str
    size: Optional[int]  # bytes on the wire, None when it varies
    cpptype: str  # the C++ type of its value in the API
    doc: str
    codegen: bool  # False: describes hand-written messages only
    where: Where


@dataclass
class Form:
    """A form expression: a named form, a composite of forms, or a record's wire form.

    head is one of:
      a FormDef name            strz, i32, strlist, ...
      'list' 'slist'            args[0] is the entry form
      'map'                     args[0] key, args[1] value
      'row' 'vrow'              args are the cells (cells may carry names: `cells`)
      'record'                  record, variant (None: the record's only form)
      'struct'                  fields: an unnamed group of fields (hand-written messages)
      'repeat'                  count (an earlier field, '+1' allowed), args[0]
      'bytes'                   count (an earlier field): raw bytes of that length
    """

    head: str
    args: List["Form"] = field(default_factory=list)
    cells: List[Optional[str]] = field(default_factory=list)  # row cell names
    fields: List["Field"] = field(default_factory=list)
    record: Optional[str] = None
    variant: Optional[str] = None
    count: Optional[str] = None

    def text(self):
        if self.head == "record":
            return self.record + ("." + self.variant if self.variant else "")
        if self.head == "struct":
            return "{%s}" % " ".join(f.text() for f in self.fields)
        if self.head == "bytes" and self.count:
            return "bytes(%s)" % self.count
        if self.head == "repeat":
            return "repeat<%s,%s>" % (self.count, self.args[0].text())
        if self.head in ("row", "vrow"):
            cells = [
                (n + ":" if n else "") + a.text() for n, a in zip(self.cells, self.args)
            ]
            return "%s<%s>" % (self.head, ",".join(cells))
        if self.args:
            return "%s<%s>" % (self.head, ",".join(a.text() for a in self.args))
        return self.head

    def walk(self):
        """This form and every form inside it."""
        yield self
        for a in self.args:
            yield from a.walk()
        for f in self.fields:
            yield from f.form.walk()


@dataclass
class Field:
    """One field of a payload or of a record's wire form, in wire order."""

    name: str  # the name a dump prints
    form: Form
    type: Optional[str]  # C++ type in the API (explicit or the form's)
    explicit_type: bool
    param: str  # the C++ parameter name (the name unless given)
    api: Optional[int]  # its position in the C++ call, where not the wire's
    where: Where

    def text(self):
        t = "%s:%s" % (self.name, self.form.text())
        if self.explicit_type:
            t += "=" + self.type
        if self.api is not None:
            t += "@%d" % self.api
        if self.param != self.name:
            t += "~" + self.param
        return t


@dataclass
class Param:
    """A C++ parameter: type and name."""

    type: str
    name: str


@dataclass
class Direction:
    """One direction of a message: its encoder, flag, callback and fields."""

    kind: str  # 'request' or 'reply'
    encoder: str
    flag: int
    accepts: List[int]
    setter: str
    callback_alias: Optional[str]  # the callback type this one is an alias of
    hand_encoder: bool
    hand_decoder: bool
    fields: List[Field]
    send: Optional[List[Param]]  # the encoder's parameters, where not the fields
    receive: Optional[List[Param]]  # the callback's parameters, where not the fields
    doc: List[str]
    called: str
    note: Optional[str]
    answered_by: Optional[str]  # "Message.reply" where not this message's reply
    where: Where
    message: Optional["Message"] = None

    @property
    def callback_type(self):
        return self.setter[3:]

    @property
    def hand(self):
        return self.hand_encoder or self.hand_decoder

    def api_fields(self):
        """The fields in the order of the C++ call."""
        n = len(self.fields)
        order = [None] * n
        for f in self.fields:
            if f.api is not None:
                order[f.api] = f
        free = iter(i for i in range(n) if order[i] is None)
        for f in self.fields:
            if f.api is None:
                order[next(free)] = f
        return order

    def encoder_params(self):
        if self.send is not None:
            return self.send
        return [Param(f.type, f.param) for f in self.api_fields()]

    def callback_params(self):
        if self.receive is not None:
            return self.receive
        return [Param(f.type, f.param) for f in self.api_fields()]


@dataclass
class Message:
    name: str
    code: int
    family: "Family"
    doc: str
    directions: List[Direction]
    field_docs: Dict[str, str]
    examples: Dict[str, str]  # field name -> C++ expression of an example value
    where: Where

    def direction(self, kind):
        for d in self.directions:
            if d.kind == kind:
                return d
        return None


@dataclass
class RecordField:
    name: str
    type: str
    doc: str
    bits: Optional[tuple] = None  # (first, last) bit of a bit-word record's field
    where: Optional[Where] = None


@dataclass
class RecordForm:
    """A wire form of a record: some of its fields, in wire order."""

    record: "Record"
    variant: Optional[str]
    fields: List[Field]
    doc: str
    where: Where

    @property
    def tag(self):
        return "form_%s%s" % (self.record.name, "_" + self.variant if self.variant else "")


@dataclass
class Record:
    name: str
    doc: List[str]
    fields: List[RecordField]
    forms: Dict[Optional[str], RecordForm]
    family: "Family"
    where: Where
    word_bits: Optional[int] = None  # a word of bit fields: its width

    def field(self, name):
        for f in self.fields:
            if f.name == name:
                return f
        return None


@dataclass
class Alias:
    """A type alias: global (kzrecords.h) or inside the resolver class."""

    name: str
    type: str
    doc: str
    in_class: bool
    where: Where


@dataclass
class Family:
    id: str
    title: str
    doc: List[str]
    file: str
    aliases: List[Alias] = field(default_factory=list)
    records: List[Record] = field(default_factory=list)
    messages: List[Message] = field(default_factory=list)

    @property
    def stem(self):
        return self.id.lower()


@dataclass
class Protocol:
    forms: Dict[str, FormDef]
    families: List[Family]

    @property
    def messages(self):
        return [m for f in self.families for m in f.messages]

    @property
    def records(self):
        return [r for f in self.families for r in f.records]

    def record(self, name):
        for r in self.records:
            if r.name == name:
                return r
        return None

    def message(self, name):
        for m in self.messages:
            if m.name == name:
                return m
        return None

    def directions(self):
        return [d for m in self.messages for d in m.directions]

    def by_code(self):
        return sorted(self.messages, key=lambda m: m.code)
