"""The protocol reference page (Markdown, a page of the docs): every message by code with its
flags, both directions' fields with their wire forms, and the bytes of one example made by the
library's own encoders (the examples program's output)."""

import json

from .emit_json import answer


def field_rows(d, docs):
    rows = ["| field | wire form | C++ type | meaning |", "|---|---|---|---|"]
    for f in d.fields:
        doc = docs.get(f.name) or docs.get(f.param) or ""
        name = f.name if f.param == f.name else "%s (`%s`)" % (f.name, f.param)
        rows.append("| %s | `%s` | `%s` | %s |" % (
            name, f.form.text(), f.type or "", doc.replace("|", "\\|")))
    return rows


def emit(protocol, examples_json):
    examples = {(e["message"], e["kind"]): e for e in json.loads(examples_json)}
    out = [
        "# Protocol reference {#protocol_reference}",
        "",
        "Generated from the protocol table (`protocol/*.table`); the example bytes are what the",
        "library's encoders write for the values shown, and the fields what its decoders read",
        "back. Flags: 0 request, 1 reply. Forms: see the table's `forms.table`.",
        "",
        "Method codes: %d." % len(protocol.messages),
        "",
    ]
    for m in protocol.by_code():
        out += ["### 0x%04X %s" % (m.code, m.name), "", "%s Family: %s." % (m.doc, m.family.title),
                ""]
        for d in m.directions:
            hand = " (hand-written codec)" if d.hand else ""
            accepts = "" if d.accepts == [d.flag] else "; decoded under flags %s" % ", ".join(
                str(f) for f in d.accepts)
            out.append("**%s** `%s`, flag %d%s, callback `%s`%s." % (
                d.kind.capitalize(), d.encoder, d.flag, accepts, d.setter, hand))
            a = answer(protocol, d)
            if a:
                out.append("Answered by %s (%s, code 0x%04X, flag %d)." % (
                    a["message"], a["direction"], a["code"], a["flag"]))
            out.append("")
            if d.fields:
                out += field_rows(d, m.field_docs)
            else:
                out.append("Empty payload.")
            e = examples.get((m.name, d.kind))
            if e and "payload" in e:
                out += ["", "Example payload:", "",
                        "    " + (e["payload"] or "(empty)"), ""]
                if e.get("fields"):
                    out.append("Read back: " + ", ".join(
                        "%s = %s (%s @%d)" % (f["name"] or "?", f["text"], f["kind"], f["offset"])
                        for f in e["fields"]) + ".")
            out.append("")
    return "\n".join(out) + "\n"
