"""A model client in an asyncio loop: prints the changes of /ticks, and the lines that it reads
from standard input, until that ends. Usage: asyncio_client.py [NAME]"""

import asyncio
import sys

from treescope import AsyncClient, TreescopeError


async def watch(client: AsyncClient) -> None:
    async for update in client.watch("/ticks"):
        print("ticks", update.error or update.value, flush=True)


async def echo() -> None:
    lines = asyncio.StreamReader()
    await asyncio.get_running_loop().connect_read_pipe(
        lambda: asyncio.StreamReaderProtocol(lines), sys.stdin
    )
    while line := await lines.readline():
        print(line.decode(errors="replace"), end="", flush=True)


async def main(name: str) -> None:
    async with AsyncClient(name) as client:
        client.on_event(lambda event: print(event.name.lower(), name, flush=True))
        print("watching", name, flush=True)
        tasks = [asyncio.create_task(watch(client)), asyncio.create_task(echo())]
        ended, others = await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
        for task in others:
            task.cancel()
        await asyncio.gather(*ended)


try:
    asyncio.run(main(sys.argv[1] if len(sys.argv) > 1 else "Model_counter"))
except (TreescopeError, OSError, ValueError) as error:
    sys.exit(f"asyncio_client: {error}")
