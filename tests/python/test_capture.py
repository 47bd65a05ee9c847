"""The demo's session (every family) fed through the module, against kzdump's
JSON reading of the same capture: the same messages in the same order, with
the same field values."""

import datetime
import json
import os
import subprocess
import types

import pytest

from kzresolver import Resolver

KZDEMO = os.environ.get("KZDEMO", "")
KZDUMP = os.environ.get("KZDUMP", "")

pytestmark = pytest.mark.skipif(not (KZDEMO and KZDUMP), reason="KZDEMO and KZDUMP name the tools")


def plain(value):
    """A decoded value in kzdump's JSON terms: bytes as hex, dates as
    yyyy-MM-dd, records as objects, map keys as text."""
    if isinstance(value, bytes):
        return value.hex()
    if isinstance(value, datetime.date):
        return value.isoformat()
    if isinstance(value, types.SimpleNamespace):
        return {k: plain(v) for k, v in vars(value).items()}
    if isinstance(value, dict):
        return {str(k): plain(v) for k, v in value.items()}
    if isinstance(value, list):
        return [plain(v) for v in value]
    return value


def dumped_fields(fields):
    """kzdump's fields: each name's values in wire order (an unnamed field
    keyed by its wire form and position)."""
    out = {}
    for i, f in enumerate(fields):
        key = f["name"] if f["name"] != "?" else "%s#%d" % (f["kind"], i)
        out.setdefault(key, []).append(f["value"])
    return out


def fed_fields(fields, repeated):
    """The module's fields in the same terms. The module gives a record at
    the top of a message as one object (kzdump lists its fields there), and
    the values of a name the message holds more than once as one list."""
    out = {}
    for key, value in fields.items():
        if isinstance(value, types.SimpleNamespace):
            for name, v in vars(value).items():
                out.setdefault(name, []).append(plain(v))
        elif key in repeated:
            out.setdefault(key, []).extend(plain(value))
        else:
            out.setdefault(key, []).append(plain(value))
    return out


@pytest.fixture(scope="module")
def capture(tmp_path_factory):
    path = str(tmp_path_factory.mktemp("demo") / "demo.bin")
    subprocess.run([KZDEMO, "--capture", path], check=True, timeout=60,
                   stdout=subprocess.DEVNULL)
    dump = subprocess.run([KZDUMP, "--json", path], check=True, timeout=60,
                          capture_output=True, text=True).stdout
    lines = [json.loads(line) for line in dump.splitlines()]
    with open(path, "rb") as f:
        data = f.read()
    return data, [o for o in lines if "method" in o]


def test_the_demo_covers_the_families_and_decodes_whole(capture):
    data, dumped = capture
    assert len(dumped) > 40
    assert not [o for o in dumped if "error" in o]
    assert len({o["code"] >> 8 for o in dumped}) >= 7  # every range of method codes


@pytest.mark.parametrize("piece", [1 << 20, 4096, 7], ids=["whole", "4 KiB pieces", "7 bytes"])
def test_feed_gives_kzdump_s_messages_and_values(capture, piece):
    data, dumped = capture
    r = Resolver()
    fed = []
    for i in range(0, len(data), piece):
        fed += r.feed(data[i:i + piece])
    assert [(m.name, m.kind, m.code) for m in fed] == \
        [(o["method"], o["kind"], o["code"]) for o in dumped]
    for m, o in zip(fed, dumped):
        dumped_values = dumped_fields(o["fields"])
        repeated = {name for name, values in dumped_values.items() if len(values) > 1}
        assert fed_fields(m.fields, repeated) == dumped_values, m.name
