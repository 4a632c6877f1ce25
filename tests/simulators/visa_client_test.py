#!/usr/bin/env python3
"""visa_client_test.py QUILLON_SIM

The stand-ins that speak SCPI against a client that others wrote, over TCP. Exit status 77: python3-pyvisa and
python3-pyvisa-py are not installed.
"""

import os
import subprocess
import sys
import unittest

SYSTEM_PYTHON = "/usr/bin/python3"
SKIPPED = 77

try:
    import pyvisa
    import pyvisa_py  # noqa: F401 - the client's transport
except ImportError:  # Debian's modules are for Debian's interpreter.
    if os.path.exists(SYSTEM_PYTHON) and os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, "-B"] + sys.argv)
    print("skipped: python3-pyvisa and python3-pyvisa-py are not installed; the stand-ins are not tested with a client "
          "of others")
    sys.exit(SKIPPED)


class ClientOfOthers(unittest.TestCase):
    def open(self, *stand_in):
        process = subprocess.Popen([simulator, *stand_in, "--tcp", "0"], stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        port = process.stdout.readline().strip().rpartition("=")[2]
        instrument = manager.open_resource(
            f"TCPIP::127.0.0.1::{port}::SOCKET", read_termination="\n", write_termination="\n", timeout=5000)
        self.addCleanup(instrument.close)
        return instrument

    def no_error(self, instrument):
        self.assertEqual(instrument.query("SYST:ERR?"), '+0,"No error"')

    def test_the_meter(self):
        meter = self.open("scpi", "--reading", "VOLT=3.3")
        self.assertEqual(meter.query("*IDN?"), "QUILLON,SIM-DMM,0,1.0")
        self.assertEqual(meter.query_ascii_values("MEAS:VOLT:DC?"), [3.3])
        meter.write("CONF:VOLT:DC 10")
        meter.write("SENS:VOLT:DC:NPLC 1")
        meter.write("SAMP:COUN 3")
        self.assertEqual(meter.query_ascii_values("READ?"), [3.3, 3.3, 3.3])
        self.assertEqual(meter.query_ascii_values("MEAS:VOLT:DC? 1"), [9.9e37])
        self.no_error(meter)

    def test_the_supply(self):
        supply = self.open("supply", "--outputs", "2", "--resistance", "1=10")
        supply.write("VOLT 5,(@1,2);CURR 1,(@1,2)")
        supply.write("OUTP ON,(@1)")
        self.assertEqual(supply.query_ascii_values("MEAS:VOLT? (@1,2)"), [5, 0])
        self.assertEqual(supply.query_ascii_values("MEAS:CURR? (@1)"), [0.5])
        supply.write("CURR:PROT:STAT ON,(@1)")
        supply.write("CURR 0.1,(@1)")
        self.assertEqual(supply.query("OUTP? (@1)"), "0")
        self.no_error(supply)
        supply.write("VOLT 31")
        self.assertEqual(supply.query("SYST:ERR?"), '-222,"Data out of range"')

    def test_the_load(self):
        load = self.open("load", "--source", "10,0.5")
        load.write("FUNC CURR;:CURR 2;:INP ON")
        self.assertEqual(load.query("*OPC?"), "1")
        self.assertEqual(load.query_ascii_values("MEAS:VOLT?"), [9])
        self.no_error(load)

    def test_the_oscilloscope(self):
        scope = self.open("scope")
        self.assertEqual(scope.query_ascii_values("MEAS:VOLT:PTP? (@1)"), [3.3])
        scope.write("WAV:DATA?")
        # The block's end alone ends it: it holds the termination character.
        head = scope.read_bytes(5)
        self.assertEqual(head, b"#3200")
        self.assertEqual(scope.read_bytes(200), b"\n" * 100 + b"\xfa" * 100)
        self.assertEqual(scope.read_bytes(1), b"\n")
        self.no_error(scope)

    def test_the_matrix(self):
        matrix = self.open("matrix")
        matrix.write("ROUT:CLOS (@101,103:105)")
        self.assertEqual(matrix.query_ascii_values("ROUT:CLOS? (@101:104)", converter="d"), [1, 0, 1, 1])
        matrix.write("ROUT:OPEN:ALL")
        self.assertEqual(matrix.query("ROUT:CLOS:STAT?"), "(@)")
        self.no_error(matrix)


if __name__ == "__main__":
    simulator = sys.argv.pop(1)
    manager = pyvisa.ResourceManager("@py")
    unittest.main()
