"""kz.lua: the Wireshark dissector. Its runtime (frames, checksums, body coding, the reading of
each wire form) is protocol/kzgen/dissector.lua; this module puts in front of it what the table
says: the method codes, the fields of each message direction and record form, and one display
filter field per field path (kz.user.name) with the type its values have."""

import os

INTEGER = {"u8", "u16", "i16", "u32", "i32", "sbyte", "low16", "dblint", "dbltrunc", "power",
           "itext"}
BOOLEAN = {"flag8", "flag8x"}
TEXT = {"strz", "str16", "datetext"}
DOUBLE = {"dtext"}
BYTES = {"blob32", "blk16", "bytes"}
# The body header's own filter fields; a payload field of the same name is filed under
# kz.field.NAME instead.
HEADER = {"flag", "type", "method", "code", "seq", "frame", "field", "garbage"}


def lua_str(s):
    return '"%s"' % s.replace("\\", "\\\\").replace('"', '\\"')


def lua_form(form):
    h = form.head
    parts = ["h=%s" % lua_str(h)]
    if h == "record":
        parts.append("r=%s" % lua_str(form.record + ("." + form.variant if form.variant else "")))
    if h == "struct":
        parts.append("f=%s" % lua_fields(form.fields))
    if h in ("row", "vrow"):
        parts.append("cells={%s}" % ", ".join(
            "{n=%s, f=%s}" % (lua_str(n or "cell%d" % i), lua_form(a))
            for i, (n, a) in enumerate(zip(form.cells or [None] * len(form.args), form.args))))
    elif form.args:
        parts.append("a={%s}" % ", ".join(lua_form(a) for a in form.args))
    if form.count is not None:
        parts.append("c=%s" % lua_str(form.count))
    return "{%s}" % ", ".join(parts)


def lua_fields(fields):
    return "{%s}" % ", ".join("{n=%s, f=%s}" % (lua_str(f.name), lua_form(f.form))
                              for f in fields)


class Paths:
    """Every field path a payload can show, with the kind of value it has there."""

    def __init__(self, protocol):
        self.protocol = protocol
        self.kinds = {}

    def note(self, path, kind):
        self.kinds.setdefault(path, set()).add(kind)

    def fields(self, prefix, fields, seen):
        for f in fields:
            name = f.name
            if not prefix and name in HEADER:
                name = "field." + name
            self.form(prefix + name, f.form, seen)

    def form(self, path, form, seen):
        h = form.head
        if h in INTEGER:
            self.note(path, "int")
        elif h in BOOLEAN:
            self.note(path, "bool")
        elif h in TEXT:
            self.note(path, "text")
        elif h in DOUBLE:
            self.note(path, "double")
        elif h in BYTES:
            self.note(path, "bytes")
        else:
            self.note(path, "text")  # a composite: its count or its summary
            if h == "strlist":
                self.note(path + ".item", "text")
            elif h in ("groupmap", "strintmap", "numbermap", "optstrintmap"):
                self.note(path + ".key", "text")
                value = {"groupmap": "text", "numbermap": "double"}.get(h, "int")
                self.note(path + ".value", value)
                if h == "groupmap":
                    self.note(path + ".value.item", "text")
            elif h in ("list", "slist", "repeat"):
                self.form(path, form.args[0], seen) if form.args[0].head in (
                    "record", "struct") else self.form(path + ".item", form.args[0], seen)
            elif h == "map":
                self.form(path + ".key", form.args[0], seen)
                self.form(path + ".value", form.args[1], seen)
            elif h in ("row", "vrow"):
                cells = form.cells or [None] * len(form.args)
                for i, (n, a) in enumerate(zip(cells, form.args)):
                    self.form(path + "." + (n or "cell%d" % i), a, seen)
            elif h == "struct":
                self.fields(path + ".", form.fields, seen)
            elif h == "record":
                key = (path, form.record, form.variant)
                if key in seen:
                    return
                rec = self.protocol.record(form.record)
                self.fields(path + ".", rec.forms[form.variant].fields, seen | {key})

    def lua(self):
        lines = []
        for path in sorted(self.kinds):
            kinds = self.kinds[path]
            kind = kinds.pop() if len(kinds) == 1 else "text"
            lines.append("  [%s] = %s," % (lua_str(path), lua_str(kind)))
        return "\n".join(lines)


def emit(protocol):
    out = ["-- Generated from protocol/*.table by protocol/kzgen: do not edit; edit the table.",
           "-- The dissector of the KZ LAN protocol for Wireshark (Lua 5.2 or later).", "",
           "local METHODS = {"]
    for m in protocol.by_code():
        by_flag = {}
        for d in m.directions:  # the flags a decoder accepts, then the flag it is sent under
            for flag in d.accepts or []:
                by_flag.setdefault(flag, d)
        for d in m.directions:
            by_flag[d.flag] = d
        dirs = ["[%d]=%s" % (flag, lua_fields(d.fields)) for flag, d in sorted(by_flag.items())]
        out.append("  [0x%04X] = {name=%s, %s}," % (m.code, lua_str(m.name), ", ".join(dirs)))
    out.append("}")
    out.append("")
    out.append("local RECORDS = {")
    for r in protocol.records:
        for v, rf in r.forms.items():
            out.append("  [%s] = %s," % (lua_str(r.name + ("." + v if v else "")),
                                          lua_fields(rf.fields)))
    out.append("}")
    out.append("")
    paths = Paths(protocol)
    for d in protocol.directions():
        paths.fields("", d.fields, frozenset())
    out.append("local FIELD_KINDS = {")
    out.append(paths.lua())
    out.append("}")
    out.append("")
    with open(os.path.join(os.path.dirname(__file__), "dissector.lua"), encoding="utf-8") as f:
        out.append(f.read())
    return "\n".join(out)
