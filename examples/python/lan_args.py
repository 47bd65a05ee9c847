"""The command line the examples share: where the server is and who logs in."""

import argparse


def parser(doc):
    """An argument parser with --host, --port, --user, --password-file and
    --timeout, described by the first line of ``doc``."""
    p = argparse.ArgumentParser(description=doc.splitlines()[0])
    p.add_argument("--host", default="127.0.0.1")
    p.add_argument("--port", type=int, required=True)
    p.add_argument("--user", default="admin")
    p.add_argument("--password-file", required=True,
                   help="a file holding the password (kept out of the process list)")
    p.add_argument("--timeout", type=float, default=10, help="seconds to wait for an answer")
    return p


def password(args):
    """The password in --password-file."""
    with open(args.password_file, encoding="utf-8") as f:
        return f.read().strip()
