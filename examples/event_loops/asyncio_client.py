"""A model client in an asyncio loop: prints the changes of /ticks, and the lines that it reads
from standard input, until that ends. Usage: asyncio_client.py [NAME]"""

import asyncio
import sys

from treescope import AsyncClient, TreescopeError


async def watch(client: AsyncClient) -> None:
    async for update in client.watch("/ticks"):
        print("ticks", update.value, flush=True)


async def main(name: str) -> None:
    async with AsyncClient(name) as client:
        client.on_event(lambda event: print(event.name.lower(), name, flush=True))
        lines = asyncio.StreamReader()
        await asyncio.get_running_loop().connect_read_pipe(
            lambda: asyncio.StreamReaderProtocol(lines), sys.stdin
        )
        print("watching", name, flush=True)
        watching = asyncio.create_task(watch(client))
        while line := await lines.readline():
            print(line.decode(), end="", flush=True)
        watching.cancel()
        await asyncio.wait([watching])


try:
    asyncio.run(main(*(sys.argv[1:] or ["Model_counter"])))
except TreescopeError as error:
    sys.exit(f"asyncio_client: {error}")
