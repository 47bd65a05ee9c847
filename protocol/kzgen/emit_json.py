"""protocol.json: the model for tools that are not Python (a dissector, a client generator, a
man page): every form, record, message and direction with its fields as form trees."""

import json

from .emit_signals import signal_name


def form_json(form):
    out = {"form": form.head, "text": form.text()}
    if form.args:
        out["args"] = [form_json(a) for a in form.args]
    if any(form.cells):
        out["cells"] = form.cells
    if form.fields:
        out["fields"] = [field_json(f) for f in form.fields]
    if form.head == "record":
        out["record"] = form.record
        out["variant"] = form.variant
    if form.count is not None:
        out["count"] = form.count
    return out


def field_json(f, docs=None):
    out = {"name": f.name, "form": form_json(f.form)}
    if f.type is not None:
        out["type"] = f.type
    if f.param != f.name:
        out["param"] = f.param
    if docs and (f.name in docs or f.param in docs):
        out["doc"] = docs.get(f.name) or docs.get(f.param)
    return out


def answer(protocol, d):
    """The message direction that answers a request: the one the table names, or the same
    message's reply."""
    if d.kind != "request":
        return None
    if d.answered_by:
        name, kind = d.answered_by.split(".")
        target = protocol.message(name).direction(kind)
    else:
        target = d.message.direction("reply")
    if target is None:
        return None
    return {"message": target.message.name, "direction": target.kind,
            "code": target.message.code, "flag": target.flag}


def direction_json(protocol, d):
    api = {f.name: i for i, f in enumerate(d.api_fields())}
    fields = []
    for f in d.fields:
        j = field_json(f, d.message.field_docs)
        if d.send is None and d.receive is None:
            j["api"] = api[f.name]
        fields.append(j)
    return {
        "kind": d.kind,
        "encoder": d.encoder,
        "flag": d.flag,
        "accepts": d.accepts,
        "setter": d.setter,
        "callbackType": d.callback_type,
        "callbackAlias": d.callback_alias,
        "signal": signal_name(d),
        "handWritten": {"encoder": d.hand_encoder, "decoder": d.hand_decoder},
        "fields": fields,
        "encoderParams": [{"type": p.type, "name": p.name} for p in d.encoder_params()],
        "callbackParams": [{"type": p.type, "name": p.name} for p in d.callback_params()],
        "doc": " ".join(d.doc),
        "called": d.called,
        "note": d.note,
        "answeredBy": answer(protocol, d),
    }


def emit(protocol):
    model = {
        "forms": {n: {"size": f.size, "type": f.cpptype, "doc": f.doc, "code": f.codegen}
                  for n, f in protocol.forms.items()},
        "families": [{
            "id": fam.id, "title": fam.title, "doc": " ".join(fam.doc), "file": fam.file,
            "records": [r.name for r in fam.records],
            "messages": [m.name for m in fam.messages],
            "aliases": [{"name": a.name, "type": a.type, "doc": a.doc, "inClass": a.in_class}
                        for a in fam.aliases],
        } for fam in protocol.families],
        "records": [{
            "name": r.name, "family": r.family.id, "doc": " ".join(r.doc),
            "wordBits": r.word_bits,
            "fields": [dict({"name": f.name, "type": f.type, "doc": f.doc},
                            **({"bits": list(f.bits)} if f.bits else {})) for f in r.fields],
            "forms": {(v or ""): [field_json(f) for f in rf.fields] for v, rf in r.forms.items()},
        } for r in protocol.records],
        "messages": [{
            "name": m.name, "code": m.code, "family": m.family.id, "doc": m.doc,
            "directions": [direction_json(protocol, d) for d in m.directions],
        } for m in protocol.by_code()],
    }
    return json.dumps(model, indent=1, sort_keys=False) + "\n"
