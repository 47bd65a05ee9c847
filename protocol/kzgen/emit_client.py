"""KZClient's requests: one method per request that a reply answers, returning a typed reply,
and the struct of each reply's values. A request answered by another message's reply
(`answered-by`) returns that message's values and waits among the requests of its code.

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
    """(message, request, answering message, its reply) for each request that a reply answers:
    its own message's, or the one its `answered-by` names."""
    out = []
    for m in protocol.messages:
        rq = m.direction("request")
        if m.name in SKIPPED or not rq:
            continue
        answer = protocol.message(rq.answered_by.split(".")[0]) if rq.answered_by else m
        rp = answer.direction("reply")
        if not rp:
            continue
        out.append((m, rq, answer, rp))
    return out


def answers(protocol):
    """(answering message, its reply) once each, in the order of their first request."""
    seen, out = set(), []
    for _, _, a, rp in requests(protocol):
        if a.name not in seen:
            seen.add(a.name)
            out.append((a, rp))
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
    for m, rq, a, rp in requests(protocol):
        by_family.setdefault(m.family.id, []).append((m, rq, a, rp))
    declared = set()
    for fam in protocol.families:
        items = by_family.get(fam.id)
        if not items:
            continue
        out += ["", "    /// \\name %s" % fam.title, "    ///@{"]
        for m, rq, a, rp in items:
            out.append("")
            if a.name not in declared:
                declared.add(a.name)
                out += cpp.comment(["The values of the %s reply, as %s() carries them. %s"
                                    % (a.name, rp.encoder, " ".join(rp.doc))], INDENT)
                out.append("    struct %s" % values_name(a))
                out.append("    {")
                for ctype, name, doc in value_fields(protocol, a, rp):
                    out += cpp.comment([doc[:1].upper() + doc[1:].rstrip(".") + "."], 8)
                    out.append("        " + member(ctype, name))
                out.append("    };")
            answered = ("" if a is m else
                        " The server answers it with a %s reply (code 0x%04X), matched to it "
                        "among the requests that reply answers." % (a.name, a.code))
            doc = list(rq.doc) + [
                "", "Sends %s() (code 0x%04X) once the client is ready and returns its reply, "
                "which finishes with %s when the server answers.%s"
                % (rq.encoder, m.code, values_name(a), answered)]
            out += cpp.comment(doc, INDENT)
            out += cpp.call_layout("KZReplyOf<%s>* %s(" % (values_name(a), method_name(rq)),
                                   request_params(protocol, rq), ");", INDENT)
        out.append("    ///@}")
    out.append("// clang-format on")
    return "\n".join(out) + "\n"


def definitions(protocol):
    out = ["// Generated from protocol/*.table: the request methods of KZClient."]
    for m, rq, a, rp in requests(protocol):
        params = rq.encoder_params()
        decl = request_params(protocol, rq)
        values = "KZClient::%s" % values_name(a)
        out += cpp.call_layout("KZReplyOf<%s>* KZClient::%s(" % (values, method_name(rq)), decl,
                               ")", 0)
        names = ", ".join(p.name for p in params)
        out += [
            "{",
            "    auto* reply = new KZReplyOf<%s>(0x%04X, this);" % (values, a.code),
            "    d->request(reply, [=](KZProtocolResolver& lan_) { lan_.%s(%s); });" % (rq.encoder, names),
            "    return reply;",
            "}",
        ]
    return "\n".join(out) + "\n"


def replies(protocol):
    out = ["// Generated from protocol/*.table: KZ_CLIENT_REPLY(Values, code, signal), one per "
           "reply that answers a request method."]
    for a, rp in answers(protocol):
        out.append("KZ_CLIENT_REPLY(%s, 0x%04X, %s)" % (values_name(a), a.code, signal_name(rp)))
    return "\n".join(out) + "\n"
