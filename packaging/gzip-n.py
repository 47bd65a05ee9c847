#!/usr/bin/env python3
"""gzip -9n: SOURCE compressed into DEST with no file name and no time stamp,
so a package holds the same bytes at every build."""
import gzip
import sys

with open(sys.argv[1], "rb") as source, open(sys.argv[2], "wb") as dest:
    dest.write(gzip.compress(source.read(), 9, mtime=0))
