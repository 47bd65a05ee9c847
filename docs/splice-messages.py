#!/usr/bin/env python3
"""Doxygen input filter for kzprotocolresolver.h: puts the text of kzmessages.h where the class
includes it, so that the messages' declarations are documented as the class's members (Doxygen
does not read an #include inside a class)."""
import os
import sys

path = sys.argv[1]
with open(path, encoding="utf-8") as f:
    for line in f:
        if line.strip() == '#include "kzmessages.h"':
            with open(os.path.join(os.path.dirname(path), "kzmessages.h"), encoding="utf-8") as m:
                sys.stdout.write(m.read())
        else:
            sys.stdout.write(line)
