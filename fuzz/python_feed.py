#!/usr/bin/env python3
"""Fuzzes Resolver.feed of the Python module for a bounded time.

The inputs start from a valid encoding of every message direction: their
payloads mutated (bytes changed, counts made huge, cut, grown, spliced with
another message's) and framed again with good checksums, so that the
decoders run on them, some under another method code or flag; and whole
streams damaged byte by byte, so that the frame engine sees them. Every
input is fed in pieces of random sizes to one resolver, which lives on.

feed must return a list of Message for any bytes and raise nothing: any
exception fails the run, and so does a crash of the interpreter (the caller
sees the signal). The input that failed is written to --artifact.

    PYTHONPATH=build/python python3 fuzz/python_feed.py --seconds 45
"""

import argparse
import os
import random
import struct
import sys
import time
import traceback

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests",
                                "python"))

from kzresolver import MESSAGES, Message, Resolver  # noqa: E402
from samples import encodings  # noqa: E402
from wire import frame, unframe  # noqa: E402

CODES = sorted({m.code for m in MESSAGES.values()})
HUGE = [b"\xff\xff", b"\xff\x7f", b"\x00\x80", b"\xff\xff\xff\x7f", b"\x00\x00\x00\x80"]


def mutate_payload(rng, payload, others):
    p = bytearray(payload)
    for _ in range(rng.randrange(1, 5)):
        what = rng.randrange(6)
        at = rng.randrange(len(p) + 1)
        if what == 0 and p:  # a byte changed
            p[rng.randrange(len(p))] = rng.randrange(256)
        elif what == 1:  # a count or length made huge
            p[at:at + 2] = rng.choice(HUGE)
        elif what == 2:  # cut
            del p[at:]
        elif what == 3:  # grown with noise
            p[at:at] = os.urandom(rng.randrange(1, 64))
        elif what == 4:  # spliced with another message's payload
            other = rng.choice(others)
            p[at:] = other[rng.randrange(len(other) + 1):]
        else:  # a zero byte (a text's end) put in or taken out
            zeros = [i for i, b in enumerate(p) if b == 0]
            if zeros and rng.randrange(2):
                del p[rng.choice(zeros)]
            else:
                p[at:at] = b"\0"
    return bytes(p)


def damage_stream(rng, stream):
    s = bytearray(stream)
    for _ in range(rng.randrange(1, 9)):
        if s:
            s[rng.randrange(len(s))] = rng.randrange(256)
    if rng.randrange(4) == 0:
        s[rng.randrange(len(s) + 1):] = b""
    return bytes(s)


def one_input(rng, seeds, payloads):
    """A stream of a few frames built from the seeds."""
    parts = []
    for _ in range(rng.randrange(1, 4)):
        name, kind, whole = rng.choice(seeds)
        if rng.randrange(4) == 0:
            parts.append(damage_stream(rng, whole))
            continue
        flag, code, payload = unframe(whole)
        payload = mutate_payload(rng, payload, payloads)
        if rng.randrange(8) == 0:
            code = rng.choice(CODES)
        if rng.randrange(8) == 0:
            flag ^= 1
        parts.append(frame(flag, code, payload, seq=rng.randrange(1 << 32)))
    return b"".join(parts)


def feed_in_pieces(rng, resolver, data):
    out = []
    at = 0
    while at < len(data):
        n = rng.choice([1, 2, 7, 64, 1500, len(data)])
        out += resolver.feed(data[at:at + n])
        at += n
    return out


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--seconds", type=float, default=45)
    p.add_argument("--seed", type=int, default=None)
    p.add_argument("--artifact", default="python_feed-failure.bin")
    args = p.parse_args()
    seed = args.seed if args.seed is not None else int.from_bytes(os.urandom(4), "little")
    rng = random.Random(seed)
    # Single-frame encodings only: a mutated payload is framed again whole.
    seeds = [s for s in encodings() if struct.unpack_from("<I", s[2], 10)[0] + 22 == len(s[2])]
    payloads = [unframe(s[2])[2] for s in seeds]
    resolver = Resolver()
    deadline = time.monotonic() + args.seconds
    inputs = messages = 0
    data = b""
    try:
        while time.monotonic() < deadline:
            data = one_input(rng, seeds, payloads)
            for m in feed_in_pieces(rng, resolver, data):
                if not (isinstance(m, Message) and isinstance(m.fields, dict)
                        and isinstance(m.name, str)):
                    raise AssertionError("feed gave %r" % (m,))
                messages += 1
            inputs += 1
    except Exception:
        with open(args.artifact, "wb") as f:
            f.write(data)
        traceback.print_exc()
        print("python_feed: failed on input %d (seed %d), written to %s"
              % (inputs, seed, args.artifact), file=sys.stderr)
        return 1
    print("python_feed: %d inputs, %d messages decoded, %d seeds, seed %d, %.0f s"
          % (inputs, messages, len(seeds), seed, args.seconds))
    return 0


if __name__ == "__main__":
    sys.exit(main())
