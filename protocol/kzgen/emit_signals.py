"""KZConnection's signals: kzconnectionsignals.h (one signal per callback, named after its
message), the relays that tie each callback to its signal, and the meta-type registrations."""

from . import cpp
from .model import TableError

# Names the connection class uses itself, and QObject's signals.
RESERVED = {
    "device", "setDevice", "resolver", "pendingBytes", "disconnected", "errorOccurred",
    "frameSent", "destroyed", "objectNameChanged", "deleteLater",
}


def signal_name(d):
    name = cpp.lower_first(d.callback_type[len("Lan"):-len("CB")])
    if name in RESERVED:
        raise TableError(d.where, "callback %s would make a signal named %s, which KZConnection "
                         "already uses" % (d.callback_type, name))
    return name


def class_aliases(protocol):
    return [a.name for f in protocol.families for a in f.aliases if a.in_class]


def signal_params(protocol, d):
    aliases = class_aliases(protocol)
    return [cpp.param_decl(cpp.qualify(p.type, aliases), p.name) for p in d.callback_params()]


def header(protocol):
    out = cpp.generated_notice()[:1] + [
        "// Installed with the library's headers.",
        "/// \\file kzconnectionsignals.h",
        "/// The message signals of KZConnection, generated from the resolver's message table.",
        "#ifndef KZRESOLVER_KZCONNECTIONSIGNALS_H",
        "#define KZRESOLVER_KZCONNECTIONSIGNALS_H",
        "",
        '#include "kzprotocolresolver.h"',
        '#include "kzrecords.h"',
        "",
        "#include <QMetaType>",
        "#include <QObject>",
        "",
        "// Records travel by value through queued connections.",
    ]
    for r in protocol.records:
        out.append("Q_DECLARE_METATYPE(%s)" % r.name)
    out += [
        "",
        "/// The message signals of KZConnection, one per resolver callback.",
        "/// Each carries the callback's arguments without its context pointer.",
        "class KZRESOLVER_EXPORT KZConnectionSignals : public QObject",
        "{",
        "    Q_OBJECT",
        "",
        "public:",
        "    /// Destroys the signal base of a KZConnection.",
        "    ~KZConnectionSignals() override;",
        "",
        "Q_SIGNALS:",
    ]
    for d in protocol.directions():
        out += cpp.comment(["Emitted %s: see KZProtocolResolver::%s()." % (d.called, d.setter)], 4)
        out += cpp.call_layout("void %s(" % signal_name(d), signal_params(protocol, d), ");", 4)
    out += [
        "",
        "protected:",
        "    /// Only KZConnection derives from this class; `parent` is its QObject parent.",
        "    explicit KZConnectionSignals(QObject* parent);",
        "};",
        "",
        "#endif",
    ]
    return "\n".join(out) + "\n"


def relays(protocol):
    out = ["// Generated from protocol/*.table: KZ_RELAY(CallbackType, signal), one per callback."]
    for d in protocol.directions():
        out.append("KZ_RELAY(%s, %s)" % (d.callback_type, signal_name(d)))
    return "\n".join(out) + "\n"


def registrations(protocol):
    aliases = class_aliases(protocol)
    types = sorted({cpp.qualify(p.type, aliases) for d in protocol.directions()
                    for p in d.callback_params()})
    out = ["// Generated from protocol/*.table: every signal parameter type, registered by name."]
    out += ['qRegisterMetaType<%s>("%s");' % (t, t) for t in types]
    return "\n".join(out) + "\n"
