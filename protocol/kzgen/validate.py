"""Strict checks of a parsed protocol. The first problem found is raised as a TableError that
names its file and line; nothing is generated from a table that fails here."""

import re

from .model import TableError

COMPOSITE = {"list": 1, "slist": 1, "map": 2, "row": None, "vrow": None, "repeat": 1}
# Names the generated code uses for itself, and C++ words a parameter cannot be called.
RESERVED = {
    "this", "int", "bool", "char", "double", "float", "long", "short", "unsigned",
    "signed", "const", "auto", "class", "struct", "new", "delete", "default", "template",
    "typename", "return", "if", "else", "for", "while", "do", "switch", "case", "break",
    "continue", "namespace", "using", "public", "private", "protected", "operator", "void",
    "true", "false", "static", "inline", "virtual", "register", "union", "enum", "goto",
}


def default_type(form, protocol):
    """The C++ type a field of this form has in the API, or None when the form does not say."""
    h = form.head
    if h in protocol.forms:
        return protocol.forms[h].cpptype
    if h in ("list", "slist"):
        inner = default_type(form.args[0], protocol)
        return "QList<%s>" % inner if inner else None
    if h == "map":
        k = default_type(form.args[0], protocol)
        v = default_type(form.args[1], protocol)
        return "QMap<%s, %s>" % (k, v) if k and v else None
    if h == "row":
        return "QVariant"
    if h == "vrow":
        return "QList<QVariant>"
    if h == "record":
        return form.record
    if h == "bytes":
        return "QByteArray"
    return None


def record_form(protocol, form, where):
    """The RecordForm a 'record' form names."""
    r = protocol.record(form.record)
    if r is None:
        raise TableError(where, "unknown form or record '%s'" % form.record)
    if form.variant not in r.forms:
        if form.variant is None:
            raise TableError(where, "record %s has several wire forms (%s): name one, as %s.NAME"
                             % (r.name, ", ".join(sorted(v for v in r.forms if v)), r.name))
        raise TableError(where, "record %s has no wire form '%s'" % (r.name, form.variant))
    return r.forms[form.variant]


def check_form(protocol, form, where, codegen):
    """Known heads, the right number of arguments; with codegen, only forms the generator can
    write code for."""
    for f in form.walk():
        if f.head not in protocol.forms and f.head not in COMPOSITE and protocol.record(f.head):
            f.head, f.record, f.variant = "record", f.head, None  # a record's only wire form
        h = f.head
        if h == "struct" or h == "bytes" or h == "repeat":
            if codegen:
                raise TableError(where, "'%s' describes hand-written messages only: mark the "
                                 "direction hand, or use a form with code" % f.text())
            continue
        if h == "record":
            record_form(protocol, f, where)
            continue
        if h in COMPOSITE:
            want = COMPOSITE[h]
            if want is not None and len(f.args) != want:
                raise TableError(where, "%s takes %d form%s, not %d" % (
                    h, want, "" if want == 1 else "s", len(f.args)))
            if not f.args:
                raise TableError(where, "%s<> needs its cells" % h)
            if h == "row" and any(f.cells) and not all(f.cells):
                raise TableError(where, "a row names all of its cells or none")
            continue
        if f.args:
            raise TableError(where, "form %s takes no arguments" % h)
        if h not in protocol.forms:
            raise TableError(where, "unknown form '%s' (forms are declared in forms.table)" % h)
        if codegen and not protocol.forms[h].codegen:
            raise TableError(where, "form %s describes hand-written messages only" % h)


def check_counts(fields):
    """bytes(n) and repeat<n,...> count with an earlier field of the same list."""
    seen = set()
    for f in fields:
        for sub in f.form.walk():
            if sub.count is not None:
                name = sub.count.split("+")[0]
                if name not in seen:
                    later = any(g.name == name for g in fields)
                    raise TableError(f.where, "%s counts with '%s', %s" % (
                        f.name, name, "which comes later: wrong order" if later
                        else "which is no earlier field"))
            if sub.head == "struct":
                check_counts(sub.fields)
        seen.add(f.name)


def check_names(fields, what):
    names = set()
    for f in fields:
        for n in (f.name, f.param):
            if n in RESERVED or n.startswith("kz"):
                raise TableError(f.where, "%s: '%s' cannot name a field" % (what, n))
        if f.name in names:
            raise TableError(f.where, "%s: two fields named %s" % (what, f.name))
        names.add(f.name)


def check_order(fields, what):
    """The '@' positions: each within the call and none twice."""
    n = len(fields)
    taken = {}
    for f in fields:
        if f.api is None:
            continue
        if f.api >= n:
            raise TableError(f.where, "%s: %s@%d, but the call has %d parameter%s: wrong order" % (
                what, f.name, f.api, n, "" if n == 1 else "s"))
        if f.api in taken:
            raise TableError(f.where, "%s: %s and %s both at position %d: wrong order" % (
                what, taken[f.api], f.name, f.api))
        taken[f.api] = f.name


def check_direction(protocol, d):
    what = "%s %s" % (d.message.name, d.kind)
    check_names(d.fields, what)
    check_order(d.fields, what)
    check_counts(d.fields)
    regular = not d.hand
    for f in d.fields:
        check_form(protocol, f.form, f.where, codegen=not (d.hand_encoder and d.hand_decoder))
        if f.type is None:
            f.type = default_type(f.form, protocol)
        if f.type is None and (regular or d.send is None or d.receive is None):
            raise TableError(f.where, "%s: field %s needs its C++ type (%s=TYPE)" % (
                what, f.name, f.text()))
    if not d.doc:
        raise TableError(d.where, "%s: the encoder needs a 'doc' line" % what)
    if not d.called:
        raise TableError(d.where, "%s: the callback needs a 'called' line (called for ...)" % what)
    if not re.fullmatch(r"lan[A-Z][A-Za-z0-9]*", d.encoder):
        raise TableError(d.where, "%s: encoder names start with 'lan'" % what)
    if not re.fullmatch(r"setLan[A-Za-z0-9]*CB", d.setter):
        raise TableError(d.where, "%s: setter names are setLan...CB" % what)
    for fl in d.accepts:
        if fl not in (0, 1):
            raise TableError(d.where, "%s: accepts flags 0 and 1 only" % what)


def validate(protocol):
    """Checks the whole protocol; returns it when nothing is wrong."""
    families = {}
    for fam in protocol.families:
        if fam.id in families:
            raise TableError(fam.messages[0].where if fam.messages else None,
                             "family %s appears twice" % fam.id)
        families[fam.id] = fam

    records = {}
    aliases = {}
    for fam in protocol.families:
        for a in fam.aliases:
            if a.name in aliases:
                raise TableError(a.where, "type %s is declared twice" % a.name)
            aliases[a.name] = a
        for r in fam.records:
            if r.name in records:
                raise TableError(r.where, "record %s is declared twice (also %s)" % (
                    r.name, records[r.name].where))
            records[r.name] = r
            names = set()
            for f in r.fields:
                if f.name in names:
                    raise TableError(f.where, "record %s: two fields named %s" % (r.name, f.name))
                names.add(f.name)
            if r.word_bits is not None:
                used = set()
                for f in r.fields:
                    lo, hi = f.bits
                    if hi < lo or hi >= r.word_bits or used & set(range(lo, hi + 1)):
                        raise TableError(f.where, "bits %d-%d of %s overlap or fall outside "
                                         "its %d bits" % (lo, hi, r.name, r.word_bits))
                    used |= set(range(lo, hi + 1))
    for r in protocol.records:
        for rf in r.forms.values():
            check_names(rf.fields, "record %s form %s" % (r.name, rf.variant or ""))
            for f in rf.fields:
                if f.explicit_type or f.api is not None or f.param != f.name:
                    raise TableError(f.where, "a record's wire form gives no types, positions "
                                     "or parameter names: its fields are the record's")
                if r.field(f.name) is None:
                    raise TableError(f.where, "record %s has no field %s" % (r.name, f.name))
                check_form(protocol, f.form, f.where, codegen=True)
                f.type = r.field(f.name).type

    codes = {}
    names = {}
    encoders = {}
    setters = {}
    for m in protocol.messages:
        if m.code in codes:
            raise TableError(m.where, "code 0x%04X is taken twice: %s and %s (%s)" % (
                m.code, codes[m.code].name, m.name, codes[m.code].where))
        if not 0 <= m.code <= 0xFFFF:
            raise TableError(m.where, "code %d does not fit 16 bits" % m.code)
        codes[m.code] = m
        if m.name in names:
            raise TableError(m.where, "message %s is declared twice" % m.name)
        names[m.name] = m
        if not m.directions:
            raise TableError(m.where, "message %s has no direction: give it a request or a "
                             "reply line" % m.name)
        kinds = set()
        flags = {}
        for d in m.directions:
            if d.kind in kinds:
                raise TableError(d.where, "message %s has two %s lines" % (m.name, d.kind))
            kinds.add(d.kind)
            for fl in d.accepts:
                if fl in flags:
                    raise TableError(d.where, "message %s: flag %d is decoded by its %s already"
                                     % (m.name, fl, flags[fl]))
                flags[fl] = d.kind
            if d.encoder in encoders:
                raise TableError(d.where, "encoder %s is declared twice" % d.encoder)
            encoders[d.encoder] = d
            if d.setter in setters:
                raise TableError(d.where, "setter %s is declared twice" % d.setter)
            setters[d.setter] = d
            check_direction(protocol, d)
        for name in m.field_docs:
            if not any(f.name == name or f.param == name
                       for d in m.directions for f in d.fields) and not any(
                    p.name == name for d in m.directions
                    for p in (d.send or []) + (d.receive or [])):
                raise TableError(m.where, "message %s: a doc for field %s, which it does not "
                                 "have" % (m.name, name))

    callbacks = {d.callback_type: d for d in protocol.directions()}
    for d in protocol.directions():
        if d.callback_alias is not None:
            target = callbacks.get(d.callback_alias)
            if target is None or target.callback_alias is not None:
                raise TableError(d.where, "callback %s: no callback type %s of its own" % (
                    d.callback_type, d.callback_alias))
            if [p.type for p in target.callback_params()] != [
                    p.type for p in d.callback_params()]:
                raise TableError(d.where, "callback %s is %s, but their parameters differ" % (
                    d.callback_type, d.callback_alias))
        if d.answered_by is not None:
            m = re.fullmatch(r"([A-Za-z0-9_]+)\.(request|reply)", d.answered_by)
            if not m or protocol.message(m.group(1)) is None or protocol.message(
                    m.group(1)).direction(m.group(2)) is None:
                raise TableError(d.where, "answered-by %s: expected an existing MESSAGE.request "
                                 "or MESSAGE.reply" % d.answered_by)
    return protocol
