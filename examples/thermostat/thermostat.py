"""The thermostat of thermostat.cpp in Python. Usage: thermostat.py [NAME]"""
import asyncio, signal, sys
from treescope import Access, Server, TreescopeError

async def main(name: str) -> None:
    with Server() as server:
        temperature = server.add("temperature", [18.5, 4.0], element_names=["inside", "outside"],
                                 access=Access.READ_ONLY)
        setpoint = server.add("setpoint", 20.5, unit="degrees", minimum=5, maximum=30)
        mode = server.add("mode", "off", choices=["off", "heat"])
        server.publish(name)
        serving = asyncio.create_task(server.serve())
        for number in (signal.SIGINT, signal.SIGTERM):
            asyncio.get_running_loop().add_signal_handler(number, serving.cancel)
        print("ready", name, flush=True)
        while not serving.done():
            inside, outside = temperature.get()
            target = setpoint.get() if mode.get() == "heat" else outside
            temperature.set(inside + (target - inside) / 16, 0)
            await asyncio.wait([serving], timeout=1)
try:
    asyncio.run(main(sys.argv[1] if len(sys.argv) > 1 else "Model_thermostat"))
except (TreescopeError, OSError) as error:
    sys.exit(f"thermostat: {error}")
