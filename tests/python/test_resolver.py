"""The Python module's codec: frames against bytes derived by hand, round trips
over every message, wrong fields, hostile input."""

import datetime
import random
import re
import struct
import time
import unittest
import zlib

from kzresolver import MESSAGES, Resolver
from kzresolver.messages import RECORDS

M64 = (1 << 64) - 1


def keystream(n):
    """The body coding's keystream: byte p is byte p % 8 of the word K(p // 8)."""
    out = bytearray()
    for i in range((n + 7) // 8):
        z = (i * 0x9E3779B97F4A7C15 + 0x4B5A4150494E3031) & M64
        z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & M64
        z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & M64
        out += struct.pack("<Q", z ^ (z >> 31))
    return bytes(out[:n])


def frame(flag, code, payload, seq=0):
    """A whole frame as laid out on the wire, for a message header and payload."""
    body = bytes([flag, 17]) + struct.pack("<H", code) + payload + b"\0"
    coded = body[:1] + bytes(a ^ b for a, b in zip(body[1:], keystream(len(body) - 1)))
    head = b"KZ\x01\x00" + struct.pack("<IHI", seq, 0, len(coded))
    head += struct.pack("<I", zlib.crc32(head))
    whole = head + coded
    return whole + struct.pack("<I", zlib.crc32(whole))


class GoldenBytes(unittest.TestCase):
    def test_logout_is_the_frame_of_the_worked_example(self):
        expected = bytes.fromhex("4b5a01000000000000000900000069e7420a"
                                 "0078cc92ae3c62d0d257818efc")
        self.assertEqual(frame(0, 2, bytes.fromhex("07000000")), expected)
        self.assertEqual(Resolver().encode("Logout", value=7), [expected])

    def test_payloads_from_the_message_layouts(self):
        rows = [
            # message, fields, flag, code, payload as laid out by hand
            ("DeleteUser", dict(names=["carol"]), 0, 0x001B,
             "0100" "6361726f6c00"),  # strlist: u16 count, strz
            ("DeleteUser.reply", dict(ok=True, names=["al", "bo"]), 1, 0x001B,
             "0200" "616c00" "626f00" "00"),  # strlist, flag8 true is 0
            ("DeleteUser.reply", dict(ok=False, names=[]), 1, 0x001B, "0000" "01"),
            ("Logout", dict(value=-2), 0, 0x0002, "feffffff"),  # i32 little-endian
            ("AddUser", dict(name="é", text2="", text3="pw", lv1Group="A", lv2Group="B",
                             flag=False), 0, 0x001A,
             "c3a900" "00" "707700" "4100" "4200" "01"),  # strz as UTF-8, flag8 false is 1
        ]
        for message, fields, flag, code, payload in rows:
            with self.subTest(message=message, fields=fields):
                self.assertEqual(Resolver().encode(message, **fields),
                                 [frame(flag, code, bytes.fromhex(payload))])

    def test_feed_of_hand_made_frames(self):
        r = Resolver()
        stream = frame(1, 0x001B, bytes.fromhex("0200616c00626f0000")) + \
            frame(0, 0x0002, bytes.fromhex("2a000000"), seq=1)
        got = []
        for i in range(0, len(stream), 5):  # any cut of the stream
            got += r.feed(stream[i:i + 5])
        self.assertEqual([(m.name, m.kind, m.code, m.fields) for m in got], [
            ("DeleteUser", "reply", 0x001B, {"names": ["al", "bo"], "ok": True}),
            ("Logout", "request", 0x0002, {"value": 42}),
        ])


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


class RoundTrip(unittest.TestCase):
    def test_every_direction_encodes_and_decodes_as_itself(self):
        r = Resolver()
        for name, message in MESSAGES.items():
            for kind, d in message.directions.items():
                with self.subTest(message=name, kind=kind):
                    fields = {p.name: sample(p.type) for p in d.params}
                    fields.update(SHAPED.get((name, kind), {}))
                    frames = r.encode(name + "." + kind, **fields)
                    got = r.feed(b"".join(frames))
                    self.assertEqual(len(got), 1)
                    m = got[0]
                    self.assertEqual((m.name, m.code, m.flag, m.cut),
                                     (name, message.code, d.flag, False))
                    if not d.hand:  # a regular message reads back its parameters' names
                        self.assertEqual(set(m.fields), set(fields))

    def test_values_come_back_as_sent(self):
        r = Resolver()
        user = dict(name="ann", text2="x", text3="", permission=5, flag=True,
                    lv1Group="g1", lv2Group="g2", groupPermission={"g1": ["g2"]})
        rows = [
            ("DeleteUser", dict(names=["a", "b"]), "names", ["a", "b"]),
            ("Logout", dict(value=-123456), "value", -123456),
            ("AddUser.reply", dict(user=user), "user", user),
            ("QueryDateOEEData", dict(n=3, **{"from": datetime.date(2024, 2, 29),
                                                     "to": datetime.date(2024, 3, 5)}),
             "from", datetime.date(2024, 2, 29)),
        ]
        for message, fields, key, want in rows:
            with self.subTest(message=message):
                (m,) = r.feed(b"".join(r.encode(message, **fields)))
                got = m[key]
                self.assertEqual(vars(got) if hasattr(got, "__dict__") else got, want)

    def test_a_tree_keeps_every_node(self):
        r = Resolver()
        users = [dict(name=n, lv1Group=g1, lv2Group=g2)
                 for n, g1, g2 in [("a", "G", "x"), ("b", "G", "y"), ("c", "H", "z")]]
        (m,) = r.feed(b"".join(r.encode("UserInfo", users=users)))
        self.assertEqual(m["lv1"], ["G", "H"])
        self.assertEqual(m["lv2"], ["x", "y", "z"])

    def test_a_split_body_is_reassembled(self):
        r = Resolver()
        names = ["n%05d" % i for i in range(4000)]  # about 28 KB: many frames
        frames = r.encode("DeleteUser", names=names)
        self.assertGreater(len(frames), 1)
        (m,) = r.feed(b"".join(frames))
        self.assertEqual(m["names"], names)


class WrongFields(unittest.TestCase):
    def test_errors_name_the_field(self):
        r = Resolver()
        rows = [
            # message, fields, exception, text the message must contain
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
        ]
        for message, fields, exc, text in rows:
            with self.subTest(message=message, fields=fields):
                with self.assertRaises(exc) as cm:
                    r.encode(message, **fields)
                self.assertIn(text, str(cm.exception))


class HostileInput(unittest.TestCase):
    def test_random_and_cut_input_never_crashes(self):
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
                self.assertIsInstance(m.fields, dict)
        # The resolver still decodes after all of it.
        self.assertEqual([m.name for m in Resolver().feed(good)], ["DeleteUser"])

    def test_a_cut_body_is_marked(self):
        # A Logout whose i32 has two of its bytes (and the terminator).
        (m,) = Resolver().feed(frame(0, 0x0002, bytes.fromhex("0700")))
        self.assertEqual((m.name, m.cut), ("Logout", True))


if __name__ == "__main__":
    unittest.main()
