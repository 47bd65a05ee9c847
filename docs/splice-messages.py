#!/usr/bin/env python3
"""Doxygen input filter for kzprotocolresolver.h and kzclient.h: puts the text of kzmessages.h
(kzclientrequests.h) where the class includes it, so that the generated declarations are
documented as the class's members (Doxygen does not read an #include inside a class)."""
import os
import sys

path = sys.argv[1]
with open(path, encoding="utf-8") as f:
    for line in f:
        name = line.strip()[len('#include "'):-1] if line.startswith("#include") else None
        if name in ("kzmessages.h", "kzclientrequests.h"):
            with open(os.path.join(os.path.dirname(path), name), encoding="utf-8") as m:
                sys.stdout.write(m.read())
        else:
            sys.stdout.write(line)
