"""kzrecords.h: the record types the messages carry, with their documentation, their equality
and the bit-word records' conversion to and from their word."""

from . import cpp

BOOL_OR_NUMBER = cpp.SCALARS


def default_init(ctype):
    if ctype == "bool":
        return " = false"
    if ctype in BOOL_OR_NUMBER:
        return " = 0"
    return ""


def trailing_groups(fields, indent):
    """The struct's member lines: a field's doc as a trailing ///< comment where it fits (aligned
    with its neighbours), otherwise as a /// comment above it."""
    pad = " " * indent
    codes = ["%s%s %s%s;" % (pad, f.type, f.name, default_init(f.type)) for f in fields]
    out = []
    group = []  # (code, doc) of consecutive trailing comments

    def flush():
        if not group:
            return
        col = max(len(c) for c, _ in group) + 1
        for c, d in group:
            out.append(c.ljust(col) + "///< " + d)
        group.clear()

    for code, f in zip(codes, fields):
        candidate = group + [(code, f.doc)]
        col = max(len(c) for c, _ in candidate) + 1
        if all(col + 5 + len(d) <= cpp.COLUMNS for _, d in candidate):
            group.append((code, f.doc))
            continue
        if len(code) + 1 + 5 + len(f.doc) <= cpp.COLUMNS and not group:
            group.append((code, f.doc))
            continue
        flush()
        if len(code) + 1 + 5 + len(f.doc) <= cpp.COLUMNS:
            group.append((code, f.doc))
            continue
        out += cpp.comment([f.doc], indent)
        out.append(code)
    flush()
    return out


def function(signature, body):
    """A short inline function: on one line when it fits, otherwise with its body below."""
    one = "%s { %s }" % (signature, body)
    if len(one) <= cpp.COLUMNS:
        return [one]
    return [signature, "{", "    " + body, "}"]


def equality(r):
    if r.word_bits is not None:
        sig = "inline bool operator==(%s a, %s b)" % (r.name, r.name)
        out = ["/// Equal when the words are equal."]
        out += function(sig, "return a.word() == b.word();")
        sig_ne = "inline bool operator!=(%s a, %s b)" % (r.name, r.name)
    else:
        sig = "inline bool operator==(const %s& a, const %s& b)" % (r.name, r.name)
        terms = ["a.%s == b.%s" % (f.name, f.name) for f in r.fields]
        out = ["/// Equal when every field is equal (lists and maps entry by entry)."]
        one = "%s { return %s; }" % (sig, " && ".join(terms))
        if len(one) <= cpp.COLUMNS:
            out.append(one)
        else:
            out += [sig, "{"]
            lines, cur = [], "    return "
            for i, t in enumerate(terms):
                piece = t + (" &&" if i + 1 < len(terms) else ";")
                if cur.strip() != "return" and len(cur) + 1 + len(piece) > cpp.COLUMNS:
                    lines.append(cur)
                    cur = " " * 11 + piece
                else:
                    cur = cur + piece if cur.endswith("return ") else cur + " " + piece
            lines.append(cur)
            out += lines + ["}"]
        sig_ne = "inline bool operator!=(const %s& a, const %s& b)" % (r.name, r.name)
    out.append("/// Not equal: some field differs.")
    out += function(sig_ne, "return !(a == b);")
    return out


def bit_word(r):
    word = "quint%d" % r.word_bits
    out = cpp.comment(r.doc, 0)
    out += ["struct %s" % r.name, "{"]
    codes = []
    for f in r.fields:
        lo, hi = f.bits
        codes.append(("    unsigned int %s : %d;" % (f.name, hi - lo + 1), f.doc))
    col = max(len(c) for c, _ in codes) + 1
    out += [c.ljust(col) + "///< " + d for c, d in codes]
    inits = []
    terms = []
    for f in r.fields:
        lo, hi = f.bits
        width = hi - lo + 1
        shifted = "w >> %d" % lo if lo else "w"
        if hi == r.word_bits - 1:
            inits.append("%s(%s)" % (f.name, shifted))
        else:
            mask = "1" if width == 1 else "0x%X" % ((1 << width) - 1)
            inits.append("%s(%s & %s)" % (f.name, shifted, mask))
        terms.append("%s(%s)%s" % (word, f.name, " << %d" % lo if lo else ""))
    out += [
        "",
        "    /// All fields 0.",
        "    %s() : %s(0u) {}" % (r.name, r.name),
        "    /// The fields of a %d-bit word." % r.word_bits,
    ]
    out.append("    explicit %s(%s w)" % (r.name, word))
    out += wrap_list(": ", inits, ", ", 8)
    out.append("    {}")
    out.append("    /// The %d-bit word of these fields." % r.word_bits)
    out += ["    %s word() const" % word, "    {"]
    out += wrap_list("return ", terms, " | ", 8, ";")
    out += ["    }", "};"]
    return out


def wrap_list(head, items, sep, indent, tail=""):
    """head item1 sep item2 ...tail, wrapped after a separator; continuation lines aligned
    after the head."""
    pad = " " * indent
    lines, cur = [], pad + head
    for i, item in enumerate(items):
        piece = item + (sep.rstrip() if i + 1 < len(items) else tail)
        if cur.strip() != head.strip() and len(cur) + 1 + len(piece) > cpp.COLUMNS:
            lines.append(cur)
            cur = pad + " " * len(head) + piece
        else:
            cur = cur + piece if cur.endswith(head) else cur + " " + piece
    lines.append(cur)
    return lines


def record(r):
    if r.word_bits is not None:
        return bit_word(r)
    out = cpp.comment(r.doc, 0)
    out += ["struct %s" % r.name, "{"]
    out += trailing_groups(r.fields, 4)
    out.append("};")
    return out


def emit(protocol):
    out = cpp.generated_notice()
    out += [
        "",
        "/// \\file kzrecords.h",
        "/// Record types carried by the messages of KZProtocolResolver: plain value types, copied",
        "/// field by field.",
        "#ifndef KZRESOLVER_KZRECORDS_H",
        "#define KZRESOLVER_KZRECORDS_H",
        "",
        "#include <QList>",
        "#include <QMap>",
        "#include <QString>",
        "#include <QStringList>",
        "#include <QVariant>",
    ]
    for fam in protocol.families:
        aliases = [a for a in fam.aliases if not a.in_class]
        if not fam.records and not aliases:
            continue
        out += ["", "// " + fam.title + " " + "-" * (96 - len(fam.title))]
        for r in fam.records:
            out.append("")
            out += record(r)
            out.append("")
            out += equality(r)
        for a in aliases:
            out.append("")
            out += cpp.comment([a.doc], 0)
            out.append("using %s = %s;" % (a.name, a.type))
    out += ["", "#endif // KZRESOLVER_KZRECORDS_H"]
    return "\n".join(out) + "\n"
