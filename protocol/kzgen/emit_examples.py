"""examples.inc: one call of every encoder with example values made from its fields' forms (or,
where the table gives none, their C++ types), for the examples program that fills the reference
page with real bytes: KZ_EXAMPLE(message, kind, encoder, call)."""

import re

from .validate import default_type

NUMBER_TYPES = {"int", "unsigned int", "unsigned char", "unsigned short", "short", "qint32",
                "quint8", "quint16", "quint32", "qint16"}


class Sampler:
    def __init__(self, protocol):
        self.protocol = protocol
        self.n = 0

    def number(self):
        self.n += 1
        return str(self.n)

    @staticmethod
    def text(name):
        return 'QStringLiteral("%s")' % name

    def form(self, form, name, ctype=None):
        """A C++ expression of an example value of form (as ctype, where the field gives one)."""
        h = form.head
        if h in ("strz", "str16"):
            return self.text(name)
        if h in ("flag8", "flag8x"):
            return "true"
        if h in ("u8", "u16", "i16", "u32", "i32", "sbyte", "low16", "itext"):
            return self.number()
        if h in ("dtext", "dblint", "dbltrunc"):
            return "1.5"
        if h == "datetext":
            return "QDate(2024, 3, 5)"
        if h == "strlist":
            return "QStringList{%s}" % self.text(name)
        if h == "groupmap":
            return "QMap<QString, QStringList>{{%s, {%s}}}" % (self.text("lv1"), self.text("lv2"))
        if h in ("strintmap", "optstrintmap"):
            return "QMap<QString, int>{{%s, %s}}" % (self.text("key"), self.number())
        if h == "numbermap":
            return "QVariantMap{{%s, 0.5}}" % self.text("key")
        if h in ("blob32", "bytes"):
            return 'QByteArrayLiteral("data")'
        if h == "blk16":
            return "QByteArray(16, 'z')"
        if h == "power":
            return "fctp_user2_power(5u)"
        if h in ("list", "slist"):
            t = ctype or default_type(form, self.protocol)
            entry = self.form(form.args[0], name)
            if t.replace(" ", "") == "QList<QVariant>" and form.args[0].head != "row":
                entry = "QVariant(%s)" % entry
            return "%s{%s}" % (t, entry)
        if h == "map":
            t = default_type(form, self.protocol)
            return "%s{{%s, %s}}" % (t, self.form(form.args[0], "key"), self.form(form.args[1], name))
        if h in ("row", "vrow"):
            cells = []
            for cell, sub in zip(form.cells, form.args):
                v = self.form(sub, cell or name)
                cells.append("QVariant::fromValue(%s)" % v if sub.head in (
                    "strintmap", "optstrintmap") else "QVariant(%s)" % v)
            row = "QVariantList{%s}" % ", ".join(cells)
            return "QVariant(%s)" % row if h == "row" else row
        if h == "record":
            return self.record(self.protocol.record(form.record), form.variant)
        raise ValueError("no example for form %s" % form.text())

    def record(self, r, variant=None):
        if r.word_bits is not None:
            return "%s(5u)" % r.name
        form = r.forms.get(variant) or next(iter(r.forms.values()), None)
        sets = []
        for f in form.fields if form else []:
            sets.append("v.%s = %s;" % (f.name, self.form(f.form, f.name)))
        return "[] { %s v; %s return v; }()" % (r.name, " ".join(sets))

    def type(self, ctype, name):
        """An example of a C++ type, for parameters the table gives no form for."""
        t = ctype.replace(" ", "")
        if t == "QString":
            return self.text(name)
        if t == "bool":
            return "true"
        if ctype in NUMBER_TYPES:
            return self.number()
        if t == "QStringList":
            return "QStringList{%s}" % self.text(name)
        m = re.fullmatch(r"QList<(\w+)>", t)
        if m and self.protocol.record(m.group(1)):
            return "QList<%s>{%s}" % (m.group(1), self.record(self.protocol.record(m.group(1))))
        m = re.fullmatch(r"QMap<QString,(\w+)>", t)
        if m and self.protocol.record(m.group(1)):
            return "QMap<QString, %s>{{%s, %s}}" % (
                m.group(1), self.text(name), self.record(self.protocol.record(m.group(1))))
        if t == "QMap<QString,QStringList>":
            texts = ", ".join(self.text(x) for x in ("a", "b", "c", "d"))
            return "QMap<QString, QStringList>{{%s, {%s}}}" % (self.text(name), texts)
        if t == "QMap<QString,int>":
            return "QMap<QString, int>{{%s, %s}}" % (self.text(name), self.number())
        raise ValueError("no example for type %s" % ctype)


def call(protocol, d):
    s = Sampler(protocol)
    examples = d.message.examples
    by_param = {f.param: f for f in d.fields}
    args = []
    for p in d.encoder_params():
        if p.name in examples:
            args.append(examples[p.name])
        elif p.name in by_param and d.send is None:
            f = by_param[p.name]
            args.append(s.form(f.form, f.name, f.type))
        else:
            args.append(s.type(p.type, p.name))
    return "%s(%s)" % (d.encoder, ", ".join(args))


def emit(protocol):
    out = ["// Generated from protocol/*.table: KZ_EXAMPLE(message, kind, encoder, call), one call",
           "// of every encoder with example values."]
    for d in protocol.directions():
        out.append('KZ_EXAMPLE(%s, "%s", %s, %s)' % (d.message.name, d.kind, d.encoder,
                                                      call(protocol, d)))
    return "\n".join(out) + "\n"
