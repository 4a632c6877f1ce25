#!/usr/bin/env python3
"""vxi11_server.py ADDRESS [keeps]

A SCPI instrument by VXI-11 (TCP/IP Instrument Protocol, revision 1.0) of this test's own, that shares nothing with quillon-sim.
It keeps to the exchange of messages of IEEE 488.2: a read without a question gets nothing in its time, and is the error -420; an
answer that was not read when the next message comes is dropped, with -410, unless it "keeps" them. Prints its address once it
can be reached, and serves one client after the other until it is killed. What it knows beyond scpi_server.py is below.
"""

import socket
import struct
import sys
import threading
import time

import scpi_server

PORTMAPPER, CORE = 100000, 0x0607AF
CREATE_LINK, WRITE, READ, CLEAR = 10, 11, 12, 15
TIMED_OUT = 15
COUNT_REACHED, END = 1, 4


class Instrument(scpi_server.Instrument):
    ANSWERS = {"NUM?": b"+1.5\n", "PAIR?": b"1, +2.5E0\n", "BARE?": b"7", "NLBL?": b"#15abcd\n", "MUTE?": b""}

    def __init__(self, keeps):
        super().__init__()
        self.keeps = keeps
        self.output = b""
        self.late = b""

    def hear(self, message):
        if self.output and not self.keeps:
            self.output = b""
            self.fail(-410, "Query INTERRUPTED")
        if message == "SLOW?":
            self.late = b"99\n"  # there once a read has found nothing
        elif message in self.ANSWERS:
            self.output += self.ANSWERS[message]
        else:
            self.output += self.execute(message) or b""

    def say(self, most, milliseconds):
        if not self.output:
            time.sleep(milliseconds / 1000)
            if self.late:
                self.output, self.late = self.late, b""
            else:
                self.fail(-420, "Query UNTERMINATED")
            return TIMED_OUT, 0, b""
        data, self.output = self.output[:most], self.output[most:]
        return 0, (COUNT_REACHED if len(data) == most else 0) | (0 if self.output else END), data


class Arguments:
    def __init__(self, data):
        self.data = data

    def number(self):
        value = struct.unpack_from(">I", self.data)[0]
        self.data = self.data[4:]
        return value

    def bytes(self):
        length = self.number()
        value = self.data[:length]
        self.data = self.data[(length + 3) // 4 * 4:]
        return value


def numbers(*values):
    return struct.pack(">%dI" % len(values), *values)


def opaque(data):
    return numbers(len(data)) + data + bytes(-len(data) % 4)


def core(instrument, procedure, arguments):
    if procedure == CREATE_LINK:
        return numbers(0, 1, 0, 65536)
    arguments.number()  # the link
    if procedure == WRITE:
        arguments.number()
        arguments.number()
        arguments.number()
        data = arguments.bytes()
        instrument.hear(data.decode("ascii").rstrip("\n"))
        return numbers(0, len(data))
    if procedure == READ:
        most, milliseconds = arguments.number(), arguments.number()
        error, reason, data = instrument.say(most, milliseconds)
        return numbers(error, reason) + opaque(data)
    if procedure == CLEAR:
        instrument.output = instrument.late = b""
    return numbers(0)


def answer(call, program, version, results):
    arguments = Arguments(call)
    transaction, _, _, called, its_version, procedure = (arguments.number() for _ in range(6))
    for _ in range(2):  # who calls
        arguments.number()
        arguments.bytes()
    accepted = numbers(transaction, 1, 0, 0, 0)
    if called != program:
        return accepted + numbers(1)
    if its_version != version:
        return accepted + numbers(2, version, version)
    return accepted + numbers(0) + (results(procedure, arguments) if procedure else b"")


def serve_stream(listener, program, version, results):
    while True:
        connection, _ = listener.accept()
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        with connection, connection.makefile("rb") as calls:
            try:
                while header := calls.read(4):
                    call = calls.read(struct.unpack(">I", header)[0] & 0x7FFFFFFF)
                    reply = answer(call, program, version, results)
                    connection.sendall(numbers(0x80000000 | len(reply)) + reply)
            except OSError:
                pass  # the client has left


def serve_datagrams(datagrams, program, version, results):
    while True:
        call, client = datagrams.recvfrom(2048)
        datagrams.sendto(answer(call, program, version, results), client)


def main():
    address = sys.argv[1]
    instrument = Instrument("keeps" in sys.argv[2:])
    listener = socket.create_server((address, 0))
    port = listener.getsockname()[1]

    def where(procedure, arguments):
        return numbers(port if arguments.number() == CORE and arguments.number() == 1 else 0)

    datagrams = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    datagrams.bind((address, 111))
    portmapper = socket.create_server((address, 111))
    threading.Thread(target=serve_datagrams, args=(datagrams, PORTMAPPER, 2, where), daemon=True).start()
    threading.Thread(target=serve_stream, args=(portmapper, PORTMAPPER, 2, where), daemon=True).start()
    print(address, flush=True)
    serve_stream(listener, CORE, 1, lambda procedure, arguments: core(instrument, procedure, arguments))


if __name__ == "__main__":
    main()
