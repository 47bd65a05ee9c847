"""kzmessages.h: the public declarations of every message (callback types, encoders, setters)
with their documentation, family by family. kzprotocolresolver.h includes it inside the class."""

from . import cpp

INDENT = 4


def setter_doc(d):
    text = "Called %s" % d.called
    if d.note:
        text += "; " + d.note
    return text + "."


def family_lines(fam):
    out = []
    out.append("    /// \\name " + fam.title)
    out += cpp.comment(fam.doc, INDENT)
    out.append("    ///@{")
    out.append("")
    for a in fam.aliases:
        if a.in_class:
            out += cpp.comment([a.doc], INDENT)
            out.append("    using %s = %s;" % (a.name, a.type))
    directions = [d for m in fam.messages for d in m.directions]
    for d in directions:
        out += cpp.comment(["Callback of %s(): called %s." % (d.setter, d.called)], INDENT)
        if d.callback_alias:
            out.append("    using %s = %s;" % (d.callback_type, d.callback_alias))
        else:
            out += cpp.call_layout("using %s = void (*)(" % d.callback_type,
                                   cpp.cb_type(d.callback_type, d.callback_params()), ");", INDENT)
    out.append("")
    for d in directions:
        out += cpp.comment(d.doc, INDENT)
        out += cpp.call_layout("void %s(" % d.encoder,
                               [cpp.param_decl(p.type, p.name) for p in d.encoder_params()], ");",
                               INDENT)
    for d in directions:
        out += cpp.comment([setter_doc(d)], INDENT)
        out.append("    void %s(%s fn);" % (d.setter, d.callback_type))
    out.append("    ///@}")
    return out


def emit(protocol):
    out = cpp.generated_notice()
    out += [
        "//",
        "// The messages of KZProtocolResolver, family by family: for each, the callback types,",
        "// the encoders and the callback setters, with their documentation. It is part of the",
        "// class: kzprotocolresolver.h includes it inside the class body.",
        "#ifndef KZRESOLVER_IN_RESOLVER_CLASS",
        "#error \"kzmessages.h belongs inside KZProtocolResolver: include kzprotocolresolver.h\"",
        "#endif",
        "// Laid out as inside the class (a formatter run on this file alone would not know).",
        "// clang-format off",
        "",
    ]
    for i, fam in enumerate(protocol.families):
        if i:
            out.append("")
        out += family_lines(fam)
    out.append("// clang-format on")
    return "\n".join(out) + "\n"
