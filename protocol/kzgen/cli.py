"""Command line: reads and checks the table, writes the outputs.

    kzgen --table protocol/index.table check
    kzgen --table protocol/index.table files       the table's files (build dependencies)
    kzgen --table protocol/index.table outputs     what generate writes, one file a line
    kzgen --table protocol/index.table generate DIR
    kzgen --table protocol/index.table reference EXAMPLES.json OUT.md
"""

import argparse
import os
import sys

from . import table, validate
from .model import TableError

# The public headers generated from the table are committed in the source tree; generate
# writes fresh ones into this subdirectory, for the build to compare and the refresh to copy.
COMMITTED = ["kzmessages.h", "kzrecords.h", "kzclientrequests.h"]
COMMITTED_DIR = "committed"


def write_if_changed(path, text):
    """Writes text to path unless the file holds exactly that already (no needless rebuilds)."""
    try:
        with open(path, encoding="utf-8") as f:
            if f.read() == text:
                return
    except OSError:
        pass
    os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


def load(index):
    return validate.validate(table.load(index))


def outputs(protocol):
    """Every file generate writes, by name, with the function that makes its text."""
    from . import (emit_client, emit_code, emit_examples, emit_header, emit_json, emit_lua,
                   emit_python, emit_records, emit_signals)

    out = {
        os.path.join(COMMITTED_DIR, "kzmessages.h"): lambda: emit_header.emit(protocol),
        os.path.join(COMMITTED_DIR, "kzrecords.h"): lambda: emit_records.emit(protocol),
        os.path.join(COMMITTED_DIR, "kzclientrequests.h"): lambda: emit_client.header(protocol),
        "kzclient_requests.inc": lambda: emit_client.definitions(protocol),
        "kzclient_replies.inc": lambda: emit_client.replies(protocol),
        "methods.def": lambda: emit_code.methods_def(protocol),
        "callbacks.def": lambda: emit_code.callbacks_def(protocol),
        "decoders.inc": lambda: emit_code.decoders_inc(protocol),
        "recordforms.h": lambda: emit_code.recordforms_h(protocol),
        "recordfields.h": lambda: emit_code.recordfields_h(protocol),
        "kzconnectionsignals.h": lambda: emit_signals.header(protocol),
        "kzconnection_relays.inc": lambda: emit_signals.relays(protocol),
        "kzconnection_types.inc": lambda: emit_signals.registrations(protocol),
        "examples.inc": lambda: emit_examples.emit(protocol),
        "protocol.json": lambda: emit_json.emit(protocol),
        "kz.lua": lambda: emit_lua.emit(protocol),
        "python_encoders.inc": lambda: emit_python.encoders_inc(protocol),
        "python_records.inc": lambda: emit_python.records_inc(protocol),
        "kzresolver_messages.py": lambda: emit_python.messages_py(protocol),
        "kzresolver_client.pyi": lambda: emit_python.client_pyi(protocol),
        "kzresolver_testing.pyi": lambda: emit_python.testing_pyi(protocol),
    }
    for fam in protocol.families:
        out["kz_%s.inc" % fam.stem] = (lambda f: lambda: emit_code.family_inc(f))(fam)
    return out


def main(argv=None):
    p = argparse.ArgumentParser(prog="kzgen", description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--table", required=True, help="the index of the table: protocol/index.table")
    sub = p.add_subparsers(dest="what", required=True)
    sub.add_parser("check", help="read and check the table only")
    sub.add_parser("files", help="print the table's files, one a line")
    sub.add_parser("outputs", help="print what generate writes, one file a line")
    s = sub.add_parser("generate", help="write every output into a directory")
    s.add_argument("dir")
    s = sub.add_parser("reference", help="write the protocol reference page")
    s.add_argument("examples", help="the examples program's output (JSON)")
    s.add_argument("out")
    args = p.parse_args(argv)
    try:
        if args.what == "files":
            print("\n".join(table.files(args.table)))
            return 0
        protocol = load(args.table)
        if args.what == "outputs":
            print("\n".join(sorted(outputs(protocol))))
        elif args.what == "generate":
            for name, make in outputs(protocol).items():
                write_if_changed(os.path.join(args.dir, name), make())
        elif args.what == "reference":
            from . import emit_reference

            with open(args.examples, encoding="utf-8") as f:
                examples = f.read()
            write_if_changed(args.out, emit_reference.emit(protocol, examples))
    except TableError as e:
        print("kzgen: %s" % e, file=sys.stderr)
        return 1
    return 0
