#!/usr/bin/env python3
"""Exports a week's OEE figures of a LAN server to CSV.

Asks for the figures of seven days from --from (default: this week's Monday)
and writes one CSV row per day. The reference server's rows hold the date,
three texts it leaves empty, the planned quantity, the planned hours and
four figures it does not measure (0); the columns keep the rows' positions.

    PYTHONPATH=build/python python3 examples/python/export_oee_week.py \\
        --port 7000 --password-file admin-password --from 2024-03-04 --output week.csv
"""

import asyncio
import csv
import datetime
import sys

import lan_args
from kzresolver.client import Client

COLUMNS = ["date", "text2", "text3", "text4", "planned_quantity", "planned_hours",
           "value7", "value8", "value9", "value10"]


async def week(args):
    """The figure rows of the seven days from args.start, or None when the
    login is refused."""
    async with await Client.connect(args.host, args.port, timeout=args.timeout) as client:
        if not (await client.login(args.user, lan_args.password(args)))["first"]:
            return None
        reply = await client.query_date_oee_data(
            **{"from": args.start, "to": args.start + datetime.timedelta(days=6), "n": 1})
        return reply["figures"]


def main():
    p = lan_args.parser(__doc__)
    p.add_argument("--from", dest="start", type=datetime.date.fromisoformat,
                   default=datetime.date.today() - datetime.timedelta(
                       days=datetime.date.today().weekday()),
                   help="the first day, yyyy-mm-dd (default: this week's Monday)")
    p.add_argument("--output", help="the CSV file (default: standard output)")
    args = p.parse_args()
    rows = asyncio.run(week(args))
    if rows is None:
        print("login refused", file=sys.stderr)
        return 1
    out = open(args.output, "w", newline="", encoding="utf-8") if args.output else sys.stdout
    try:
        writer = csv.writer(out)
        writer.writerow(COLUMNS)
        for row in rows:
            writer.writerow(list(row) + [""] * (len(COLUMNS) - len(row)))
    finally:
        if out is not sys.stdout:
            out.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
