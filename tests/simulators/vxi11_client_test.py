#!/usr/bin/env python3
"""vxi11_client_test.py QUILLON_SIM

The VXI-11 stand-in against a client that others wrote. Exit status 77: python3-pyvisa-py is not installed, or port 111 may not be
had.
"""

import os
import subprocess
import sys
import unittest

SYSTEM_PYTHON = "/usr/bin/python3"
SKIPPED = 77

try:
    import pyvisa
except ImportError:  # Debian's module is for Debian's interpreter.
    if os.path.exists(SYSTEM_PYTHON) and os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, "-B"] + sys.argv)
    print("skipped: python3-pyvisa-py is not installed; the stand-in is not tested with a client of others")
    sys.exit(SKIPPED)

# One of the loopback's that no other process has.
ADDRESS = f"127.{64 + (os.getpid() >> 16)}.{os.getpid() >> 8 & 255}.{os.getpid() & 255}"


class ClientOfOthers(unittest.TestCase):
    def test_goes_through_everything(self):
        process = subprocess.Popen([simulator, "supply", "--vxi11", ADDRESS], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        if not process.stdout.readline():
            errors = process.stderr.read()
            if "Permission denied" in errors:
                print("skipped:", errors)
                sys.exit(SKIPPED)
            self.fail(errors)
        instrument = pyvisa.ResourceManager("@py").open_resource(f"TCPIP::{ADDRESS}::inst0::INSTR")
        self.assertEqual(instrument.query("*IDN?"), "QUILLON,SIM-PSU,0,1.0\n")
        instrument.write("VOLT 3.3")
        self.assertEqual(float(instrument.query("VOLT?")), 3.3)
        instrument.write("*IDN?")
        self.assertEqual(instrument.read_stb(), 16)
        instrument.clear()
        self.assertEqual(instrument.read_stb(), 0)
        instrument.timeout = 50
        with self.assertRaises(pyvisa.errors.VisaIOError) as problem:
            instrument.read()
        self.assertEqual(problem.exception.error_code, pyvisa.constants.StatusCode.error_timeout)
        instrument.close()
        again = pyvisa.ResourceManager("@py").open_resource(f"TCPIP::{ADDRESS}::inst0::INSTR")
        self.assertEqual(again.query("*IDN?"), "QUILLON,SIM-PSU,0,1.0\n")
        again.close()


if __name__ == "__main__":
    simulator = sys.argv.pop(1)
    unittest.main()
