#!/usr/bin/env python3
"""Lists the user accounts and the machines of a LAN server.

The server sends both lists on its own after a login; this waits for them.

    PYTHONPATH=build/python python3 examples/python/list_users_and_machines.py \
        --port 7000 --user admin --password-file admin-password
"""

import asyncio
import sys

import lan_args
from kzresolver.client import Client


async def lists(client, wanted=("UserInfo", "MacInfo")):
    """The first push of each wanted message, by name."""
    got = {}
    async for push in client.pushes():
        if push.name in wanted:
            got[push.name] = push
        if len(got) == len(wanted):
            break
    return got


async def main(args):
    async with await Client.connect(args.host, args.port, timeout=args.timeout) as client:
        if not (await client.login(args.user, lan_args.password(args)))["first"]:
            print("login refused", file=sys.stderr)
            return 1
        got = await asyncio.wait_for(lists(client), args.timeout)
        for name in ("UserInfo", "MacInfo"):
            print("%s:" % name)
            for key, value in got[name].fields.items():
                print("  %s = %r" % (key, value))
    return 0


if __name__ == "__main__":
    sys.exit(asyncio.run(main(lan_args.parser(__doc__).parse_args())))
