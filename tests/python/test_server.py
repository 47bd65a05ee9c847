"""The asyncio test-double server with the asyncio client: a login, a request
answered, a refusal, a handler that never answers, pushes, a broken handler."""

import ast
import asyncio
import os

import pytest

import kzresolver.testing
from kzresolver import MESSAGES
from kzresolver.client import Client
from kzresolver.testing import Refuse, Server
from kzresolver.transfer import TransferError, send_file


def double():
    server = Server()

    @server.on("Login")
    async def login(connection, message):
        ok = message["account"] == "admin"
        return {"first": ok, "code": 0 if ok else 2, "second": ok}

    @server.on("DeleteUser")
    async def delete_user(connection, message):
        if "admin" in message["names"]:
            raise Refuse(ok=False, names=message["names"])
        return {"ok": True, "names": message["names"]}

    @server.on("LoadFilePrice")
    async def never(connection, message):
        await asyncio.Event().wait()

    @server.on("MacTsfFileTaskBegin")  # answered under MacTsfFileBegin's code
    async def begin(connection, message):
        return {"n1": 1, "n2": 0, "n3": message["n"]}

    @server.on("QueryFilePrice")
    async def silently_refused(connection, message):
        raise Refuse()

    @server.on("Logout")
    async def broken(connection, message):
        raise KeyError("a bug in the double")

    return server


def test_login_and_requests_answered_in_order(run):
    async def body():
        async with double() as server:
            async with await Client.connect("127.0.0.1", server.port) as client:
                assert (await client.login("admin", "pw"))["first"]
                ok, refused = await asyncio.gather(client.delete_user(names=["carol"]),
                                                   client.delete_user(names=["admin"]))
                assert (ok["ok"], ok["names"]) == (True, ["carol"])
                assert (refused["ok"], refused["names"]) == (False, ["admin"])
                begun = await client.mac_tsf_file_task_begin(n=77, block=b"\0" * 16)
                assert (begun.name, begun["n3"]) == ("MacTsfFileBegin", 77)
            assert server.errors == []
    run(body())


def test_a_handler_that_never_answers_times_the_request_out(run):
    async def body():
        async with double() as server:
            async with await Client.connect("127.0.0.1", server.port) as client:
                with pytest.raises(asyncio.TimeoutError):
                    await client.load_file_price(timeout=0.3)
                with pytest.raises(asyncio.TimeoutError):
                    await client.query_file_price(a="", b="", c="", list=[], timeout=0.3)
    run(body())


def test_pushes_reach_the_client_and_unhandled_messages_are_kept(run):
    async def body():
        async with double() as server:
            async with await Client.connect("127.0.0.1", server.port) as client:
                await client.login("admin", "pw")
                await client.request("EditMac", a="M-01", b="x")  # no handler, no reply
                server.push("MacLogin.reply", a="M-01")
                push = await asyncio.wait_for(client.pushes().__anext__(), 5)
                assert (push.name, push["a"]) == ("MacLogin", "M-01")
                (connection,) = server.connections
                assert [m.name for m in connection.unhandled] == ["EditMac"]
    run(body())


def test_a_broken_handler_is_reported_and_hangs_up(run):
    async def body():
        async with double() as server:
            client = await Client.connect("127.0.0.1", server.port)
            await client.request("Logout", value=0)
            with pytest.raises(ConnectionError):
                await client.delete_user(names=["x"])
            assert [type(e) for e in server.errors] == [KeyError]
    run(body())


def test_a_handler_for_no_message_is_refused():
    with pytest.raises(ValueError, match="NoSuchMessage"):
        Server().on("NoSuchMessage")


def test_the_stub_names_every_message_and_every_method():
    with open(os.path.splitext(kzresolver.testing.__file__)[0] + ".pyi", encoding="utf-8") as f:
        tree = ast.parse(f.read())
    (names,) = [n.value.slice for n in tree.body
                if isinstance(n, ast.Assign) and n.targets[0].id == "MessageName"]
    assert [e.value for e in names.elts] == list(MESSAGES)
    stubbed = {c.name: {f.name for f in c.body if isinstance(f, (ast.FunctionDef,
                                                                 ast.AsyncFunctionDef))}
               for c in tree.body if isinstance(c, ast.ClassDef)}
    for cls in (Server, kzresolver.testing.Connection):
        public = {n for n in vars(cls) if not n.startswith("_") and callable(getattr(cls, n))}
        assert public <= stubbed[cls.__name__], cls.__name__


def transfer_double(log):
    """A server that takes one file per task and rejects every chunk that
    starts with b"bad"; ``log`` gets what it was asked."""
    server = Server()

    @server.on("MacTsfFileAddTask")
    async def add(connection, m):
        log.append("add " + m["b"])
        return {"ok": True, "a": m["a"], "b": m["b"], "n": len(log), "c": m["c"], "d": "queued",
                "e": m["b"]}

    @server.on("MacTsfFileTaskStart")
    async def start(connection, m):
        return None

    @server.on("MacTsfFileTaskBegin")
    async def begin(connection, m):
        return {"n1": 1, "n2": 0, "n3": 4}

    @server.on("MacTsfFileContent")
    async def content(connection, m):
        bad = m["data"].startswith(b"bad")
        log.append("chunk %d%s" % (m["q"], " rejected" if bad else ""))
        return {"n1": m["q"], "n2": -1 if bad else m["r"] + len(m["data"])}

    @server.on("MacTsfFileClose")
    async def close(connection, m):
        log.append("close")
        connection.push("MacTsfFileEnd", n=m["n1"], text="f", ok=True)

    @server.on("MacTsfFileCancel")
    async def cancel(connection, m):
        log.append("cancel %d" % m["n"])
        connection.push("MacTsfFileEnd", n=m["n"], text=m["task"], ok=False)

    return server


def test_a_failed_transfer_is_cancelled_and_the_next_goes_through(run, tmp_path):
    bad, good = tmp_path / "bad.dst", tmp_path / "good.dst"
    bad.write_bytes(b"bad chunk")
    good.write_bytes(b"good file")
    log = []

    async def body():
        async with transfer_double(log) as server:
            async with await Client.connect("127.0.0.1", server.port, timeout=5) as client:
                with pytest.raises(TransferError, match="rejected chunk 0 of bad.dst"):
                    await send_file(client, str(bad))
                sent = await send_file(client, str(good))
                assert (sent.size, sent.chunks) == (9, 3)  # in the server's 4-byte chunks
            assert server.errors == []
    run(body())
    assert log == ["add bad.dst"] + ["chunk 0 rejected"] * 4 + ["cancel 1", "add good.dst",
                                                                 "chunk 0", "chunk 1", "chunk 2",
                                                                 "close"]
