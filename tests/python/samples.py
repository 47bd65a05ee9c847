"""A valid value for every parameter type, and a valid encoding of every
message direction built from them: the round-trip tests' input and the feed
fuzzer's seeds."""

import datetime
import re

from kzresolver import MESSAGES, Resolver
from kzresolver.messages import RECORDS


def sample(ctype):
    """A value of a C++ parameter type that every wire form carries unchanged."""
    t = ctype.replace(" ", "")
    if t in RECORDS:
        return {f.name: sample(f.type) for f in RECORDS[t]}
    if t == "QString":
        return "v"
    if t == "bool":
        return True
    if t == "double":
        return 3.0
    if t == "QDate":
        return datetime.date(2024, 3, 5)
    if t == "QByteArray":
        return b"z" * 16  # the blk16 form carries exactly 16 bytes
    if t == "QStringList":
        return ["a", "b"]
    m = re.fullmatch(r"QList<(.+)>", t)
    if m:
        return [sample(m.group(1))] if m.group(1) != "QVariant" else ["cell"]
    m = re.fullmatch(r"QMap<(\w+),(.+)>", t)
    if m:
        return {sample(m.group(1)): sample(m.group(2))}
    if t in ("MapQueryStatistic",):
        return {"k": [sample("QueryStatisticItem")]}
    if t == "StopMap":
        return {1: ["cell"]}
    return 7  # the integers, and a word of bits


# Hand-written messages whose fields depend on one another (a length, the
# cells of a row, the four texts of a file entry).
SHAPED = {
    ("InitWorkshopData", "reply"): dict(rows=[["w", "n", "2024-03-05", "note", 1, 2, 3, {"m": 1}]]),
    ("UpdateOEEMacRunTime", "reply"): dict(rows=[["a", "b", 3]]),
    ("MacTsfExchangeFile", "request"): dict(files={"f": ["1", "2", "3", "4"]}),
    ("MacTsfFileContent", "request"): dict(len=4, data=b"data", block=b"z" * 16),
}


# Hand-written messages whose fields depend on one another (a length, the
# cells of a row, the four texts of a file entry).
SHAPED = {
    ("InitWorkshopData", "reply"): dict(rows=[["w", "n", "2024-03-05", "note", 1, 2, 3, {"m": 1}]]),
    ("UpdateOEEMacRunTime", "reply"): dict(rows=[["a", "b", 3]]),
    ("MacTsfExchangeFile", "request"): dict(files={"f": ["1", "2", "3", "4"]}),
    ("MacTsfFileContent", "request"): dict(len=4, data=b"data", block=b"z" * 16),
}


def fields_of(name, kind):
    """Valid fields of one direction of a message."""
    fields = {p.name: sample(p.type) for p in MESSAGES[name].directions[kind].params}
    fields.update(SHAPED.get((name, kind), {}))
    return fields


def encodings():
    """(name, kind, frames as one bytes) of every direction of every message."""
    r = Resolver()
    return [(name, kind, b"".join(r.encode(name + "." + kind, **fields_of(name, kind))))
            for name, m in MESSAGES.items() for kind in m.directions]
