#!/usr/bin/env python3
"""Checks a manual page against its program's --help, both ways.

    check-options.py PAGE PROGRAM [ARGS...]

Runs PROGRAM ARGS --help and collects every long option (--name) in what it
prints, and every long option the page names outside its EXAMPLES and SEE ALSO
sections (which may show other programs' options). Every option of --help must
be in the page and every option of the page in --help; each one missing is
named with the place it is missing from. Exit status 1 on any difference.
"""
import re
import subprocess
import sys

OPTION = re.compile(r"(?<![\w-])--([a-z][a-z0-9-]*)")


def page_options(text):
    found = set()
    lines = text.splitlines()
    section = ""
    for line in lines:
        if line.startswith(".SH"):
            section = line[3:].strip().strip('"')
        elif section not in ("EXAMPLES", "SEE ALSO"):
            found |= set(OPTION.findall(line.replace("\\-", "-")))
    return found


def main():
    page, program = sys.argv[1], sys.argv[2:]
    name = program[0].rsplit("/", 1)[-1]
    with open(page, encoding="utf-8") as f:
        documented = page_options(f.read())
    run = subprocess.run(program + ["--help"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                         timeout=30, check=False)
    listed = set(OPTION.findall(run.stdout.decode("utf-8", "replace")))
    problems = []
    if run.returncode != 0:
        problems.append(f"{name} --help exits with {run.returncode}")
    for o in sorted(listed - documented):
        problems.append(f"{name} --help lists --{o}, which {page} does not describe "
                        "(add a .TP item for it)")
    for o in sorted(documented - listed):
        problems.append(f"{page} describes --{o}, which {name} --help does not list "
                        "(remove it from the page, or add it to --help)")
    for p in problems:
        print(p)
    if not problems:
        print(f"{page}: the {len(listed)} options of {name} --help, no more, no less")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
