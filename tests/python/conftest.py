"""Fixtures of the Python tests: the reference server on 127.0.0.1 (when
KZLAN_SERVER names its binary) and a way to run a coroutine in a test."""

import asyncio
import os
import re
import select
import subprocess
import sys

import pytest

sys.path.insert(0, os.path.dirname(__file__))  # wire.py next to the tests

PASSWORD = "py-admin-pw"


class LanServer:
    """A kzlan-server on 127.0.0.1 with an admin account, in a directory of its own."""

    def __init__(self, binary, directory):
        self.secret = os.path.join(directory, "admin-password")
        with open(self.secret, "w") as f:
            f.write(PASSWORD + "\n")
        os.chmod(self.secret, 0o600)
        self.storage = os.path.join(directory, "storage")
        self.process = subprocess.Popen(
            [binary, "--listen", "127.0.0.1", "--port", "0",
             "--db", os.path.join(directory, "kzlan.sqlite"), "--storage", self.storage,
             "--admin-password-file", self.secret],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        ready, _, _ = select.select([self.process.stdout], [], [], 20)
        line = self.process.stdout.readline() if ready else ""
        found = re.search(r"listening on .*:(\d+)", line)
        if not found:
            self.stop()
            raise RuntimeError("kzlan-server did not start: %r" % line)
        self.port = int(found.group(1))
        self.password = PASSWORD

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process.stdout.close()


@pytest.fixture
def lan_server(tmp_path):
    binary = os.environ.get("KZLAN_SERVER", "")
    if not binary:
        pytest.skip("KZLAN_SERVER names the kzlan-server binary")
    server = LanServer(binary, str(tmp_path))
    yield server
    server.stop()


@pytest.fixture
def run():
    """Runs a coroutine to its end on a loop of its own, bounded in time."""
    def run(coro, timeout=60):
        return asyncio.run(asyncio.wait_for(coro, timeout))
    return run
