#!/usr/bin/env python3
"""A SCPI instrument of this test's own, that shares nothing with quillon-sim: it follows IEEE 488.2 and SCPI-1999 in what
the driver uses. Prints its port, and serves one client after the other until it is killed.

VOLT, OUTP and MEAS:VOLT? are a supply; STR?, LIST?, NAN?, OVL?, BLOC? and IBLOC? are answers of all forms; WAIT N lets
*OPC? take N ms, LATE? answers after 600 ms, DROP? hangs up.
"""

import re
import socket
import time

NO_ERROR = (0, "No error")


class Instrument:
    def __init__(self):
        self.errors = []
        self.event_status = 128  # power on
        self.pending_ms = 0
        self.reset()

    def reset(self):
        self.volts = 0.0
        self.is_on = False

    def fail(self, number, text):
        self.errors.append((number, text))
        self.event_status |= {-1: 32, -2: 16}.get(-(-number // 100), 8)

    def take(self, name):
        value = getattr(self, name)
        setattr(self, name, 0)
        return value

    def next_error(self):
        number, text = self.errors.pop(0) if self.errors else NO_ERROR
        return '%d,"%s"' % (number, text)

    def set_volts(self, parameter):
        try:
            volts = float(parameter)
        except ValueError:
            return self.fail(-104, "Data type error;" + parameter)
        if not 0 <= volts <= 30:
            return self.fail(-222, "Data out of range")
        self.volts = volts

    def complete(self):
        time.sleep(self.take("pending_ms") / 1000)
        return "1"

    QUERIES = {
        r"\*IDN": lambda self: "INDEPENDENT,PY-1,77,3.2",
        r"\*OPC": complete,
        r"\*STB": lambda self: str(4 if self.errors else 0),
        r"\*ESR": lambda self: str(self.take("event_status")),
        r"SYST(EM)?:ERR(OR)?(:NEXT)?": next_error,
        r"(SOUR(CE)?:)?VOLT(AGE)?": lambda self: "%.3f" % self.volts,
        r"OUTP(UT)?": lambda self: "%d" % self.is_on,
        r"MEAS(URE)?:VOLT(AGE)?(:DC)?": lambda self: "%+E" % (self.volts if self.is_on else 0),
        r"STR": lambda self: '"it said ""no"", twice"',
        r"LIST": lambda self: "1, +2.5E0,9.91E37",
        r"NAN": lambda self: "9.91E37",
        r"OVL": lambda self: "9.9E37",
    }

    def execute(self, message):
        header, _, parameter = message.strip().partition(" ")
        header = header.upper().lstrip(":")
        if header.endswith("?"):
            for pattern, answer in self.QUERIES.items():
                if re.fullmatch(pattern, header[:-1]):
                    return (answer(self) + "\n").encode("ascii")
            if header == "BLOC?":
                return b"#9000000256" + bytes(range(256)) + b"\n"
            if header == "IBLOC?":
                return b"#0no end but one\n"
            if header == "LATE?":
                time.sleep(0.6)
                return b"99\n"
        elif header == "*RST":
            return self.reset()
        elif header == "*CLS":
            self.errors, self.event_status = [], 0
            return None
        elif re.fullmatch(r"(SOUR(CE)?:)?VOLT(AGE)?", header):
            return self.set_volts(parameter)
        elif re.fullmatch(r"OUTP(UT)?", header) and parameter.upper() in ("ON", "OFF", "0", "1"):
            self.is_on = parameter.upper() in ("ON", "1")
            return None
        elif header == "WAIT":
            self.pending_ms = int(parameter)
            return None
        return self.fail(-113, "Undefined header;" + header)


def serve(connection, instrument):
    with connection, connection.makefile("rb") as lines:
        for line in lines:
            message = line.decode("ascii").strip()
            if message == "DROP?":
                connection.sendall(b"1")  # and the rest never comes
                return
            answer = instrument.execute(message)
            if answer is not None:
                connection.sendall(answer)


def main():
    listener = socket.create_server(("127.0.0.1", 0))
    print(listener.getsockname()[1], flush=True)
    instrument = Instrument()
    while True:
        connection, _ = listener.accept()
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        try:
            serve(connection, instrument)
        except OSError:
            pass  # the client has left


if __name__ == "__main__":
    main()
