#!/usr/bin/env python3
"""Runs the README's commands and builds its code, as a reader would.

    run-readme.py README BUILD_DIR SOURCE_DIR QT_MAJOR [BLOCK_NUMBER...]

Every fenced block with a language is taken, in order:
  sh     run by bash -e in a scratch folder, the programs of BUILD_DIR on PATH
         and under build/ as the README names them; at most 60 s, and what it
         started in the background is stopped after it;
  cmake  a host project's CMakeLists.txt after its first lines, configured and
         built against BUILD_DIR installed into a scratch prefix;
  cpp    compiled (syntax and types) against the library's headers and Qt.
A block is left out when the line before it is `<!-- not run: REASON -->`.
`<!-- setup: SHELL -->` before a sh block runs SHELL first (files it needs);
`<!-- context: C++ -->` before a cpp block declares what the fragment uses, as
members of the class whose member function its statements become.
Blocks without a language (program output) are text.

Everything runs on loopback: the harness's kzlan-server listens on 127.0.0.1
only, and its kzlan-client and kzdemo wait (10 s at most) for the port they
connect to, as a person typing the next command would have. Exit status 1 if
a block fails, with the block's line, its text and its output.
"""
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile

FENCE = re.compile(r"^```(\w*)\s*$")
NOTE = re.compile(r"^<!--\s*(not run|setup|context):\s*(.*?)\s*-->$")


def blocks(path):
    """(line, language, text, notes) of each fenced block with a language."""
    lines = open(path, encoding="utf-8").read().splitlines()
    found, i = [], 0
    while i < len(lines):
        m = FENCE.match(lines[i])
        if not m:
            i += 1
            continue
        start, lang, body = i + 1, m.group(1), []
        i += 1
        while i < len(lines) and not FENCE.match(lines[i]):
            body.append(lines[i])
            i += 1
        i += 1
        notes, j = {}, start - 2
        while j >= 0 and NOTE.match(lines[j]):
            kind, text = NOTE.match(lines[j]).groups()
            notes[kind] = text
            j -= 1
        if lang:
            found.append((start, lang, "\n".join(body) + "\n", notes))
    return found


WAIT_PORT = r"""
wait_port() {  # the port a client is about to use: listening within 10 s
  # Read from the kernel's table, not by connecting: a probe connection would be
  # a real one to a relay such as kzdump --tap --once.
  local want; want="^ *[0-9]+: [0-9A-F]+:$(printf '%04X' "$1") [0-9A-F]+:[0-9A-F]+ 0A "
  for _ in $(seq 100); do
    grep -Eq "$want" /proc/net/tcp /proc/net/tcp6 2>/dev/null && return 0; sleep 0.1
  done
}
port_after() {  # the value after option $1 in the remaining arguments, or $2
  local want="$1" dflt="$2"; shift 2
  while [ $# -gt 0 ]; do [ "$1" = "$want" ] && { echo "$2"; return; }; shift; done
  echo "$dflt"
}
"""


def make_tools(scratch, build):
    """bin/ and build/ in the scratch folder: the programs, on loopback."""
    real = {
        "kzlan-server": os.path.join(build, "tools/kzlan-server/kzlan-server"),
        "kzlan-client": os.path.join(build, "tools/kzlan-client/kzlan-client"),
        "kzdump": os.path.join(build, "tools/kzdump"),
        "kzdemo": os.path.join(build, "examples/kzdemo"),
    }
    wrap = {
        "kzlan-server": 'exec "{0}" --listen 127.0.0.1 "$@"',
        "kzlan-client": 'wait_port "$(port_after --port 7600 "$@")"; exec "{0}" "$@"',
        "kzdump": 'exec "{0}" "$@"',
        "kzdemo": 'p="$(port_after --connect "" "$@")"; [ -n "$p" ] && wait_port "$p"; '
                  'exec "{0}" "$@"',
    }
    bindir = os.path.join(scratch, "bin")
    os.makedirs(bindir)
    for name, target in real.items():
        script = os.path.join(bindir, name)
        with open(script, "w", encoding="utf-8") as f:
            f.write("#!/usr/bin/env bash\n" + WAIT_PORT + wrap[name].format(target) + "\n")
        os.chmod(script, 0o755)
        where = os.path.join(scratch, "build", os.path.relpath(target, build))
        os.makedirs(os.path.dirname(where), exist_ok=True)
        os.symlink(script, where)
    # Files the README names under build/ besides the programs.
    for name in ("protocol/generated/kz.lua",):
        where = os.path.join(scratch, "build", name)
        os.makedirs(os.path.dirname(where), exist_ok=True)
        os.symlink(os.path.join(build, name), where)
    return bindir


def run(cmd, cwd, env, timeout=120):
    """Runs cmd in a session of its own; when it ends, stops what it left
    running in the background (a server started with &)."""
    with tempfile.TemporaryFile() as out:
        p = subprocess.Popen(cmd, cwd=cwd, env=env, stdin=subprocess.DEVNULL, stdout=out,
                             stderr=subprocess.STDOUT, start_new_session=True)
        try:
            rc = p.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            rc = "time-out"
        try:
            os.killpg(p.pid, signal.SIGTERM)
        except ProcessLookupError:
            pass
        p.wait()
        out.seek(0)
        return rc, out.read().decode("utf-8", "replace")


def main():
    readme, build, source = (os.path.abspath(a) for a in sys.argv[1:4])
    major = sys.argv[4]
    only = {int(a) for a in sys.argv[5:]}
    scratch = tempfile.mkdtemp(prefix="readme-")
    failures = 0
    try:
        bindir = make_tools(scratch, build)
        prefix = os.path.join(scratch, "prefix")
        env = dict(os.environ, HOME=os.path.join(scratch, "home"),
                   PATH=bindir + os.pathsep + os.environ["PATH"])
        os.makedirs(env["HOME"])
        installed = False
        for n, (line, lang, text, notes) in enumerate(blocks(readme), 1):
            if only and n not in only:
                continue
            label = f"README.md:{line} ({lang})"
            if "not run" in notes:
                print(f"-- {label}: not run ({notes['not run']})")
                continue
            work = os.path.join(scratch, f"block{n}")
            os.makedirs(work)
            if not installed:
                rc, out = run(["cmake", "--install", build, "--prefix", prefix], scratch, env)
                if rc != 0:
                    print(out)
                    return 1
                installed = True
                libdirs = [d for d in (os.path.join(prefix, "lib"),) if os.path.isdir(d)]
                for root, dirs, _ in os.walk(os.path.join(prefix, "lib")):
                    if "pkgconfig" in dirs:
                        env["PKG_CONFIG_PATH"] = os.path.join(root, "pkgconfig")
                        libdirs.append(root)
                env["LD_LIBRARY_PATH"] = os.pathsep.join(libdirs)
                shutil.copy(os.path.join(source, "tests/readme/myhost.cpp"), scratch)
            if lang == "sh":
                shutil.copy(os.path.join(scratch, "myhost.cpp"), work)
                os.symlink(os.path.join(scratch, "build"), os.path.join(work, "build"))
                script = "set -e\n" + notes.get("setup", "") + "\n" + text
                rc, out = run(["bash", "-c", script], work, env, timeout=60)
            elif lang == "cmake":
                shutil.copy(os.path.join(scratch, "myhost.cpp"), work)
                with open(os.path.join(work, "CMakeLists.txt"), "w", encoding="utf-8") as f:
                    f.write("cmake_minimum_required(VERSION 3.16)\nproject(myhost CXX)\n"
                            "set(CMAKE_CXX_STANDARD 17)\n"
                            "add_executable(myhost myhost.cpp)\n" + text)
                rc, out = run(["bash", "-c", f'cmake -S . -B b -DCMAKE_PREFIX_PATH="{prefix}" '
                               "&& cmake --build b"], work, env)
            elif lang == "cpp":
                src = os.path.join(work, "snippet.cpp")
                with open(src, "w", encoding="utf-8") as f:
                    f.write(cpp_unit(text, notes.get("context", "")))
                rc, out = run(["bash", "-c", '${CXX:-c++} -std=c++17 -fPIC -fsyntax-only '
                               f'{src} $(pkg-config --cflags kzresolver-qt{major} '
                               f'Qt{major}Network)'], work, env)
            else:
                print(f"-- {label}: a language this test does not know; mark it not run")
                failures += 1
                continue
            if rc == 0:
                print(f"-- {label}: ok")
            else:
                failures += 1
                print(f"!! {label} failed ({rc}):\n{text}--- output:\n{out}")
    finally:
        shutil.rmtree(scratch, ignore_errors=True)
    return 1 if failures else 0


def cpp_unit(text, context):
    """A fragment as a translation unit: Qt and the library's class included,
    its #include lines and its functions at file scope, its statements in a member function of a QObject (so that
    `this` and `connect` mean what they mean in a host's class)."""
    top, body, depth, in_function = [], [], 0, False
    for line in text.splitlines():
        starts = re.match(r"^(static |void |int |bool |class |struct |namespace )", line)
        if line.startswith("#include") or in_function or (starts and depth == 0):
            top.append(line)
            depth += line.count("{") - line.count("}")
            in_function = depth > 0 or (starts is not None and "{" not in line and
                                        not line.rstrip().endswith(";"))
        else:
            body.append(line)
    return ("#include <QtCore>\n#include <QtNetwork>\n#include <kzprotocolresolver.h>\n" +
            "\n".join(top) +
            "\nstruct ReadmeSnippet : QObject {\n" + context + "\nvoid run() {\n" +
            "\n".join(body) + "\n}\n};\n")


if __name__ == "__main__":
    sys.exit(main())
