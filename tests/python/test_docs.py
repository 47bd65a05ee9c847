"""The Python blocks of docs/python.md work as written: every block compiles,
and a block that ends in comment lines (its output) is run and must print
exactly them."""

import contextlib
import io
import os
import re

import pytest

DOC = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "python.md")


def blocks():
    with open(DOC, encoding="utf-8") as f:
        text = f.read()
    out = []
    for m in re.finditer(r"```python\n(.*?)```", text, re.S):
        line = text.count("\n", 0, m.start()) + 1
        out.append(pytest.param(m.group(1), id="line %d" % line))
    return out


@pytest.mark.parametrize("code", blocks())
def test_a_block_works_as_written(code):
    lines = code.rstrip("\n").split("\n")
    shown = []
    while lines and lines[-1].startswith("# "):
        shown.insert(0, lines.pop()[2:])
    program = compile(code, "docs/python.md", "exec")
    if not shown:
        return  # a fragment: it needs a server of the reader's
    printed = io.StringIO()
    with contextlib.redirect_stdout(printed):
        exec(program, {"__name__": "__main__"})
    assert printed.getvalue().splitlines() == shown
