#!/usr/bin/env python3
"""The Wireshark dissector against kzdump, on captures that kzdump's tap writes.

    check_dissector.py KZDUMP KZ_LUA session KZLAN_SERVER KZLAN_CLIENT
    check_dissector.py KZDUMP KZ_LUA damaged

session: a kzlan-server on loopback, kzlan-client commands relayed through `kzdump --tap
--pcap`; tshark with the dissector must find the same messages (method, flag, in order) and the
same values of chosen fields as `kzdump --json` of the same file, and the display filters must
select what they name.
damaged: frames written here from the frame format (a good one, one whose checksum is broken, an
unknown method code, a cut body, a body of 256 KiB split over many frames) relayed the same way;
the dissector must mark each as kzdump does and take the split body together.

Exits 77 (skipped) when tshark is missing.
"""

import json
import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import zlib

SKIP = 77
PASSWORD = "first-Admin-pw"


def fail(why):
    print("FAIL: " + why)
    sys.exit(1)


def start_tap(kzdump, target_port, pcap, once=False):
    tap = subprocess.Popen([kzdump, "--json", "--pcap", pcap] + (["--once"] if once else []) + [
                            "--tap", "0",
                            "127.0.0.1:%d" % target_port],
                           stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    banner = tap.stderr.readline()  # kzdump: listening on 127.0.0.1 port N, relaying to ...
    if "port " not in banner:
        fail("no banner from the tap: %r" % banner)
    return tap, int(banner.split("port ")[1].split(",")[0])


def stop(process):
    process.terminate()
    try:
        process.wait(10)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def tshark(lua, pcap, *args):
    out = subprocess.run(["tshark", "-n", "-X", "lua_script:" + lua, "-r", pcap] + list(args),
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=300)
    if out.returncode != 0:
        fail("tshark %s: %s" % (" ".join(args), out.stderr))
    return out.stdout


def dissected(lua, pcap, *fields):
    """Per packet with a KZ message: the values of each field, in tree order."""
    args = ["-Y", "kz.method", "-T", "fields", "-E", "separator=\t", "-E", "occurrence=a",
            "-E", "aggregator=|"]
    for f in fields:
        args += ["-e", f]
    rows = []
    for line in tshark(lua, pcap, *args).splitlines():
        cells = line.split("\t")
        rows.append([c.split("|") if c else [] for c in cells])
    return rows


def dumped(kzdump, pcap):
    out = subprocess.run([kzdump, "--json", pcap], stdout=subprocess.PIPE, text=True, timeout=300)
    if out.returncode != 0:
        fail("kzdump --json %s exited %d" % (pcap, out.returncode))
    return [json.loads(line) for line in out.stdout.splitlines()]


def count(lua, pcap, display_filter):
    return len(tshark(lua, pcap, "-Y", display_filter).splitlines())


def field(message, name):
    return [f["value"] for f in message.get("fields", []) if f["name"] == name]


def session(kzdump, lua, server_exe, client_exe, work):
    db = os.path.join(work, "kzlan.sqlite")
    server = subprocess.Popen([server_exe, "--listen", "127.0.0.1", "--port", "0", "--db", db,
                               "--storage", os.path.join(work, "storage"), "--admin-password",
                               PASSWORD], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True)
    port = 0
    for line in server.stdout:
        if line.startswith("kzlan-server listening on "):
            port = int(line.strip().rsplit(":", 1)[1])
            break
    if not port:
        fail("the server did not start")
    threading.Thread(target=server.stdout.read, daemon=True).start()
    pcap = os.path.join(work, "session.pcap")
    tap, tap_port = start_tap(kzdump, port, pcap)
    try:
        for command in (["users", "add", "carol", "--password", "Carol-pw-1", "--group",
                         "Plant A/Line 1", "--full-name", "Carol Meyer"],
                        ["users", "list"],
                        ["users", "move", "carol", "--to", "Plant B/Line 3"],
                        ["users", "delete", "carol"]):
            run = subprocess.run([client_exe, "--port", str(tap_port), "--password", PASSWORD]
                                 + command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                 text=True, timeout=60)
            if run.returncode != 0:
                fail("kzlan-client %s: %s" % (" ".join(command), run.stderr))
    finally:
        stop(tap)
        stop(server)

    messages = [m for m in dumped(kzdump, pcap) if "method" in m]
    rows = dissected(lua, pcap, "kz.method", "kz.flag", "kz.name", "kz.user.name",
                     "kz.groups.groups.users.name")
    seen = [(m, int(f)) for r in rows for m, f in zip(r[0], r[1])]
    want = [(m["method"], m["flag"]) for m in messages]
    if seen != want:
        fail("messages differ:\n tshark %s\n kzdump %s" % (seen, want))
    # kzdump shows a record sent as the whole payload by its fields (AddUser's reply: name, ...);
    # the dissector files them under the record's field (kz.user.name).
    names = [n for r in rows if "AddUser" in r[0] for n in r[2] + r[3]]
    want_names = [v for m in messages if m["method"] == "AddUser" for v in field(m, "name")]
    if names != want_names or "carol" not in names:
        fail("AddUser names differ: tshark %s, kzdump %s" % (names, want_names))
    # The user list: kzdump follows its decoder (a flat run of counts and fields), the dissector
    # the table's tree; the same names in the same order.
    listed = [n for r in rows for n in r[4]]
    want_listed = [v for m in messages if m["method"] == "UserInfo" for v in field(m, "name")]
    if listed != want_listed or "carol" not in listed:
        fail("user list differs: tshark %s, kzdump %s" % (listed, want_listed))
    adds = sum(1 for m in messages if m["method"] == "AddUser")
    replies = len({m["n"] for m in messages if m["flag"] == 1})
    if count(lua, pcap, 'kz.method == "AddUser"') != adds or adds != 2:
        fail('kz.method == "AddUser" selects %d packets, kzdump shows %d messages'
             % (count(lua, pcap, 'kz.method == "AddUser"'), adds))
    if count(lua, pcap, "kz.flag == 1") == 0 or replies == 0:
        fail("kz.flag == 1 selects nothing")
    if count(lua, pcap, 'kz.user.name == "carol"') == 0:
        fail('kz.user.name == "carol" selects nothing')
    if tshark(lua, pcap, "-Y", "_ws.expert && kz").strip():
        fail("expert info on a clean session:\n" + tshark(lua, pcap, "-Y", "_ws.expert && kz"))
    print("session: %d messages match, %d AddUser" % (len(seen), adds))


# -- Frames written from the frame format, for the damaged capture ---------------------------

def keyword(i):
    m = (1 << 64) - 1
    z = (i * 0x9E3779B97F4A7C15 + 0x4B5A4150494E3031) & m
    z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & m
    z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & m
    return z ^ (z >> 31)


def coded(body):
    """Bytes 1 to the end coded as one run; byte 0 stays."""
    run = bytearray(body[1:])
    for w in range(0, len(run), 8):
        k = keyword(w // 8).to_bytes(8, "little")
        for j in range(min(8, len(run) - w)):
            run[w + j] ^= k[j]
    return body[:1] + bytes(run)


def whole_frame(seq, body):
    head = b"KZ" + struct.pack("<BBIHI", 1, 0, seq, 0, len(body))
    head += struct.pack("<I", zlib.crc32(head))
    frame = head + body
    return frame + struct.pack("<I", zlib.crc32(frame))


def pieces(seq, body, per_piece):
    out = b""
    for at in range(0, len(body), per_piece):
        data = body[at:at + per_piece]
        head = b"KZ" + struct.pack("<BBIHIIII", 1, 1, seq, 0, len(data), seq, len(body), at)
        head += struct.pack("<I", zlib.crc32(head))
        frame = head + data
        out += frame + struct.pack("<I", zlib.crc32(frame))
    return out


def message(flag, code, payload):
    return coded(bytes([flag, 17]) + struct.pack("<H", code) + payload + b"\0")


def damaged(kzdump, lua, work):
    logout = message(0, 0x0002, struct.pack("<i", 7))
    if whole_frame(0, logout).hex() != ("4b5a01000000000000000900000069e7420a"
                                        "0078cc92ae3c62d0d257818efc"):
        fail("the test's own frames are not the worked example's")
    bad = bytearray(whole_frame(1, logout))
    bad[20] ^= 0x40  # a data byte: the frame checksum no longer holds
    image = os.urandom(256 * 1024)
    split = message(1, 0x0605, b"KZ-0001\0" + struct.pack("<I", len(image)) + image)
    stream = (whole_frame(0, logout) + bytes(bad) + whole_frame(2, message(0, 0x7777, b"\1\2"))
              + whole_frame(3, message(0, 0x0002, b"\7\0")) + pieces(4, split, 2014)
              + whole_frame(5, message(0, 0x0002, struct.pack("<i", 9))))

    sink = socket.socket()
    sink.bind(("127.0.0.1", 0))
    sink.listen(1)

    def drain():
        conn, _ = sink.accept()
        while conn.recv(65536):
            pass
        conn.close()

    threading.Thread(target=drain, daemon=True).start()
    pcap = os.path.join(work, "damaged.pcap")
    tap, tap_port = start_tap(kzdump, sink.getsockname()[1], pcap, once=True)
    try:
        with socket.create_connection(("127.0.0.1", tap_port)) as c:
            for at in range(0, len(stream), 50000):
                c.sendall(stream[at:at + 50000])
        tap.wait(60)  # --once: it ends with the connection, the capture written
    finally:
        stop(tap)
    dump = dumped(kzdump, pcap)
    rows = dissected(lua, pcap, "kz.method", "kz.pieces", "kz.frame.data_len")
    methods = [m for r in rows for m in r[0]]
    want = [m["method"] for m in dump if "method" in m]
    if methods != want or "RemoteUpdateImage" not in methods:
        fail("messages differ: tshark %s, kzdump %s" % (methods, want))
    split_rows = [r for r in rows if "RemoteUpdateImage" in r[0]]
    want_pieces = [m["frames"] for m in dump if m.get("method") == "RemoteUpdateImage"]
    if [r[1] for r in split_rows] != [[str(n)] for n in want_pieces] or want_pieces != [131]:
        fail("split body: tshark %s frames, kzdump %s" % ([r[1] for r in split_rows],
                                                            want_pieces))
    experts = tshark(lua, pcap, "-q", "-z", "expert")
    for e in ("Frame checksum mismatch", "Unknown method code 0x7777",
              "Body cut: the data ends inside the field at @0",
              "bytes that are not part of a frame"):
        if e not in experts:
            fail("no expert info %r:\n%s" % (e, experts))
    notices = [m["notice"] for m in dump if "notice" in m]
    errors = [m["error"] for m in dump if "error" in m]
    if notices != ["frame checksum mismatch"] or len(errors) != 2:
        fail("kzdump saw %s and %s" % (notices, errors))
    print("damaged: %d messages match, the split body in %d frames" % (len(methods),
                                                                       want_pieces[0]))


def main():
    if not shutil.which("tshark"):
        print("tshark is not installed: skipped")
        return SKIP
    kzdump, lua, what = sys.argv[1:4]
    with tempfile.TemporaryDirectory() as work:
        if what == "session":
            session(kzdump, lua, sys.argv[4], sys.argv[5], work)
        else:
            damaged(kzdump, lua, work)
    return 0


if __name__ == "__main__":
    sys.exit(main())
