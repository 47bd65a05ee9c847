"""The asyncio client against the reference server on 127.0.0.1, and against
a silent server and one that hangs up."""

import ast
import asyncio
import os
import re
import subprocess
import sys
import tempfile
import unittest

import kzresolver.client
from kzresolver.client import COROUTINES, Client, method_name

SERVER = os.environ.get("KZLAN_SERVER", "")
EXAMPLES = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "python")
PASSWORD = "py-admin-pw"


class Names(unittest.TestCase):
    def test_coroutine_names(self):
        rows = [("DeleteUser", "delete_user"), ("UserInfo", "user_info"),
                ("LoadOEEData", "load_oee_data"), ("MacTsfFileContent", "mac_tsf_file_content")]
        for message, name in rows:
            self.assertEqual(method_name(message), name)

    def test_the_stub_types_every_coroutine(self):
        stub = os.path.splitext(kzresolver.client.__file__)[0] + ".pyi"
        with open(stub, encoding="utf-8") as f:
            tree = ast.parse(f.read())
        (cls,) = [n for n in tree.body if isinstance(n, ast.ClassDef) and n.name == "Client"]
        typed = {n.name for n in cls.body if isinstance(n, ast.AsyncFunctionDef)}
        self.assertLessEqual(set(COROUTINES), typed)
        self.assertIn("delete_user", typed)


async def silent_server(on_data=None):
    """A server that accepts and reads, never answers (or hangs up when told)."""
    async def handle(reader, writer):
        while await reader.read(4096):
            if on_data == "hang up":
                writer.close()
                return
    server = await asyncio.start_server(handle, "127.0.0.1", 0)
    return server, server.sockets[0].getsockname()[1]


class Failures(unittest.IsolatedAsyncioTestCase):
    async def test_time_out_against_a_silent_server(self):
        server, port = await silent_server()
        async with server:
            client = await Client.connect("127.0.0.1", port)
            with self.assertRaises(asyncio.TimeoutError):
                await client.delete_user(names=["carol"], timeout=0.2)
            await client.close()

    async def test_a_lost_connection_raises_in_every_waiting_request(self):
        server, port = await silent_server("hang up")
        async with server:
            client = await Client.connect("127.0.0.1", port)
            results = await asyncio.gather(client.delete_user(names=["a"]),
                                           client.delete_user(names=["b"]),
                                           return_exceptions=True)
            self.assertEqual([type(r) for r in results], [ConnectionError, ConnectionError])
            with self.assertRaises(ConnectionError):
                await client.delete_user(names=["b"])
            self.assertEqual([m async for m in client.pushes()], [])

    async def test_wrong_fields_raise_before_sending(self):
        server, port = await silent_server()
        async with server:
            client = await Client.connect("127.0.0.1", port)
            with self.assertRaises(TypeError):
                await client.delete_user(name=["a"])
            with self.assertRaises(AttributeError):
                client.no_such_request
            await client.close()


@unittest.skipUnless(SERVER, "KZLAN_SERVER names the kzlan-server binary")
class AgainstTheServer(unittest.IsolatedAsyncioTestCase):
    async def asyncSetUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.secret = secret = os.path.join(self.dir.name, "admin-password")
        with open(secret, "w") as f:
            f.write(PASSWORD + "\n")
        os.chmod(secret, 0o600)
        self.server = subprocess.Popen(
            [SERVER, "--listen", "127.0.0.1", "--port", "0",
             "--db", os.path.join(self.dir.name, "kzlan.sqlite"),
             "--storage", os.path.join(self.dir.name, "storage"),
             "--admin-password-file", secret],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        line = await asyncio.wait_for(asyncio.to_thread(self.server.stdout.readline), 20)
        self.port = int(re.search(r"listening on .*:(\d+)", line).group(1))

    async def asyncTearDown(self):
        self.server.terminate()
        self.server.wait(20)
        self.server.stdout.close()
        self.dir.cleanup()

    async def test_login_users_and_a_deletion(self):
        async with await Client.connect("127.0.0.1", self.port) as client:
            refused = await Client.connect("127.0.0.1", self.port)
            self.assertFalse((await refused.login("admin", "wrong"))["first"])
            await refused.close()
            self.assertTrue((await client.login("admin", PASSWORD))["first"])
            added = await client.add_user(name="carol", text2="Carol", text3="carol-pw",
                                          lv1Group="Plant A", lv2Group="Line 1", flag=False)
            self.assertEqual(added["user"].name, "carol")
            # Two requests in flight: the replies are matched in order.
            deleted, again = await asyncio.gather(client.delete_user(names=["carol"]),
                                                  client.delete_user(names=["nobody"]))
            self.assertEqual(deleted["names"], ["carol"])
            self.assertEqual(again["names"], ["nobody"])

    async def test_the_listing_example(self):
        run = await asyncio.to_thread(
            subprocess.run, [sys.executable, os.path.join(EXAMPLES, "list_users_and_machines.py"),
                             "--port", str(self.port), "--password-file", self.secret],
            capture_output=True, text=True, timeout=30)
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertIn("name='admin'", run.stdout)


if __name__ == "__main__":
    unittest.main()
