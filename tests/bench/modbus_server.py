#!/usr/bin/env python3
"""A Modbus device by a library that others wrote, and that shares nothing with that of the driver: over TCP, and with RTU frames
at a pseudo terminal. Prints "PORT PATH", and serves until it is killed; "missing" when the library is not installed.

Unit 17 has the coils 19 to 27, the discrete inputs 5 to 7, the holding registers 107 to 109 and the input registers 8 to 9; all
else is an exception.
"""

import asyncio
import os
import pty
import socket
import sys
import threading
import tty

SYSTEM_PYTHON = "/usr/bin/python3"

try:
    from pymodbus.datastore import ModbusServerContext, ModbusSlaveContext, ModbusSparseDataBlock
    from pymodbus.server.async_io import ModbusTcpServer
    from pymodbus.transaction import ModbusRtuFramer, ModbusSocketFramer
except ImportError:  # Debian's module is for Debian's interpreter.
    if os.path.exists(SYSTEM_PYTHON) and os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, "-B"] + sys.argv)
    print("missing", flush=True)
    sys.exit()


def device():
    def table(address, *values):
        return ModbusSparseDataBlock({address + place: value for place, value in enumerate(values)})

    unit = ModbusSlaveContext(co=table(19, 1, 0, 1, 1, 0, 0, 1, 1, 1), di=table(5, 1, 0, 1), hr=table(107, 555, 0, 100),
                              ir=table(8, 10, 65534), zero_mode=True)
    return ModbusServerContext(slaves={17: unit}, single=False)


async def serving(context, framer):
    server = ModbusTcpServer(context, framer=framer, address=("127.0.0.1", 0))
    asyncio.get_running_loop().create_task(server.serve_forever())
    await server.serving
    return server.server.sockets[0].getsockname()[1]


def hand_on(source, target):
    while data := os.read(source, 1024):
        os.write(target, data)


async def main():
    context = device()
    port = await serving(context, ModbusSocketFramer)
    # The frames of a serial line, from a terminal.
    line = socket.create_connection(("127.0.0.1", await serving(context, ModbusRtuFramer)))
    master, slave = pty.openpty()
    tty.setraw(slave)
    for ends in ((master, line.fileno()), (line.fileno(), master)):
        threading.Thread(target=hand_on, args=ends, daemon=True).start()
    print(port, os.ttyname(slave), flush=True)
    await asyncio.Event().wait()


if __name__ == "__main__":
    asyncio.run(main())
