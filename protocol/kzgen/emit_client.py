"""KZClient's requests: one method per request that its own message answers, returning a typed
reply, and the struct of each reply's values.

  kzclientrequests.h     committed; KZClient includes it inside its class body
  kzclient_requests.inc  the methods' definitions
  kzclient_replies.inc   KZ_CLIENT_REPLY(Values, code, signal): the reply signals the client
                         takes its answers from
"""

from . import cpp
from .emit_signals import class_aliases, signal_name
from .model import TableError

INDENT = 4

# Not requests of the client: the login has a call of its own, and KZClient's own members.
SKIPPED = {"Login"}
RESERVED = {
    "state", "error", "errorString", "login", "logout", "connectToHost", "disconnectFromHost",
    "setDevice", "device", "timeout", "setTimeout", "connection", "isLoggedIn", "loginCode",
    "isAdministrator", "setAutoReconnect", "autoReconnect", "destroyed", "deleteLater",
}


def requests(protocol):
    """The messages whose request their own reply answers, one reply per request."""
    out = []
    for m in protocol.messages:
        rq, rp = m.direction("request"), m.direction("reply")
        if m.name in SKIPPED or not rq or not rp or rq.answered_by:
            continue
        out.append((m, rq, rp))
    return out


def method_name(rq):
    name = cpp.lower_first(rq.encoder[len("lan"):])
    if name in RESERVED:
        raise TableError(rq.where, "encoder %s would make a KZClient method named %s, which the "
                         "client already uses" % (rq.encoder, name))
    return name


def values_name(m):
    return "%sReply" % m.name


def value_fields(protocol, m, rp):
    """The reply's values as (type, name, doc), in the order of the callback."""
    aliases = class_aliases(protocol)
    docs = {}
    if rp.receive is None:
        for f in rp.fields:
            if f.name in m.field_docs:
                docs[f.param] = m.field_docs[f.name]
    out = []
    for p in rp.callback_params():
        fallback = "The reply's `%s` value." % p.name
        if p.name == "ok" and p.type == "bool":
            fallback = "Whether the server did what was asked (the reply's success flag)."
        doc = docs.get(p.name) or fallback
        out.append((cpp.qualify(p.type, aliases), p.name, doc))
    return out


def request_params(protocol, rq):
    """The request method's parameters: the encoder's, class aliases qualified."""
    aliases = class_aliases(protocol)
    return [cpp.param_decl(cpp.qualify(p.type, aliases), p.name) for p in rq.encoder_params()]


def member(ctype, name):
    return "%s %s%s;" % (ctype, name, "{}" if ctype in cpp.SCALARS else "")


def header(protocol):
    out = cpp.generated_notice()
    out += [
        "//",
        "// The requests of KZClient, family by family: for each request that its message's reply",
        "// answers, the struct of the reply's values and the method that sends the request. It is",
        "// part of the class: kzclient.h includes it inside the class body.",
        "#ifndef KZRESOLVER_IN_CLIENT_CLASS",
        "#error \"kzclientrequests.h belongs inside KZClient: include kzclient.h\"",
        "#endif",
        "// Laid out as inside the class (a formatter run on this file alone would not know).",
        "// clang-format off",
    ]
    by_family = {}
    for m, rq, rp in requests(protocol):
        by_family.setdefault(m.family.id, []).append((m, rq, rp))
    for fam in protocol.families:
        items = by_family.get(fam.id)
        if not items:
            continue
        out += ["", "    /// \\name %s" % fam.title, "    ///@{"]
        for m, rq, rp in items:
            out.append("")
            out += cpp.comment(["The values of the %s reply, as %s() carries them. %s"
                                % (m.name, rp.encoder, " ".join(rp.doc))], INDENT)
            out.append("    struct %s" % values_name(m))
            out.append("    {")
            for ctype, name, doc in value_fields(protocol, m, rp):
                out += cpp.comment([doc[:1].upper() + doc[1:].rstrip(".") + "."], 8)
                out.append("        " + member(ctype, name))
            out.append("    };")
            doc = list(rq.doc) + [
                "", "Sends %s() (code 0x%04X) once the client is ready and returns its reply, "
                "which finishes with %s when the server answers." % (rq.encoder, m.code,
                                                                   values_name(m))]
            out += cpp.comment(doc, INDENT)
            out += cpp.call_layout("KZReplyOf<%s>* %s(" % (values_name(m), method_name(rq)),
                                   request_params(protocol, rq), ");", INDENT)
        out.append("    ///@}")
    out.append("// clang-format on")
    return "\n".join(out) + "\n"


def definitions(protocol):
    out = ["// Generated from protocol/*.table: the request methods of KZClient."]
    for m, rq, rp in requests(protocol):
        params = rq.encoder_params()
        decl = request_params(protocol, rq)
        values = "KZClient::%s" % values_name(m)
        out += cpp.call_layout("KZReplyOf<%s>* KZClient::%s(" % (values, method_name(rq)), decl,
                               ")", 0)
        names = ", ".join(p.name for p in params)
        out += [
            "{",
            "    auto* reply = new KZReplyOf<%s>(0x%04X, this);" % (values, m.code),
            "    d->request(reply, [=](KZProtocolResolver& lan_) { lan_.%s(%s); });" % (rq.encoder, names),
            "    return reply;",
            "}",
        ]
    return "\n".join(out) + "\n"


def replies(protocol):
    out = ["// Generated from protocol/*.table: KZ_CLIENT_REPLY(Values, code, signal), one per "
           "request method."]
    for m, rq, rp in requests(protocol):
        out.append("KZ_CLIENT_REPLY(%s, 0x%04X, %s)" % (values_name(m), m.code, signal_name(rp)))
    return "\n".join(out) + "\n"
