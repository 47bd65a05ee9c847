"""One message of every family encoded from Python, against its frame laid
out by hand: the method code from the code table, the payload field by field
from the family's layout (strz: UTF-8 and a zero; strlist: u16 count and
strz items; flag8: 0 for true, 1 for false; integers little-endian)."""

import datetime

import pytest

from kzresolver import Resolver
from wire import frame

ROWS = [
    # family, message, fields, flag, code, payload
    ("login", "Logout", dict(value=7), 0, 0x0002, "07 00 00 00"),
    ("users", "DeleteUser.reply", dict(ok=False, names=["a", "b"]), 1, 0x001B,
     "02 00 61 00 62 00 01"),
    ("groups", "UpdateLv2Group.reply", dict(a="a", b="b", c="c"), 1, 0x0014,
     "61 00 62 00 63 00"),
    ("operators", "UpdateOperator",
     dict(s1="a", s2="b", s3="c", s4="d", s5="e", b1=False, b2=True), 0, 0x001E,
     "61 00 62 00 63 00 64 00 65 00 01 00"),
    ("permissions", "AddPermission", dict(keys=["a"], target="b", power=0x0007FFFF), 0, 0x1011,
     "01 00 61 00 62 00 ff ff 07 00"),  # u32 power after the target
    ("machine registry", "DeleteMac.reply", dict(ok=False, names=["a", "b"]), 1, 0x0403,
     "02 00 61 00 62 00 01"),
    ("machine status", "MacState.reply", dict(a="a", b="b", state=3, c="c"), 1, 0x0404,
     "61 00 62 00 63 00 03"),  # the state byte last on the wire
    ("remote panel", "RemoteScreenTouch", dict(mac="m", kind=1, x=0x0102, y=0x0304), 0, 0x0602,
     "6d 00 01 02 01 04 03"),  # u8 kind, u16 x, u16 y
    ("plans", "EditPlan", dict(a="a", b="b", c="c", m=1, n=-1), 0, 0x1022,
     "61 00 62 00 63 00 01 00 00 00 ff ff ff ff"),
    ("workshop plans", "WorkshopAddPlan", dict(a="a", b="b", c="c", map={}, n=5), 0, 0x1027,
     "61 00 62 00 63 00 00 00 05 00 00 00"),  # an empty map is its u16 count
    ("planned stops", "DelPlanShutItem.reply", dict(ok1=True, ok2=False, n=7), 1, 0x0413,
     "07 00 00 00 00 01"),  # the i32, then both flags
    ("OEE data", "QueryDateOEEData",
     {"from": datetime.date(2024, 3, 5), "to": datetime.date(2024, 3, 7), "n": 1}, 0, 0x041A,
     "32 30 32 34 2d 30 33 2d 30 35 00 32 30 32 34 2d 30 33 2d 30 37 00 01 00 00 00"),
    ("machine files", "MacFiles.reply", dict(path="a", value=3, files=["a", "b"]), 1, 0x0500,
     "61 00 02 00 03 00 61 00 62 00"),  # the count ahead of the value
    ("file transfer", "MacTsfFileContent.reply", dict(n1=1, n2=2), 1, 0x050B,
     "01 00 00 00 02 00 00 00"),
    ("shared files", "LoadSharedFiles.reply", dict(path="a", first=[], second=["a", "b"]), 1,
     0x0504, "61 00 00 00 02 00 61 00 62 00"),
    ("log queries", "QueryLog2", dict(a="a", b="b", c="c", list=["a"]), 0, 0x070C,
     "61 00 62 00 63 00 01 00 61 00"),
    ("machine data", "QueryMacStatistic", dict(s1="a", s2="b", s3="c", s4="d"), 0, 0x070B,
     "61 00 62 00 63 00 64 00"),
    ("file prices", "UpdateFilePrice.reply", dict(ok=False, a="a", b="b", c="c"), 1, 0x0809,
     "61 00 62 00 63 00 01"),
]


@pytest.mark.parametrize("family, message, fields, flag, code, payload", ROWS,
                         ids=[r[0] for r in ROWS])
def test_one_message_of_every_family(family, message, fields, flag, code, payload):
    assert Resolver().encode(message, **fields) == [frame(flag, code, bytes.fromhex(payload))]
