"""The examples of examples/python run against the reference server on
127.0.0.1, their output checked."""

import csv
import hashlib
import os
import subprocess
import sys

from kzresolver.client import Client

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples",
                        "python")

# Four machines in three groups of two halls.
MACHINES = [("KZ-1", "Hall 1", "Line A"), ("KZ-2", "Hall 1", "Line A"),
            ("KZ-3", "Hall 1", "Line B"), ("KZ-4", "Hall 2", "Line A")]


def example(server, name, *args):
    return subprocess.run(
        [sys.executable, os.path.join(EXAMPLES, name), "--port", str(server.port),
         "--password-file", server.secret, *args],
        capture_output=True, text=True, timeout=60)


def prepare(server, run, requests):
    """Logs in and sends ``requests`` ((message, fields) pairs), each answered
    or, without a reply, followed by a request that is (so it was taken)."""
    async def body():
        async with await Client.connect("127.0.0.1", server.port) as client:
            assert (await client.login("admin", server.password))["first"]
            for message, fields in requests:
                await client.request(message, **fields)
            await client.load_file_price()
    run(body())


def files_of(server, run, machines):
    """The file names the server lists for each machine."""
    async def body():
        async with await Client.connect("127.0.0.1", server.port) as client:
            await client.login("admin", server.password)
            replies = [await client.mac_files(mac=m, path="/", mode=0) for m in machines]
        return [r.fields.get("file", []) for r in replies]
    # One name comes as itself, several as a list.
    return [f if isinstance(f, list) else [f] for f in run(body())]


def test_listing_users_and_machines(lan_server, run):
    prepare(lan_server, run, [("MacInfo", dict(macs=[
        dict(mac=m, text2="embroidery", code=1, text4="v2", lv1Group=g1, lv2Group=g2, value7=0)
        for m, g1, g2 in MACHINES]))])
    done = example(lan_server, "list_users_and_machines.py")
    assert done.returncode == 0, done.stderr
    assert "name='admin'" in done.stdout
    for m, _, _ in MACHINES:
        assert "mac='%s'" % m in done.stdout


def test_pushing_a_file_to_a_group(lan_server, run, tmp_path):
    prepare(lan_server, run, [("MacInfo", dict(macs=[
        dict(mac=m, text2="embroidery", code=1, text4="v2", lv1Group=g1, lv2Group=g2, value7=0)
        for m, g1, g2 in MACHINES]))])
    data = os.urandom(300 * 1024)
    path = tmp_path / "rose.dst"
    path.write_bytes(data)
    md5 = hashlib.md5(data).hexdigest()

    done = example(lan_server, "push_file_to_group.py", "--group", "Hall 1/Line A", str(path))
    assert done.returncode == 0, done.stderr
    assert done.stdout.splitlines() == [
        "%s: sent rose.dst, %d bytes in %d chunks, md5 %s" % (m, len(data), 5, md5)
        for m in ("KZ-1", "KZ-2")]
    assert "KZ-2: 100% 300 KiB" in done.stderr
    # The server keeps a file only when its size and digest match: the
    # machines' file lists show it where it was sent, and nowhere else.
    assert files_of(lan_server, run, ["KZ-1", "KZ-2", "KZ-3"]) == [["rose.dst"], ["rose.dst"], []]

    whole_hall = example(lan_server, "push_file_to_group.py", "--group", "Hall 1", str(path))
    assert [line.split(":")[0] for line in whole_hall.stdout.splitlines()] == \
        ["KZ-1", "KZ-2", "KZ-3"]
    nobody = example(lan_server, "push_file_to_group.py", "--group", "Hall 9", str(path))
    assert (nobody.returncode, nobody.stderr) == (1, "no machine in group Hall 9\n")


def test_exporting_a_week_of_oee_figures(lan_server, run, tmp_path):
    prepare(lan_server, run, [
        ("AddPlan", dict(a="2024-03-05", b="rose.dst", map={"KZ-1": 1200, "KZ-2": 300}, n=0)),
        ("EditPlanWorkTime", dict(date="2024-03-06", times={
            1: dict(amount=7.5, first="06:00", second="13:30")})),
    ])
    out = tmp_path / "week.csv"
    done = example(lan_server, "export_oee_week.py", "--from", "2024-03-04",
                   "--output", str(out))
    assert done.returncode == 0, done.stderr
    with open(out, newline="", encoding="utf-8") as f:
        rows = list(csv.DictReader(f))
    assert [r["date"] for r in rows] == ["2024-03-%02d" % d for d in range(4, 11)]
    by_day = {r["date"]: r for r in rows}
    assert float(by_day["2024-03-05"]["planned_quantity"]) == 1500
    assert float(by_day["2024-03-06"]["planned_hours"]) == 7.5
    assert float(by_day["2024-03-04"]["planned_quantity"]) == 0

    refused = subprocess.run(
        [sys.executable, os.path.join(EXAMPLES, "export_oee_week.py"), "--port",
         str(lan_server.port), "--password-file", os.devnull],
        capture_output=True, text=True, timeout=60)
    assert (refused.returncode, refused.stderr) == (1, "login refused\n")
