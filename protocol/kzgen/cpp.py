"""C++ text: parameter types, documentation comments and declarations laid out as clang-format
(the project's .clang-format, 100 columns) lays them out, so that the committed generated headers
read like the rest of the code and a formatter leaves them alone."""

import re

COLUMNS = 100

SCALARS = {
    "bool", "int", "unsigned int", "unsigned char", "unsigned short", "short", "double", "float",
    "qint8", "qint16", "qint32", "qint64", "quint8", "quint16", "quint32", "quint64", "uchar",
    "ushort", "uint", "char", "long", "unsigned long",
}


def param_decl(ctype, name):
    """A parameter as the API passes it: scalars by value, everything else by const
    reference."""
    if ctype in SCALARS:
        return "%s %s" % (ctype, name)
    return "const %s& %s" % (ctype, name)


def wrap(text, width):
    """Words of text in lines of at most width characters (a longer word stands alone)."""
    lines, cur = [], ""
    for word in text.split():
        if cur and len(cur) + 1 + len(word) > width:
            lines.append(cur)
            cur = word
        else:
            cur = cur + " " + word if cur else word
    if cur:
        lines.append(cur)
    return lines


def doc_paragraphs(doc):
    """The doc lines of the table as paragraphs: consecutive lines join; a line that starts
    with '- ' starts a list item; an empty line stays a blank line."""
    out = []
    for line in doc:
        if not line:
            out.append(None)
        elif line.startswith("- ") or not out or out[-1] is None:
            out.append(line)
        else:
            out[-1] += " " + line
    return out


def comment(doc, indent, marker="///"):
    """A documentation comment of the given lines, wrapped to the column limit."""
    pad = " " * indent
    out = []
    for para in doc_paragraphs(doc):
        if para is None:
            out.append(pad + marker)
            continue
        hang = "  " if para.startswith("- ") else ""
        width = COLUMNS - indent - len(marker) - 1
        first, *rest = wrap(para, width) or [""]
        out.append("%s%s %s" % (pad, marker, first))
        if rest:
            for line in wrap(" ".join(rest), width - len(hang)):
                out.append("%s%s %s%s" % (pad, marker, hang, line))
    return out


def pack(items, width, tail=""):
    """Items separated by ', ' in lines of at most width characters, the tail after the last;
    None when one item alone is too wide."""
    lines, cur = [], ""
    for i, item in enumerate(items):
        last = i + 1 == len(items)
        piece = item + ("" if last else ",")
        need = len(piece) + (len(tail) if last else 0)
        if need > width:
            return None
        if cur and len(cur) + 1 + need > width:
            lines.append(cur)
            cur = piece
        else:
            cur = cur + " " + piece if cur else piece
    lines.append(cur)
    return lines


def call_layout(head, items, tail, indent):
    """head(items)tail, as clang-format breaks it: on one line when it fits; otherwise with
    the items aligned after the parenthesis; or, when that takes clearly more lines (or does
    not fit), with a break after the parenthesis and the items indented by four."""
    pad = " " * indent
    one = "%s%s%s%s" % (pad, head, ", ".join(items), tail)
    if len(one) <= COLUMNS:
        return [one]
    col = indent + len(head)
    aligned = pack(items, COLUMNS - col, tail)
    broken = pack(items, COLUMNS - indent - 4, tail)
    if not aligned and " = " in head:
        # using X = ...: the whole right-hand side on the next line, when it fits there.
        left, right = head.split(" = ", 1)
        rest = "%s    %s%s%s" % (pad, right, ", ".join(items), tail)
        if len(rest) <= COLUMNS:
            return [pad + left + " =", rest]
    if aligned and (not broken or len(aligned) <= len(broken) + 2):
        out = [pad + head + aligned[0]]
        out += [" " * col + line for line in aligned[1:]]
    else:
        out = [pad + head.rstrip()]
        out += [pad + "    " + line for line in broken]
    out[-1] += tail
    return out


def cb_type(name, params):
    """A callback type's parameters: the context pointer, then the message's values."""
    return ["void* ctx"] + [param_decl(p.type, p.name) for p in params]


def qualify(ctype, class_aliases, scope="KZProtocolResolver"):
    """ctype with the resolver's class aliases (StopMap, ...) qualified, for use outside the
    class."""
    for a in class_aliases:
        ctype = re.sub(r"(?<![A-Za-z0-9_:])%s(?![A-Za-z0-9_])" % a, "%s::%s" % (scope, a), ctype)
    return ctype


def bare(ctype):
    """The type without const and reference, as a meta-type registration names it."""
    return ctype


def lower_first(name):
    return name[:1].lower() + name[1:]


def generated_notice(marker="//"):
    return [
        "%s Generated from protocol/*.table by protocol/kzgen: do not edit. After changing the" % marker,
        "%s table, refresh with: cmake --build <build dir> --target protocol_refresh" % marker,
    ]
