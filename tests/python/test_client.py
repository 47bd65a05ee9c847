"""The asyncio client against the reference server on 127.0.0.1, and against
a silent server and one that hangs up."""

import ast
import asyncio
import hashlib
import os
import random

import pytest

import kzresolver.client
from kzresolver.client import COROUTINES, Client, method_name
from kzresolver.transfer import TransferError, send_file


@pytest.mark.parametrize("message, name", [
    ("DeleteUser", "delete_user"), ("UserInfo", "user_info"),
    ("LoadOEEData", "load_oee_data"), ("MacTsfFileContent", "mac_tsf_file_content")])
def test_coroutine_names(message, name):
    assert method_name(message) == name


def test_the_stub_types_every_coroutine():
    stub = os.path.splitext(kzresolver.client.__file__)[0] + ".pyi"
    with open(stub, encoding="utf-8") as f:
        tree = ast.parse(f.read())
    (cls,) = [n for n in tree.body if isinstance(n, ast.ClassDef) and n.name == "Client"]
    typed = {n.name for n in cls.body if isinstance(n, ast.AsyncFunctionDef)}
    assert set(COROUTINES) <= typed
    assert "delete_user" in typed


async def silent_server(on_data=None):
    """A server that accepts and reads, never answers (or hangs up when told)."""
    async def handle(reader, writer):
        while await reader.read(4096):
            if on_data == "hang up":
                writer.close()
                return
    server = await asyncio.start_server(handle, "127.0.0.1", 0)
    return server, server.sockets[0].getsockname()[1]


def test_time_out_against_a_silent_server(run):
    async def body():
        server, port = await silent_server()
        async with server:
            client = await Client.connect("127.0.0.1", port)
            with pytest.raises(asyncio.TimeoutError):
                await client.delete_user(names=["carol"], timeout=0.2)
            with pytest.raises(asyncio.TimeoutError):
                await client.expect("MacTsfFileEnd", timeout=0.1)
            await client.close()
    run(body())


def test_a_lost_connection_raises_in_every_waiting_request(run):
    async def body():
        server, port = await silent_server("hang up")
        async with server:
            client = await Client.connect("127.0.0.1", port)
            end = client.expect("MacTsfFileEnd")
            results = await asyncio.gather(client.delete_user(names=["a"]),
                                           client.delete_user(names=["b"]), end,
                                           return_exceptions=True)
            assert [type(r) for r in results] == [ConnectionError] * 3
            with pytest.raises(ConnectionError):
                await client.delete_user(names=["b"])
            assert [m async for m in client.pushes()] == []
    run(body())


def test_wrong_fields_raise_before_sending(run):
    async def body():
        server, port = await silent_server()
        async with server:
            client = await Client.connect("127.0.0.1", port)
            with pytest.raises(TypeError):
                await client.delete_user(name=["a"])
            with pytest.raises(AttributeError):
                client.no_such_request
            with pytest.raises(ValueError):
                client.expect("NoSuchMessage")
            await client.close()
    run(body())


async def logged_in(server):
    client = await Client.connect("127.0.0.1", server.port)
    assert (await client.login("admin", server.password))["first"]
    return client


def test_login_users_and_a_deletion(lan_server, run):
    async def body():
        refused = await Client.connect("127.0.0.1", lan_server.port)
        assert not (await refused.login("admin", "wrong"))["first"]
        await refused.close()
        async with await logged_in(lan_server) as client:
            added = await client.add_user(name="carol", text2="Carol", text3="carol-pw",
                                          lv1Group="Plant A", lv2Group="Line 1", flag=False)
            assert added["user"].name == "carol"
            # Two requests in flight: the replies are matched in order.
            deleted, again = await asyncio.gather(client.delete_user(names=["carol"]),
                                                  client.delete_user(names=["nobody"]))
            assert deleted["names"] == ["carol"]
            assert again["names"] == ["nobody"]
    run(body())


def machine_names(push):
    """The machines of a MacInfo message, in wire order."""
    return [v.mac for k, v in push.fields.items() if k.startswith("record#")]


async def listed(watcher, want):
    """Waits until a MacInfo push lists the machines ``want``."""
    async def wait():
        while machine_names(await watcher.expect("MacInfo")) != want:
            pass
    await asyncio.wait_for(wait(), 10)


def test_machines_registered_listed_and_deleted(lan_server, run):
    async def body():
        # The server pushes the changed list to its other clients.
        async with await logged_in(lan_server) as client, \
                await logged_in(lan_server) as watcher:
            macs = [dict(mac=m, text2="embroidery", code=1, text4="v2", lv1Group="Hall 1",
                         lv2Group="Line A", value7=0) for m in ("KZ-1", "KZ-2")]
            acknowledged = await client.mac_info(macs=macs)
            assert (acknowledged.name, acknowledged.kind) == ("MacInfo", "reply")
            await listed(watcher, ["KZ-1", "KZ-2"])
            deleted = await client.delete_mac(names=["KZ-1"])
            assert (deleted["ok"], deleted["names"]) == (True, ["KZ-1"])
            await listed(watcher, ["KZ-2"])
    run(body())


def test_a_price_set_and_changed(lan_server, run):
    async def body():
        async with await logged_in(lan_server) as client:
            assert (await client.add_file_price(a="rose.dst", b="1.50"))["ok"]
            # A change names the price it replaces: a stale one is refused.
            stale = await client.update_file_price(a="rose.dst", b="9.99", c="2.25")
            assert not stale["ok"]
            changed = await client.update_file_price(a="rose.dst", b="1.50", c="2.25")
            assert (changed["ok"], changed["a"], changed["c"]) == (True, "rose.dst", "2.25")
            prices = await client.load_file_price()
            assert prices["prices"] == {"rose.dst": 2.25}
    run(body())


def test_a_file_of_one_mib_sent_and_kept(lan_server, run, tmp_path):
    data = random.Random(28).randbytes(1024 * 1024)
    path = tmp_path / "big.dst"
    path.write_bytes(data)
    steps = []

    async def body():
        async with await logged_in(lan_server) as client:
            sent = await send_file(client, str(path), machine="M-01",
                                   progress=lambda done, size: steps.append((done, size)))
            assert (sent.name, sent.size) == ("big.dst", len(data))
            assert sent.md5 == hashlib.md5(data).hexdigest()
            assert sent.chunks == len(steps) > 1
            # The machine's file list names it (one name, given as itself).
            listed = await client.mac_files(mac="M-01", path="/", mode=0)
            assert (listed["count"], listed["file"]) == (1, "big.dst")
    run(body())
    assert steps[-1] == (len(data), len(data))
    assert [d for d, _ in steps] == sorted(d for d, _ in steps)
    kept = [os.path.join(d, f) for d, _, files in os.walk(lan_server.storage) for f in files
            if f == "big.dst"]
    assert len(kept) == 1
    with open(kept[0], "rb") as f:
        assert f.read() == data


def test_a_refused_transfer_raises(lan_server, run, tmp_path):
    path = tmp_path / "x.dst"
    path.write_bytes(b"x")

    async def body():
        async with await logged_in(lan_server) as client:
            with pytest.raises(TransferError, match="not a plain file or machine name"):
                await send_file(client, str(path), machine="../etc")
    run(body())
