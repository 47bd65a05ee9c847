"""Sending a file to a LAN server as a transfer task, for one machine (or
the shared files), on a logged-in ``Client``::

    from kzresolver.transfer import send_file
    result = await send_file(client, "rose.dst", machine="M-01",
                             progress=lambda done, size: print(done, size))

The task is announced (MacTsfFileAddTask), started, begun with the file's
size and MD5 (MacTsfFileTaskBegin, answered by MacTsfFileBegin with the
chunk size to use); then the chunks go one at a time, each with its MD5 and
acknowledged before the next; then the transfer is closed with the whole
file's MD5 and the server reports whether it kept the file (MacTsfFileEnd).
A transfer that fails after its task was accepted is cancelled
(MacTsfFileCancel), so that the connection can send the next file.
"""

import asyncio
import hashlib
import os
from dataclasses import dataclass
from typing import Callable, Optional

from .client import Client

__all__ = ["send_file", "Sent", "TransferError"]

# The largest chunk sent, whatever the server offers: chunks are read into
# memory one at a time.
MAX_CHUNK = 1024 * 1024
# Times one chunk is sent again when the server asks for it before giving up.
RETRIES = 3


class TransferError(Exception):
    """The server refused the transfer or did not keep the file."""


@dataclass
class Sent:
    """A file the server kept: its name, size, chunks and MD5 (hex)."""

    name: str
    size: int
    chunks: int
    md5: str


async def send_file(client: Client, path: str, machine: str = "", folder: str = "/",
                    name: Optional[str] = None, overwrite: bool = True,
                    progress: Optional[Callable[[int, int], None]] = None,
                    timeout: Optional[float] = None) -> Sent:
    """Sends the file at ``path`` to the server for ``machine`` (empty: the
    shared files) under ``name`` (default: the file's own name). ``progress``
    is called with the bytes acknowledged and the size after each chunk.
    Raises TransferError when the server refuses or discards the file,
    asyncio.TimeoutError when it stops answering (``timeout`` per step)."""
    name = name or os.path.basename(path)
    size = os.path.getsize(path)
    if size > 0x7FFFFFFF:
        raise TransferError("%s is too large to send (%d bytes)" % (name, size))
    digest = hashlib.md5()
    with open(path, "rb") as f:
        for block in iter(lambda: f.read(MAX_CHUNK), b""):
            digest.update(block)
    whole = digest.digest()

    task = await client.mac_tsf_file_add_task(b1=True, a=machine, b=name, c=folder, b2=overwrite,
                                              list=[name], timeout=timeout)
    if not task["ok"]:
        raise TransferError("the server refused the transfer of %s: %s" % (name, task["d"]))
    number = task["n"]
    try:
        chunks = await _send_task(client, path, name, size, whole, number, progress, timeout)
    except (TransferError, asyncio.TimeoutError):
        await _cancel(client, name, number, timeout)
        raise
    ended = await _close(client, number, chunks, whole, timeout)
    if not ended["ok"]:
        raise TransferError("the server did not keep %s: size or digest did not match" % name)
    return Sent(name, size, chunks, whole.hex())


async def _send_task(client, path, name, size, whole, number, progress, timeout):
    """Begins the accepted task and sends its chunks; returns their number."""
    await client.mac_tsf_file_task_start()
    begun = await client.mac_tsf_file_task_begin(n=size, block=whole, timeout=timeout)
    if begun["n2"] != 0:
        raise TransferError("the server cannot take %s (status %d)" % (name, begun["n2"]))
    chunk_size = min(begun["n3"], MAX_CHUNK) if begun["n3"] > 0 else 64 * 1024
    chunks = 0
    with open(path, "rb") as f:
        offset = 0
        while offset < size:
            data = f.read(chunk_size)
            if not data:
                raise TransferError("%s became shorter while it was sent" % name)
            for _ in range(RETRIES + 1):
                ack = await client.mac_tsf_file_content(
                    p=number, q=chunks, r=offset, len=len(data),
                    block=hashlib.md5(data).digest(), data=data, timeout=timeout)
                if ack["n2"] >= 0:
                    break
            else:
                raise TransferError("the server rejected chunk %d of %s" % (chunks, name))
            offset += len(data)
            chunks += 1
            if progress is not None:
                progress(offset, size)
    return chunks


async def _close(client, number, chunks, whole, timeout):
    """Closes the task; returns the server's MacTsfFileEnd."""
    end = client.expect("MacTsfFileEnd", timeout=timeout)
    await client.mac_tsf_file_close(n1=number, n2=chunks, block=whole)
    return await end


async def _cancel(client, name, number, timeout):
    """Cancels a task that failed, so that the connection can send another
    file; the server's MacTsfFileEnd for it is taken here."""
    try:
        end = client.expect("MacTsfFileEnd", timeout=timeout)
        await client.mac_tsf_file_cancel(task=name, n=number)
        await end
    except (ConnectionError, asyncio.TimeoutError):
        pass  # the connection is gone or the server did not answer: nothing to undo
