#!/usr/bin/env python3
"""modbus_client_test.py QUILLON_SIM

The Modbus stand-in against a client that others wrote, over TCP and at a pseudo terminal. Exit status 77: python3-pymodbus is
not installed.
"""

import os
import subprocess
import sys
import unittest

SYSTEM_PYTHON = "/usr/bin/python3"
SKIPPED = 77

try:
    from pymodbus.client import ModbusSerialClient, ModbusTcpClient
except ImportError:  # Debian's module is for Debian's interpreter.
    if os.path.exists(SYSTEM_PYTHON) and os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, "-B"] + sys.argv)
    print("skipped: python3-pymodbus is not installed; the stand-in is not tested with a client of others")
    sys.exit(SKIPPED)

VALUES = ["--coil", "19=1,0,1,1,0,0,1,1,1", "--discrete", "5=1,0,1", "--holding", "107=555,0,100", "--input", "8=10,-2"]


class ClientOfOthers(unittest.TestCase):
    def stand_in(self, *where):
        process = subprocess.Popen([simulator, "modbus", *where, *VALUES], stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process.stdout.readline().strip().rpartition("=")[2]

    def goes_through_everything(self, client):
        self.assertTrue(client.connect())
        self.addCleanup(client.close)
        self.assertEqual(client.read_coils(19, 9, slave=1).bits[:9], [bool(bit) for bit in (1, 0, 1, 1, 0, 0, 1, 1, 1)])
        self.assertEqual(client.read_discrete_inputs(5, 3, slave=1).bits[:3], [True, False, True])
        self.assertEqual(client.read_holding_registers(107, 3, slave=1).registers, [555, 0, 100])
        self.assertEqual(client.read_input_registers(8, 2, slave=1).registers, [10, 65534])
        self.assertFalse(client.write_coil(20, True, slave=1).isError())
        self.assertFalse(client.write_coils(21, [False, True], slave=1).isError())
        self.assertEqual(client.read_coils(19, 4, slave=1).bits[:4], [True, True, False, True])
        self.assertFalse(client.write_register(107, 4660, slave=1).isError())
        self.assertFalse(client.write_registers(108, [1, 2], slave=1).isError())
        self.assertEqual(client.read_holding_registers(107, 3, slave=1).registers, [4660, 1, 2])
        refused = client.read_holding_registers(107, 4, slave=1)
        self.assertTrue(refused.isError())
        self.assertEqual(refused.exception_code, 2)

    def test_over_tcp(self):
        self.goes_through_everything(ModbusTcpClient("127.0.0.1", port=int(self.stand_in("--tcp", "0"))))

    def test_at_a_terminal(self):
        self.goes_through_everything(ModbusSerialClient(port=self.stand_in("--pty"), baudrate=19200))


if __name__ == "__main__":
    simulator = sys.argv.pop(1)
    unittest.main()
