"""The Python module's codec: frames against bytes derived by hand, round trips
over every message, wrong fields, hostile input."""

import datetime
import random
import time

import pytest

from kzresolver import MESSAGES, Resolver
from samples import fields_of
from wire import frame


def test_logout_is_the_frame_of_the_worked_example():
    expected = bytes.fromhex("4b5a01000000000000000900000069e7420a"
                             "0078cc92ae3c62d0d257818efc")
    assert frame(0, 2, bytes.fromhex("07000000")) == expected
    assert Resolver().encode("Logout", value=7) == [expected]


@pytest.mark.parametrize("message, fields, flag, code, payload", [
    ("DeleteUser", dict(names=["carol"]), 0, 0x001B,
     "0100" "6361726f6c00"),  # strlist: u16 count, strz
    ("DeleteUser.reply", dict(ok=True, names=["al", "bo"]), 1, 0x001B,
     "0200" "616c00" "626f00" "00"),  # strlist, flag8 true is 0
    ("DeleteUser.reply", dict(ok=False, names=[]), 1, 0x001B, "0000" "01"),
    ("Logout", dict(value=-2), 0, 0x0002, "feffffff"),  # i32 little-endian
    ("AddUser", dict(name="é", text2="", text3="pw", lv1Group="A", lv2Group="B",
                     flag=False), 0, 0x001A,
     "c3a900" "00" "707700" "4100" "4200" "01"),  # strz as UTF-8, flag8 false is 1
], ids=["DeleteUser", "DeleteUser.reply-ok", "DeleteUser.reply-refused", "Logout", "AddUser"])
def test_payloads_from_the_message_layouts(message, fields, flag, code, payload):
    assert Resolver().encode(message, **fields) == [frame(flag, code, bytes.fromhex(payload))]


def test_feed_of_hand_made_frames_cut_anywhere():
    r = Resolver()
    stream = frame(1, 0x001B, bytes.fromhex("0200616c00626f0000")) + \
        frame(0, 0x0002, bytes.fromhex("2a000000"), seq=1)
    got = []
    for i in range(0, len(stream), 5):  # any cut of the stream
        got += r.feed(stream[i:i + 5])
    assert [(m.name, m.kind, m.code, m.fields) for m in got] == [
        ("DeleteUser", "reply", 0x001B, {"names": ["al", "bo"], "ok": True}),
        ("Logout", "request", 0x0002, {"value": 42}),
    ]


DIRECTIONS = [(name, kind) for name, m in MESSAGES.items() for kind in m.directions]


@pytest.mark.parametrize("name, kind", DIRECTIONS, ids=["%s.%s" % d for d in DIRECTIONS])
def test_every_direction_encodes_and_decodes_as_itself(name, kind):
    r = Resolver()
    message = MESSAGES[name]
    d = message.directions[kind]
    fields = fields_of(name, kind)
    (m,) = r.feed(b"".join(r.encode(name + "." + kind, **fields)))
    assert (m.name, m.code, m.flag, m.cut) == (name, message.code, d.flag, False)
    if not d.hand:  # a regular message reads back its parameters' names
        assert set(m.fields) == set(fields)


USER = dict(name="ann", text2="x", text3="", permission=5, flag=True,
            lv1Group="g1", lv2Group="g2", groupPermission={"g1": ["g2"]})


@pytest.mark.parametrize("message, fields, key, want", [
    ("DeleteUser", dict(names=["a", "b"]), "names", ["a", "b"]),
    ("Logout", dict(value=-123456), "value", -123456),
    ("AddUser.reply", dict(user=USER), "user", USER),
    ("QueryDateOEEData", {"n": 3, "from": datetime.date(2024, 2, 29),
                          "to": datetime.date(2024, 3, 5)},
     "from", datetime.date(2024, 2, 29)),
], ids=["list", "i32", "record", "date"])
def test_values_come_back_as_sent(message, fields, key, want):
    r = Resolver()
    (m,) = r.feed(b"".join(r.encode(message, **fields)))
    got = m[key]
    assert (vars(got) if hasattr(got, "__dict__") else got) == want


def test_a_tree_keeps_every_node():
    r = Resolver()
    users = [dict(name=n, lv1Group=g1, lv2Group=g2)
             for n, g1, g2 in [("a", "G", "x"), ("b", "G", "y"), ("c", "H", "z")]]
    (m,) = r.feed(b"".join(r.encode("UserInfo", users=users)))
    assert m["lv1"] == ["G", "H"]
    assert m["lv2"] == ["x", "y", "z"]


def test_a_split_body_is_reassembled():
    r = Resolver()
    names = ["n%05d" % i for i in range(4000)]  # about 28 KB: many frames
    frames = r.encode("DeleteUser", names=names)
    assert len(frames) > 1
    (m,) = r.feed(b"".join(frames))
    assert m["names"] == names


def permissions(n):
    return [dict(key1="u%d" % i, key2="g", key3="", power=i) for i in range(n)]


@pytest.mark.parametrize("entries, max_entries, kept", [
    (3000, None, 3000),   # past the 1024 a dump shows: whole
    (3000, 2000, 2000),   # past the resolver's own bound: cut there, the rest counted
    (5, 0, 0),
])
def test_long_lists_are_kept_to_the_resolver_s_bound(entries, max_entries, kept):
    sender = Resolver()
    receiver = Resolver() if max_entries is None else Resolver(max_entries=max_entries)
    frames = sender.encode("QueryPermission.reply", entries=permissions(entries))
    (m,) = receiver.feed(b"".join(frames))
    assert [e.key1 for e in m["entries"]] == ["u%d" % i for i in range(kept)]
    assert (m.dropped, m.cut) == (entries - kept, False)


def test_the_entry_bound_counts_every_list_of_a_message():
    # Two lists of 3 in one message, a bound of 4: the second list keeps one.
    r = Resolver(max_entries=4)
    (m,) = r.feed(b"".join(r.encode("QueryDateOEEData.reply", n=1, figures=[["a"]] * 3,
                                    breakdownA=[["b"]] * 3, breakdownB=[])))
    assert (len(m["figures"]), len(m["breakdownA"]), m.dropped) == (3, 1, 2)


@pytest.mark.parametrize("message, fields, exc, text", [
    ("DeleteUser", dict(names="carol"), TypeError, "'names'"),
    ("DeleteUser", dict(names=[1]), TypeError, "'names[0]'"),
    ("DeleteUser", dict(nmes=["a"]), TypeError, "'nmes'"),
    ("DeleteUser", dict(), TypeError, "missing field 'names'"),
    ("DeleteUser", dict(names=[], extra=1), TypeError, "'extra'"),
    ("Logout", dict(value=2**31), ValueError, "'value'"),
    ("Logout", dict(value=True), TypeError, "'value'"),
    ("Logout", dict(value=1.0), TypeError, "'value'"),
    ("AddUser", dict(name="a", text2="", text3="", lv1Group="", lv2Group="", flag=0),
     TypeError, "'flag'"),
    ("AddUser.reply", dict(user={"nam": "x"}), TypeError, "'nam'"),
    ("AddUser.reply", dict(user={"permission": 2**40}), ValueError, "'user.permission'"),
    ("NoSuchMessage", dict(), ValueError, "NoSuchMessage"),
    ("DeleteUser.sideways", dict(names=[]), ValueError, "DeleteUser.sideways"),
])
def test_errors_name_the_field(message, fields, exc, text):
    with pytest.raises(exc) as e:
        Resolver().encode(message, **fields)
    assert text in str(e.value)


def test_random_and_cut_input_never_crashes():
    rng = random.Random(28)
    good = b"".join(Resolver().encode("DeleteUser", names=["x"] * 50))
    r = Resolver()
    deadline = time.monotonic() + 5
    rounds = 0
    while time.monotonic() < deadline and rounds < 3000:
        rounds += 1
        data = bytearray(good[:rng.randrange(len(good) + 1)])
        for _ in range(rng.randrange(8)):
            if data:
                data[rng.randrange(len(data))] = rng.randrange(256)
        data += bytes(rng.randrange(256) for _ in range(rng.randrange(64)))
        for m in r.feed(bytes(data)):
            assert isinstance(m.fields, dict)
    # The resolver still decodes after all of it.
    assert [m.name for m in Resolver().feed(good)] == ["DeleteUser"]


def test_a_cut_body_is_marked():
    # A Logout whose i32 has two of its bytes (and the terminator).
    (m,) = Resolver().feed(frame(0, 0x0002, bytes.fromhex("0700")))
    assert (m.name, m.cut) == ("Logout", True)
