"""The parser of the table format; protocol/README.md describes the format.

Parsing only builds the model and rejects what it cannot read; validate.py checks that what it
read makes sense (known forms, unique codes, orders that are permutations, ...).
"""

import os
import re

from .model import (
    Alias,
    Direction,
    Family,
    Field,
    Form,
    FormDef,
    Message,
    Param,
    Protocol,
    Record,
    RecordField,
    RecordForm,
    TableError,
    Where,
)

NAME = re.compile(r"[A-Za-z_][A-Za-z0-9_]*")


class Line:
    """One logical line of a table file: its indentation, its text and where it stands."""

    def __init__(self, indent, text, where):
        self.indent = indent
        self.text = text
        self.where = where

    def keyword(self):
        return self.text.split(None, 1)[0]

    def rest(self):
        parts = self.text.split(None, 1)
        return parts[1] if len(parts) > 1 else ""


def read_lines(path, shown):
    """The logical lines of a file: comments and blank lines dropped, a line ending in a
    backslash joined with the next."""
    lines = []
    pending = None
    with open(path, encoding="utf-8") as f:
        for number, raw in enumerate(f, 1):
            text = raw.rstrip("\n").rstrip()
            if "\t" in raw:
                raise TableError(Where(shown, number), "tabs are not allowed; indent with spaces")
            if pending is not None:
                pending.text += " " + text.strip()
                if pending.text.endswith("\\"):
                    pending.text = pending.text[:-1].rstrip()
                    continue
                lines.append(pending)
                pending = None
                continue
            stripped = text.strip()
            if not stripped or stripped.startswith("#"):
                continue
            line = Line(len(text) - len(text.lstrip(" ")), stripped, Where(shown, number))
            if line.text.endswith("\\"):
                line.text = line.text[:-1].rstrip()
                pending = line
                continue
            lines.append(line)
    if pending is not None:
        raise TableError(pending.where, "the file ends inside a continued line")
    return lines


def blocks(lines):
    """Groups lines into (header, children) by indentation: a header at the shallowest
    indentation, its children below it."""
    out = []
    for line in lines:
        if line.indent == 0:
            out.append((line, []))
        elif not out:
            raise TableError(line.where, "an indented line before any block")
        else:
            out[-1][1].append(line)
    return out


def split_doc(text, where, what):
    """'head: doc' at the first ': ' outside angle brackets."""
    depth = 0
    for i, ch in enumerate(text):
        if ch == "<":
            depth += 1
        elif ch == ">":
            depth -= 1
        elif ch == ":" and depth == 0 and (i + 1 == len(text) or text[i + 1] == " "):
            return text[:i].strip(), text[i + 1 :].strip()
    raise TableError(where, "%s: expected ': ' and a doc after it" % what)


class Cursor:
    """Reads forms and fields from one line's text."""

    def __init__(self, text, where):
        self.s = text
        self.i = 0
        self.where = where

    def fail(self, message):
        raise TableError(self.where, "%s (at '%s')" % (message, self.s[self.i :][:40] or "end"))

    def space(self):
        while self.i < len(self.s) and self.s[self.i] == " ":
            self.i += 1

    def peek(self):
        return self.s[self.i] if self.i < len(self.s) else ""

    def eat(self, ch):
        if self.peek() != ch:
            self.fail("expected '%s'" % ch)
        self.i += 1

    def name(self, what="a name"):
        m = NAME.match(self.s, self.i)
        if not m:
            self.fail("expected %s" % what)
        self.i = m.end()
        return m.group(0)

    def count(self):
        m = re.compile(r"[A-Za-z_][A-Za-z0-9_]*(\+[0-9]+)?").match(self.s, self.i)
        if not m:
            self.fail("expected a count: an earlier field's name, optionally +N")
        self.i = m.end()
        return m.group(0)

    def cpptype(self):
        """A C++ type: up to a blank, '@' or '~' outside angle brackets."""
        start = self.i
        depth = 0
        while self.i < len(self.s):
            ch = self.s[self.i]
            if ch == "<":
                depth += 1
            elif ch == ">":
                depth -= 1
            elif depth == 0 and ch in " @~":
                break
            self.i += 1
        t = self.s[start : self.i].strip()
        if not t or depth != 0:
            self.fail("expected a C++ type")
        return t

    def form(self):
        if self.peek() == "{":
            self.i += 1
            fields = []
            self.space()
            while self.peek() != "}":
                if not self.peek():
                    self.fail("a '{' without its '}'")
                fields.append(self.field())
                self.space()
            self.i += 1
            return Form("struct", fields=fields)
        head = self.name("a form")
        if self.peek() == ".":
            self.i += 1
            return Form("record", record=head, variant=self.name("a record form's name"))
        if head == "bytes" and self.peek() == "(":
            self.i += 1
            count = self.count()
            self.eat(")")
            return Form("bytes", count=count)
        if self.peek() != "<":
            return Form(head)
        self.i += 1
        form = Form(head)
        if head == "repeat":
            form.count = self.count()
            self.eat(",")
            form.args.append(self.form())
            self.eat(">")
            return form
        while True:
            self.space()
            cell = None
            if head in ("row", "vrow"):
                m = re.compile(r"([A-Za-z_][A-Za-z0-9_]*):").match(self.s, self.i)
                if m:
                    cell = m.group(1)
                    self.i = m.end()
            form.args.append(self.form())
            form.cells.append(cell)
            self.space()
            if self.peek() == ",":
                self.i += 1
                continue
            self.eat(">")
            return form

    def field(self):
        where = self.where
        name = self.name("a field name")
        self.eat(":")
        form = self.form()
        ftype, explicit, api, param = None, False, None, name
        while self.peek() in ("=", "@", "~"):
            ch = self.peek()
            self.i += 1
            if ch == "=":
                ftype, explicit = self.cpptype(), True
            elif ch == "@":
                m = re.compile(r"[0-9]+").match(self.s, self.i)
                if not m:
                    self.fail("expected the field's position in the C++ call after '@'")
                self.i = m.end()
                api = int(m.group(0))
            else:
                param = self.name("a parameter name")
        return Field(name, form, ftype, explicit, param, api, where)

    def fields(self):
        out = []
        self.space()
        while self.i < len(self.s):
            out.append(self.field())
            if self.peek() not in ("", " "):
                self.fail("expected a blank between fields")
            self.space()
        return out

    def params(self):
        out = []
        self.space()
        while self.i < len(self.s):
            name = self.name("a parameter name")
            self.eat(":")
            out.append(Param(self.cpptype(), name))
            self.space()
        return out


def parse_fields(text, where):
    return Cursor(text, where).fields()


def parse_code(text, where):
    try:
        return int(text, 0)
    except ValueError:
        raise TableError(where, "'%s' is not a method code" % text)


def parse_forms(path, shown, forms):
    for header, children in blocks(read_lines(path, shown)):
        if header.keyword() != "form" or children:
            raise TableError(header.where, "a forms file holds 'form' lines only")
        head, doc = split_doc(header.rest(), header.where, "form")
        parts = head.split()
        if len(parts) < 3:
            raise TableError(header.where, "form: expected NAME SIZE C++TYPE [describe]")
        codegen = parts[-1] != "describe"
        if not codegen:
            parts = parts[:-1]
        name, size = parts[0], parts[1]
        if name in forms:
            raise TableError(header.where, "form %s is declared twice" % name)
        if size != "-" and not size.isdigit():
            raise TableError(header.where, "form %s: its size is a number of bytes or '-'" % name)
        forms[name] = FormDef(
            name, None if size == "-" else int(size), " ".join(parts[2:]), doc, codegen,
            header.where)


def parse_direction(line, children, message):
    head, fields_text = split_doc(line.text + (" " if line.text.endswith(":") else ""),
                                  line.where, "a direction")
    words = head.split()
    kind, encoder = words[0], words[1] if len(words) > 1 else None
    if not encoder or not NAME.fullmatch(encoder):
        raise TableError(line.where, "%s: expected the encoder's name" % kind)
    flag = 0 if kind == "request" else 1
    accepts = None
    setter = None
    alias = None
    hand_enc = hand_dec = False
    answered = None
    i = 2
    while i < len(words):
        w = words[i]
        arg = words[i + 1] if i + 1 < len(words) else None
        if w in ("flag", "accepts", "setter", "callback", "answered-by") and arg is None:
            raise TableError(line.where, "'%s' needs a value" % w)
        if w == "flag":
            if arg not in ("0", "1"):
                raise TableError(line.where, "flag is 0 (request) or 1 (reply), not %s" % arg)
            flag = int(arg)
            i += 2
        elif w == "accepts":
            try:
                accepts = [int(x) for x in arg.split(",")]
            except ValueError:
                raise TableError(line.where, "accepts: flags separated by commas")
            i += 2
        elif w == "setter":
            setter = arg
            i += 2
        elif w == "callback":
            alias = arg
            i += 2
        elif w == "answered-by":
            answered = arg
            i += 2
        elif w == "hand":
            hand_enc = hand_dec = True
            i += 1
        elif w == "hand-encoder":
            hand_enc = True
            i += 1
        elif w == "hand-decoder":
            hand_dec = True
            i += 1
        else:
            raise TableError(line.where, "unknown direction option '%s'" % w)
    if setter is None:
        setter = "setLan%s%s" % (message.name, "CB" if kind == "request" else "ResultCB")
    d = Direction(
        kind, encoder, flag, accepts if accepts is not None else [flag], setter, alias,
        hand_enc, hand_dec, parse_fields(fields_text, line.where), None, None, [], "", None,
        answered, line.where, message)
    for c in children:
        k, rest = c.keyword(), c.rest()
        if k == "doc":
            d.doc.append(rest)
        elif k == "called":
            d.called = rest
        elif k == "note":
            d.note = rest
        elif k in ("api", "send", "receive"):
            params = Cursor(rest, c.where).params()
            if k in ("api", "send"):
                d.send = params
            if k in ("api", "receive"):
                d.receive = params
        else:
            raise TableError(c.where, "unknown line '%s' in a direction" % k)
    return d


def parse_message(header, children, family):
    head, doc = split_doc(header.rest(), header.where, "message")
    parts = head.split()
    if len(parts) != 2 or not NAME.fullmatch(parts[0]):
        raise TableError(header.where, "message: expected NAME CODE: doc")
    m = Message(parts[0], parse_code(parts[1], header.where), family, doc, [], {}, {},
                header.where)
    i = 0
    while i < len(children):
        c = children[i]
        k = c.keyword()
        if k in ("request", "reply"):
            sub = []
            i += 1
            while i < len(children) and children[i].indent > c.indent:
                sub.append(children[i])
                i += 1
            m.directions.append(parse_direction(c, sub, m))
            continue
        if k == "field":
            name, text = split_doc(c.rest(), c.where, "field")
            m.field_docs[name] = text
        elif k == "example":
            parts = c.rest().split(None, 1)
            if len(parts) != 2:
                raise TableError(c.where, "example: expected FIELD C++-EXPRESSION")
            m.examples[parts[0]] = parts[1]
        else:
            raise TableError(c.where, "unknown line '%s' in a message" % k)
        i += 1
    return m


def parse_record(header, children, family):
    head, doc = split_doc(header.rest(), header.where, "record")
    if not NAME.fullmatch(head):
        raise TableError(header.where, "record: expected NAME: doc")
    r = Record(head, [doc], [], {}, family, header.where)
    for c in children:
        k = c.keyword()
        if k == "doc":
            r.doc.append(c.rest())
        elif k == "form" or c.text.startswith("form:"):
            fhead, text = split_doc(c.text[4:] + " ", c.where, "form")
            variant = fhead or None
            if variant is not None and not NAME.fullmatch(variant):
                raise TableError(c.where, "form: expected [NAME]: fields")
            if variant in r.forms:
                raise TableError(c.where, "record %s has two forms named '%s'" % (
                    r.name, variant or ""))
            r.forms[variant] = RecordForm(r, variant, parse_fields(text, c.where), "", c.where)
        else:
            name, fdoc = split_doc(c.text, c.where, "record field")
            parts = name.split(None, 1)
            if len(parts) != 2:
                raise TableError(c.where, "record field: expected NAME C++TYPE: doc")
            r.fields.append(RecordField(parts[0], parts[1], fdoc, None, c.where))
    return r


def parse_bits(header, children, family):
    head, doc = split_doc(header.rest(), header.where, "bits")
    parts = head.split()
    if len(parts) != 2 or not parts[1].isdigit():
        raise TableError(header.where, "bits: expected NAME WIDTH: doc")
    r = Record(parts[0], [doc], [], {}, family, header.where, int(parts[1]))
    for c in children:
        if c.keyword() == "doc":
            r.doc.append(c.rest())
            continue
        name, fdoc = split_doc(c.text, c.where, "bit field")
        m = re.fullmatch(r"([A-Za-z_][A-Za-z0-9_]*)\s+([0-9]+)(?:-([0-9]+))?", name)
        if not m:
            raise TableError(c.where, "bit field: expected NAME FIRST[-LAST]: doc")
        first = int(m.group(2))
        last = int(m.group(3)) if m.group(3) else first
        r.fields.append(RecordField(m.group(1), "unsigned int", fdoc, (first, last), c.where))
    return r


def parse_alias(header, in_class):
    head, doc = split_doc(header.rest(), header.where, header.keyword())
    m = re.fullmatch(r"([A-Za-z_][A-Za-z0-9_]*)\s*=\s*(.+)", head)
    if not m:
        raise TableError(header.where, "%s: expected NAME = C++TYPE: doc" % header.keyword())
    return Alias(m.group(1), m.group(2).strip(), doc, in_class, header.where)


def parse_family(path, shown):
    bl = blocks(read_lines(path, shown))
    if not bl or bl[0][0].keyword() != "family":
        where = bl[0][0].where if bl else Where(shown, 1)
        raise TableError(where, "a family file starts with its 'family' line")
    header, children = bl[0]
    parts = header.rest().split(None, 1)
    if len(parts) != 2 or not NAME.fullmatch(parts[0]):
        raise TableError(header.where, "family: expected ID TITLE")
    fam = Family(parts[0], parts[1], [], shown)
    for c in children:
        if c.keyword() != "doc":
            raise TableError(c.where, "a family line holds 'doc' lines only")
        fam.doc.append(c.rest())
    for header, children in bl[1:]:
        k = header.keyword()
        if k == "message":
            fam.messages.append(parse_message(header, children, fam))
        elif k == "record":
            fam.records.append(parse_record(header, children, fam))
        elif k == "bits":
            fam.records.append(parse_bits(header, children, fam))
        elif k in ("type", "alias"):
            if children:
                raise TableError(children[0].where, "%s takes no indented lines" % k)
            fam.aliases.append(parse_alias(header, k == "type"))
        elif k == "family":
            raise TableError(header.where, "one family per file")
        else:
            raise TableError(header.where, "unknown block '%s'" % k)
    return fam


def load(index):
    """Reads the protocol from its index file (protocol/index.table)."""
    base = os.path.dirname(os.path.abspath(index))
    root = os.path.dirname(base)

    def shown(p):
        return os.path.relpath(p, root)

    forms = {}
    families = []
    for header, children in blocks(read_lines(index, shown(index))):
        if children or header.keyword() not in ("forms", "family"):
            raise TableError(header.where, "the index holds 'forms FILE' and 'family FILE' lines")
        path = os.path.join(base, header.rest())
        if not os.path.isfile(path):
            raise TableError(header.where, "no file %s" % header.rest())
        if header.keyword() == "forms":
            parse_forms(path, shown(path), forms)
        else:
            families.append(parse_family(path, shown(path)))
    return Protocol(forms, families)


def files(index):
    """Every table file the index names, the index first (for build dependencies)."""
    base = os.path.dirname(os.path.abspath(index))
    out = [os.path.abspath(index)]
    for header, _ in blocks(read_lines(index, index)):
        out.append(os.path.join(base, header.rest()))
    return out
