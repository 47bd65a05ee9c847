"""The library's generated C++: the method and callback tables, the decoders' declarations, the
records' wire forms, and per family its encoders and decoders."""

import re

from . import cpp

NOTICE = ["// Generated from protocol/*.table by protocol/kzgen: do not edit; edit the table."]
FLAG = {0: "kz::Request", 1: "kz::Reply"}
COMPOSITE = {"list": "listof", "slist": "signedlistof", "map": "mapof", "vrow": "vrow"}


def row_tag(form):
    return "row_" + "_".join(form.cells)


def cpp_form(form):
    """The C++ form type (the argument of kz::Field<>) of a table form."""
    h = form.head
    if h == "record":
        return "kz::form_%s%s" % (form.record, "_" + form.variant if form.variant else "")
    if h == "row":
        if all(form.cells):
            return "kz::" + row_tag(form)
        return "kz::rowof<%s>" % ", ".join(cpp_form(a) for a in form.args)
    if h in COMPOSITE:
        return "kz::%s<%s>" % (COMPOSITE[h], ", ".join(cpp_form(a) for a in form.args))
    return "kz::" + h


def field(form):
    return "kz::Field<%s>" % cpp_form(form)


def methods_def(protocol):
    out = NOTICE + [
        "// KZ_METHOD(name, code, family), in ascending order of code: the Method enum, one",
        "// decoder per row and the dispatcher's route table are made from it.",
    ]
    for m in protocol.by_code():
        out.append("KZ_METHOD(%s, 0x%04X, %s)" % (m.name, m.code, m.family.id))
    return "\n".join(out) + "\n"


def callbacks_def(protocol):
    out = NOTICE + [
        "// KZ_CALLBACK(Type): one per callback setter, family by family; the slots, the setters,",
        "// the connection's relays and the test sinks are made from it.",
    ]
    for fam in protocol.families:
        out.append("")
        out.append("// " + fam.title)
        for d in (d for m in fam.messages for d in m.directions):
            out.append("KZ_CALLBACK(%s)" % d.callback_type)
    return "\n".join(out) + "\n"


def hand_decoder(d):
    return "decode%s%s" % (d.message.name, "Request" if d.kind == "request" else "Reply")


def decoders_inc(protocol):
    out = NOTICE + [
        "// Inside KZProtocolResolverPrivate: one decoder per method code (R: kz::Reader, or",
        "// kz::TracingReader for a dump), and the hand-written decoders of single directions.",
    ]
    for m in protocol.by_code():
        out.append("template <class R>")
        out.append("void decode%s(uchar kzFlag, R& kzIn);" % m.name)
        for d in m.directions:
            if d.hand_decoder:
                out.append("template <class R>")
                out.append("void %s(R& in);" % hand_decoder(d))
    return "\n".join(out) + "\n"


def record_order(protocol):
    """Records in an order where each record form comes after the forms it uses."""
    done, out = set(), []

    def visit(r, seen=()):
        if r.name in done:
            return
        for rf in r.forms.values():
            for f in rf.fields:
                for sub in f.form.walk():
                    if sub.head == "record" and sub.record != r.name and sub.record not in seen:
                        visit(protocol.record(sub.record), seen + (r.name,))
        done.add(r.name)
        out.append(r)

    for r in protocol.records:
        visit(r)
    return out


def named_rows(protocol):
    rows = {}
    for d in protocol.directions():
        for f in d.fields:
            for sub in f.form.walk():
                if sub.head == "row" and all(sub.cells):
                    rows[row_tag(sub)] = sub
    return rows


def recordforms_h(protocol):
    out = NOTICE + [
        "// The wire forms of the records, and the rows whose cells have names: each a Field<>",
        "// with its writer and its reader (which names every field for a dump).",
        "#ifndef KZRESOLVER_RECORDFORMS_H",
        "#define KZRESOLVER_RECORDFORMS_H",
        "",
        '#include "forms.h"',
        "",
        "namespace kz {",
    ]
    for tag, row in sorted(named_rows(protocol).items()):
        cells = row.args
        out += [
            "",
            "struct %s" % tag,
            "{",
            "};",
            "template <>",
            "struct Field<%s>" % tag,
            "{",
            "    using Value = QVariant;",
            "    static void write(Payload& kzOut, const QVariant& v)",
            "    {",
            "        const QVariantList row = fromVariant<QVariantList>(v);",
        ]
        for k, c in enumerate(cells):
            out.append("        %s::write(kzOut, fromVariant<%s::Value>(row.value(%d)));" % (
                field(c), field(c), k))
        out += [
            "    }",
            "    template <class R>",
            "    static QVariant read(R& kzIn)",
            "    {",
            "        QVariantList row;",
            "        kzIn.record([&] {",
        ]
        for name, c in zip(row.cells, cells):
            out.append('            kzIn.label("%s");' % name)
            out.append("            row.append(QVariant::fromValue(%s::read(kzIn)));" % field(c))
        out += ["        });", "        return QVariant(row);", "    }", "};"]
    for r in record_order(protocol):
        for rf in r.forms.values():
            out += [
                "",
                "struct %s" % rf.tag,
                "{",
                "};",
                "template <>",
                "struct Field<%s>" % rf.tag,
                "{",
                "    using Value = %s;" % r.name,
                "    static void write(Payload& kzOut, const %s& v)" % r.name,
                "    {",
            ]
            for f in rf.fields:
                out.append("        %s::write(kzOut, v.%s);" % (field(f.form), f.name))
            out += [
                "    }",
                "    template <class R>",
                "    static %s read(R& kzIn)" % r.name,
                "    {",
                "        %s v;" % r.name,
                "        kzIn.record([&] {",
            ]
            for f in rf.fields:
                out.append('            kzIn.label("%s");' % f.name)
                out.append("            v.%s = %s::read(kzIn);" % (f.name, field(f.form)))
            out += ["        });", "        return v;", "    }", "};"]
    out += ["", "} // namespace kz", "", "#endif"]
    return "\n".join(out) + "\n"


def recordfields_h(protocol):
    out = NOTICE + [
        "// Every field of every record, for code that looks at all of them (the fuzz sinks, test",
        "// messages): kz::forEachField(record, f) calls f with each field in declared order.",
        "#ifndef KZRESOLVER_RECORDFIELDS_H",
        "#define KZRESOLVER_RECORDFIELDS_H",
        "",
        '#include "kzrecords.h"',
        "",
        "namespace kz {",
        "",
        "template <class T>",
        "constexpr bool isRecord = false;",
    ]
    for r in protocol.records:
        out += ["", "template <>", "constexpr bool isRecord<%s> = true;" % r.name]
        out += ["template <class F>", "void forEachField(const %s& v, F&& f)" % r.name, "{"]
        if r.word_bits is not None:
            out.append("    f(v.word());")
        for rf in r.fields if r.word_bits is None else []:
            out.append("    f(v.%s);" % rf.name)
        out.append("}")
    out += ["", "} // namespace kz", "", "#endif"]
    return "\n".join(out) + "\n"


def encoder(d):
    params = ", ".join(cpp.param_decl(p.type, p.name) for p in d.encoder_params())
    out = ["void KZProtocolResolver::%s(%s)" % (d.encoder, params), "{"]
    if d.fields:
        out.append("    kz::Payload kzOut;")
        for f in d.fields:
            out.append("    %s::write(kzOut, %s);" % (field(f.form), f.param))
        payload = "kzOut"
    else:
        payload = "kz::Payload()"
    out.append("    this->d->send(kz::Method::%s, %s, %s);" % (d.message.name, FLAG[d.flag], payload))
    out.append("}")
    return out


def decode_direction(d):
    if d.hand_decoder:
        return ["        %s(kzIn);" % hand_decoder(d)]
    out = []
    for f in d.fields:
        out.append('        kzIn.label("%s");' % f.name)
        out.append("        const auto %s = %s::read(kzIn);" % (f.param, field(f.form)))
    args = "".join(", " + p.name for p in d.callback_params())
    out.append("        this->fire(this->cb.on%s%s);" % (d.callback_type, args))
    return out


def decoder(m):
    reads = any(d.fields or d.hand_decoder for d in m.directions)
    out = [
        "template <class R>",
        "void KZProtocolResolverPrivate::decode%s(uchar kzFlag, R&%s)" % (
            m.name, " kzIn" if reads else ""),
        "{",
    ]
    for i, d in enumerate(m.directions):
        cond = " || ".join("kzFlag == %s" % FLAG[fl] for fl in d.accepts)
        out.append("    %sif (%s) {" % ("" if i == 0 else "} else ", cond))
        out += decode_direction(d)
    out += ["    }", "}"]
    for reader in ("kz::Reader", "kz::TracingReader"):
        out.append("template void KZProtocolResolverPrivate::decode%s(uchar, %s&);" % (
            m.name, reader))
    return out


def family_inc(fam):
    out = NOTICE + [
        "// The %s family's encoders and decoders, from %s. Included at the end of" % (
            fam.title, fam.file),
        "// kz_%s.cpp, after the family's hand-written code." % fam.stem,
    ]
    for m in fam.messages:
        out.append("")
        out.append("// %s (0x%04X)" % (m.name, m.code))
        for d in m.directions:
            if not d.hand_encoder:
                out += encoder(d)
        out += decoder(m)
    return "\n".join(out) + "\n"


def hand_written(fam):
    """What the family's hand-written file has to define, for its header comment and checks."""
    return [d for m in fam.messages for d in m.directions if d.hand]
