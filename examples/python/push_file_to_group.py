#!/usr/bin/env python3
"""Sends a file to every machine of a group on a LAN server, with a progress line.

The server sends its machine list in its group tree after a login; the
machines under --group (a first-level group, or LV1/LV2 for one of its
second-level groups) get the file one after the other as transfer tasks.
Prints one line per machine; exits with 1 when a machine did not get it.

    PYTHONPATH=build/python python3 examples/python/push_file_to_group.py \\
        --port 7000 --password-file admin-password --group "Hall 1/Line A" rose.dst
"""

import asyncio
import sys

import lan_args
from kzresolver.client import Client
from kzresolver.transfer import TransferError, send_file


def as_list(value):
    """A name the message holds once comes as one value, more than once as a list."""
    return value if isinstance(value, list) else [value]


def machines_by_group(message):
    """{(lv1, lv2): [machine, ...]} from a MacInfo message: the group tree
    in wire order, rebuilt from its counts."""
    f = message.fields
    lv1 = as_list(f.get("lv1", []))
    lv2_counts = as_list(f.get("lv2Count", []))
    lv2 = iter(as_list(f.get("lv2", [])))
    mac_counts = iter(as_list(f.get("macCount", [])))
    records = iter([v for k, v in f.items() if k.startswith("record#")])
    groups = {}
    for first, n2 in zip(lv1, lv2_counts):
        for _ in range(n2):
            key = (first, next(lv2))
            groups[key] = [next(records).mac for _ in range(next(mac_counts))]
    return groups


class Progress:
    """A progress line on standard error: redrawn in place on a terminal,
    otherwise one line per quarter."""

    def __init__(self):
        self.tty = sys.stderr.isatty()
        self.quarter = 0

    def show(self, machine, done, size):
        percent = 100 * done // size if size else 100
        if self.tty:
            bar = "#" * (percent * 30 // 100)
            print("\r%-16s [%-30s] %3d%% %d KiB" % (machine, bar, percent, done // 1024),
                  end="", file=sys.stderr, flush=True)
        elif percent // 25 > self.quarter:
            self.quarter = percent // 25
            print("%s: %3d%% %d KiB" % (machine, percent, done // 1024), file=sys.stderr)

    def end(self):
        if self.tty:
            print(file=sys.stderr)
        self.quarter = 0


async def main(args):
    async with await Client.connect(args.host, args.port, timeout=args.timeout) as client:
        listing = client.expect("MacInfo")  # pushed right after the login
        if not (await client.login(args.user, lan_args.password(args)))["first"]:
            print("login refused", file=sys.stderr)
            return 1
        groups = machines_by_group(await listing)
        lv1, _, lv2 = args.group.partition("/")
        machines = [m for (g1, g2), macs in groups.items() for m in macs
                    if g1 == lv1 and (not lv2 or g2 == lv2)]
        if not machines:
            print("no machine in group %s" % args.group, file=sys.stderr)
            return 1
        failed = 0
        progress = Progress()
        for machine in machines:
            try:
                sent = await send_file(client, args.file, machine=machine, folder=args.folder,
                                       progress=lambda done, size: progress.show(machine, done,
                                                                                 size))
                progress.end()
                print("%s: sent %s, %d bytes in %d chunks, md5 %s"
                      % (machine, sent.name, sent.size, sent.chunks, sent.md5))
            except (TransferError, asyncio.TimeoutError) as e:
                progress.end()
                print("%s: failed: %s" % (machine, e or "no answer"))
                failed += 1
    return 1 if failed else 0


if __name__ == "__main__":
    p = lan_args.parser(__doc__)
    p.add_argument("--group", required=True, help="LV1 or LV1/LV2")
    p.add_argument("--folder", default="/")
    p.add_argument("file")
    sys.exit(asyncio.run(main(p.parse_args())))
