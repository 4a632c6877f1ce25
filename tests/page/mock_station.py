#!/usr/bin/env python3
"""mock_station.py [--scene NAME] [--port PORT]

A station for trying out the operator's page in a browser: it serves the page's files and speaks the station's interface,
and shows whatever a test wants to see, rare states included. By hand: one of the scenes, until Ctrl-C.
"""

import argparse
import copy
import http.server
import json
import queue
import secrets
import socket
import struct
import sys
import threading
import time
import urllib.parse
from pathlib import Path

FILES = Path(__file__).resolve().parents[2] / "station/page/files"
TYPES = {".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8", ".js": "text/javascript; charset=utf-8",
         ".svg": "image/svg+xml"}
POLICY = "default-src 'self'; img-src 'self' data:"
HEARTBEAT = 1.0


def now_us():
    return time.time_ns() // 1000


def merge(target, patch):
    """A JSON merge patch (RFC 7396)."""
    if not isinstance(patch, dict):
        return copy.deepcopy(patch)
    merged = target if isinstance(target, dict) else {}
    for name, value in patch.items():
        if value is None:
            merged.pop(name, None)
        else:
            merged[name] = merge(merged.get(name), value)
    return merged


BOARD = """<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 320 240" width="320" height="240">
<rect width="320" height="240" fill="#f4f1e8"/><rect x="22" y="24" width="276" height="192" rx="8" fill="#1f6b45"/>
<g fill="#d9c37a"><circle cx="36" cy="38" r="6"/><circle cx="284" cy="38" r="6"/><circle cx="36" cy="202" r="6"/>
<circle cx="284" cy="202" r="6"/></g><rect x="110" y="80" width="80" height="80" rx="3" fill="#222"/>
<g stroke="#d9c37a" stroke-width="3" fill="none"><path d="M190 95h40v-35M190 110h60M190 130h40v50M110 100H70v70M110 140H88"/></g>
<g fill="#bbb"><rect x="56" y="170" width="28" height="14"/><rect x="215" y="180" width="32" height="14"/>
<rect x="222" y="46" width="22" height="14"/></g><rect x="248" y="92" width="42" height="56" fill="#eee"/>
<g fill="#999"><rect x="256" y="98" width="6" height="44"/><rect x="266" y="98" width="6" height="44"/>
<rect x="276" y="98" width="6" height="44"/></g><ellipse cx="269" cy="120" rx="42" ry="46" fill="none" stroke="#e00024"
stroke-width="6"/><text x="212" y="218" font-family="sans-serif" font-size="26" font-weight="700" fill="#fff">J4</text>
</svg>"""


def empty_site():
    return {"state": "EMPTY", "since": now_us(), "todo": "Scan a device."}


class Station:
    """The state of a station, those who watch it, and the commands that came."""

    def __init__(self, sites=("left", "right"), port=0):
        self.port = port
        self.lock = threading.RLock()
        self.commands = []
        self.answers = {}
        self.refusals = {}  # command -> message
        self.test_seconds = 0.15
        self.silent = False
        self.lost_answers = 0  # so many commands are done and never answered
        self.log = ["12:00:00.000 station: ready"]
        self.waits_for_device = None
        self.run_rows = {}
        self.watchers = []
        self.restart(sites)

    def restart(self, sites=None):
        """Everything from the beginning, as after a restart of the host."""
        with self.lock:
            sites = list(sites or self.state["order"])
            self.epoch = secrets.token_hex(8)
            self.token = secrets.token_hex(16)
            self.sequence = 0
            self.deltas = []
            self.answers = {}
            self.state = {
                "station": {"name": "line-3", "state": "ready", "bundle": "com.example.board-test", "bundleVersion": "1.2",
                            "flow": "main", "version": "0.1.0", "operator": "Ann", "kind": "production", "scan": "next",
                            "startOnScan": True},
                "order": sites, "sites": {site: empty_site() for site in sites},
                "today": {"passed": 0, "failed": 0, "brokenOff": 0}, "recent": [], "notices": [], "instruments": []}

    # What a test changes

    def patch(self, patch):
        with self.lock:
            self.state = merge(self.state, patch)
            self.sequence += 1
            self.deltas.append((self.sequence, patch))
            self._tell("delta", patch, self.sequence)

    def site(self, name, **members):
        """Replaces the state of a site."""
        with self.lock:
            patch = {member: None for member in self.state["sites"].get(name, {}) if member not in members}
            self.patch({"sites": {name: patch | members}})

    def tell_all(self):
        """Tells everybody the whole state."""
        with self.lock:
            self._tell("snapshot", self.snapshot(), self.sequence)

    def write_log(self, *lines):
        with self.lock:
            self.log += lines
            self._tell("log", {"lines": list(lines)})

    def _tell(self, event, data, sequence=None):
        for watcher in self.watchers:
            watcher.put((event, data, sequence))

    def snapshot(self):
        with self.lock:
            return self.state | {"epoch": self.epoch, "sequence": self.sequence, "now": now_us()}

    # Commands

    def command(self, command):
        with self.lock:
            known = self.answers.get(command["id"])
            if known:
                return known
            self.commands.append(command)
            message = self.refusals.get(command["command"])
            action = getattr(self, "do_" + command["command"], None)
            if message is None and action is not None:
                message = action(command)
            answer = message if isinstance(message, dict) else {"done": message is None}
            if isinstance(message, str):
                answer["message"] = message
            self.answers[command["id"]] = answer
            return answer

    def do_scan(self, command):
        text = command["text"]
        if text in self.state["sites"]:
            self.waits_for_device = text
            return {"done": True, "expects": "device", "site": text}
        takes = ("EMPTY", "PASS", "FAIL", "BROKEN OFF")
        free = [self.waits_for_device] if self.waits_for_device else [
            site for site in self.state["order"] if self.state["sites"][site]["state"] in takes]
        self.waits_for_device = None
        if any(site.get("serial") == text for site in self.state["sites"].values()):
            return f"{text} is being tested already"
        if not free:
            return "no site is free"
        self.begin(free[0], text)
        return {"done": True, "site": free[0]}

    def do_serial(self, command):
        self.begin(command["site"], command["serial"])

    def do_answer(self, command):
        site = self.state["sites"][command["site"]]
        if site.get("question", {}).get("id") != command["question"]:
            return "the question is not open any more"
        self.patch({"sites": {command["site"]: {"state": "RUNNING", "todo": "Wait.", "question": None}}})
        return None

    def do_operator(self, command):
        self.patch({"station": {"operator": command["name"] or None}})

    def do_mode(self, command):
        self.patch({"station": {"kind": command["kind"], "reason": command.get("reason")}})

    def do_disable(self, command):
        if not command["reason"]:
            return "say why the site is taken out of use"
        self.site(command["site"], state="DISABLED", since=now_us(), todo="A technician enables it.",
                  reason=command["reason"])
        return None

    def do_enable(self, command):
        self.site(command["site"], **empty_site())

    def do_acknowledge(self, command):
        self.site(command["site"], **empty_site())

    # A device, from scan to verdict

    def begin(self, site, serial):
        run = f"01930000-{secrets.token_hex(4)}"
        threading.Thread(target=self._device, args=(site, serial, run, self.epoch), daemon=True).start()

    def _device(self, site, serial, run, epoch):
        started = now_us()
        tests = ["Power up", "Idle current", "Voltages"]
        failure = None
        last, rows, steps = None, [], []
        for index, name in enumerate(tests, 1):
            with self.lock:
                if self.epoch != epoch:
                    return
                self.site(site, state="RUNNING", since=started, todo="Wait.", serial=serial, kind="production",
                          startedAt=started, usualSeconds=3 * self.test_seconds, attempt=1,
                          test={"index": index, "count": len(tests), "name": name, "startedAt": now_us(),
                                "usualSeconds": self.test_seconds},
                          **({"last": last} if last else {}))
            begun = now_us()
            time.sleep(self.test_seconds)
            bad = serial.startswith("BAD") and index == 3
            record = last = {"number": f"{index}.1", "name": "VREF", "value": "2.71" if bad else "2.512", "low": "2.4",
                      "high": "2.6", "unit": "V", "verdict": "FAIL" if bad else "PASS"}
            rows.append({"step": index, "attempt": 1, "superseded": False, "sequence": index, "value": float(record["value"]),
                         "test": name, "subTest": record["name"], "number": record["number"], "low": 2.4, "high": 2.6,
                         "unit": "V", "verdict": record["verdict"]})
            steps.append({"step": index, "attempt": 1, "test": name, "startedAt": begun, "endedAt": now_us(),
                          "verdict": record["verdict"]})
            if bad:
                failure = "Voltages / VREF: 2.71 is above 2.6"
        verdict = "FAIL" if failure else "PASS"
        ended = now_us()
        row = {"id": run, "site": site, "serial": serial, "kind": "production", "operator": "Ann", "startedAt": started,
               "endedAt": ended, "verdict": verdict} | ({"firstFailure": failure} if failure else {})
        with self.lock:
            if self.epoch != epoch:
                return
            self.run_rows[run] = row | {"flow": "main", "bundle": "com.example.board-test", "steps": steps,
                                        "measurements": rows}
            self.site(site, state=verdict, since=ended, todo="Take the device out. Scan the next one.",
                      verdict={"verdict": verdict, "serial": serial, "run": run, "seconds": (ended - started) / 1e6,
                               "endedAt": ended} | ({"firstFailure": failure} if failure else {}))
            today = dict(self.state["today"])
            today["failed" if failure else "passed"] += 1
            today["yield"] = today["passed"] / (today["passed"] + today["failed"])
            self.patch({"today": today, "recent": [row] + self.state["recent"][:19]})

    # The server

    def up(self):
        """Listens, at the same port as before."""
        station = self

        class Server(http.server.ThreadingHTTPServer):
            daemon_threads = True
            allow_reuse_address = True
            request_queue_size = 128

        self.open_sockets = set()
        self.server = Server(("127.0.0.1", self.port), lambda *args: Handler(station, *args))
        self.port = self.server.server_address[1]
        self.is_up = True
        threading.Thread(target=self.server.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True).start()
        return self

    def down(self):
        """Is gone, as a killed host is: each connection is reset."""
        self.is_up = False
        self.server.shutdown()
        self.server.server_close()
        for connection in list(self.open_sockets):
            try:
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
        with self.lock:
            for watcher in self.watchers:
                watcher.put(None)
            self.watchers = []

    @property
    def address(self):
        return f"http://127.0.0.1:{self.port}/"


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def __init__(self, station, *arguments):
        self.station = station
        super().__init__(*arguments)

    def setup(self):
        super().setup()
        self.station.open_sockets.add(self.connection)

    def finish(self):
        self.station.open_sockets.discard(self.connection)
        try:
            super().finish()
        except OSError:
            pass

    def log_message(self, *_):
        pass

    def _send(self, body, kind="application/json", status=200):
        if not isinstance(body, bytes):
            body = json.dumps(body).encode()
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Content-Security-Policy", POLICY)
        self.send_header("Cache-Control", "no-store")
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        target = urllib.parse.urlsplit(self.path)
        query = {name: values[-1] for name, values in urllib.parse.parse_qs(target.query).items()}
        station = self.station
        try:
            if target.path == "/api/1/events":
                self._events()
            elif target.path == "/api/1/state":
                self._send(station.snapshot())
            elif target.path == "/api/1/log":
                self._send({"lines": station.log[-int(query.get("lines", 100)):]})
            elif target.path == "/api/1/runs":
                runs = [run for run in station.state["recent"] if query.get("serial") in (None, run["serial"])]
                self._send({"runs": runs[:int(query.get("most", 20))]})
            elif target.path.startswith("/api/1/runs/"):
                run = station.run_rows.get(target.path.rsplit("/", 1)[1])
                self._send(run or {"message": "there is no such run"}, status=200 if run else 404)
            elif target.path.startswith("/api/1/images/"):
                self._send(BOARD.encode(), "image/svg+xml")
            else:
                self._file(target.path)
        except OSError:
            self.close_connection = True

    def _file(self, path):
        file = FILES / ("index.html" if path == "/" else path[1:])
        if file.parent != FILES or not file.is_file():
            self._send({"message": "there is nothing here"}, status=404)
            return
        content = file.read_bytes()
        if file.name == "index.html":
            content = content.replace(b'<meta name="quillon-token" content="">',
                                      f'<meta name="quillon-token" content="{self.station.token}">'.encode())
        self._send(content, TYPES[file.suffix])

    def _events(self):
        station = self.station
        events = queue.Queue()
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-store")
        self.send_header("Connection", "close")
        self.end_headers()
        self.close_connection = True
        with station.lock:
            epoch, _, last = self.headers.get("Last-Event-ID", "").rpartition(".")
            if epoch == station.epoch and last.isdigit():
                for sequence, patch in station.deltas[int(last):]:
                    events.put(("delta", patch, sequence))
            else:
                events.put(("snapshot", station.snapshot(), station.sequence))
            station.watchers.append(events)
        beat = time.monotonic()
        try:
            while station.is_up:
                try:
                    item = events.get(timeout=max(0.0, beat - time.monotonic()))
                    if item is None:
                        return
                    event, data, sequence = item
                except queue.Empty:
                    beat += HEARTBEAT
                    event, data, sequence = "heartbeat", {"now": now_us()}, None
                if station.silent:
                    continue
                line = f"event: {event}\ndata: {json.dumps(data)}\n"
                if sequence is not None:
                    line += f"id: {station.epoch}.{sequence}\n"
                self.wfile.write((line + "\n").encode())
        finally:
            with station.lock:
                if events in station.watchers:
                    station.watchers.remove(events)

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        try:
            if self.headers.get("X-Quillon-Token") != self.station.token:
                self._send({"message": "wrong token"}, status=403)
            elif self.headers.get("Content-Type") != "application/json":
                self._send({"message": "JSON only"}, status=415)
            else:
                answer = self.station.command(json.loads(body))
                if self.station.lost_answers > 0:
                    self.station.lost_answers -= 1
                    # Before its first byte the browser itself would ask again.
                    self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{")
                    self.close_connection = True
                    return
                self._send(answer, status=200 if answer["done"] else 409)
        except OSError:
            self.close_connection = True


# Scenes: what pictures show and tests measure

def running(station, site, serial, index, name, value, **more):
    started = now_us() - 6_300_000
    station.site(site, **({
        "state": "RUNNING", "since": started, "todo": "Wait.", "serial": serial, "kind": "production", "startedAt": started,
        "usualSeconds": 12.5, "attempt": 1,
        "test": {"index": index, "count": 6, "name": name, "startedAt": now_us() - 700_000, "usualSeconds": 1.8},
        "last": {"number": "2.1", "name": "VREF", "value": value, "low": "2.4", "high": "2.6", "unit": "V",
                 "verdict": "PASS"}} | more))


def ended(station, site, serial, verdict, **more):
    station.site(site, state=verdict.replace("_", " "), since=now_us(), todo="Take the device out. Scan the next one.",
                 verdict={"verdict": verdict, "serial": serial, "run": "r-" + serial, "seconds": 11.9,
                          "endedAt": now_us()} | more)


def counted(station):
    station.patch({"today": {"passed": 212, "failed": 9, "brokenOff": 1, "yield": 0.9593}})


def scene_running(station):
    counted(station)
    running(station, "left", "QB2601-0148", 3, "Voltages", "2.512")
    running(station, "right", "QB2601-0149", 4, "Serial console", "2.497", attempt=2, waitsFor="left holds meter",
            firstFailure="Idle current / I_IDLE: 131.2 is above 120")


def scene_verdicts(station):
    counted(station)
    ended(station, "left", "QB2601-0148", "PASS")
    ended(station, "right", "QB2601-0149", "FAIL", firstFailure="Voltages / VREF: 2.71 V is above 2.6 V")


def scene_question(station):
    counted(station)
    running(station, "right", "QB2601-0149", 4, "Serial console", "2.497")
    running(station, "left", "QB2601-0148", 3, "Connector", "2.512", state="ASKING", todo="Answer the question.",
            question={"id": "left-1", "kind": "choose", "text": "Connect J4, the white connector at the right edge.\n"
                      "What colour is the LED?", "choices": ["green", "red", "it is off"],
                      "image": "/api/1/images/left?v=1", "askedAt": now_us(), "until": now_us() + 42_000_000})


SIXTEEN = tuple(f"site-{number}" for number in range(1, 17))


def scene_sixteen(station):
    station.restart(SIXTEEN)
    counted(station)
    station.patch({"notices": [{"id": 1, "at": now_us(), "kind": "warning", "text": "meter-2 is due for calibration in 9 days",
                                "advice": "Tell the technician."}]})
    for number, site in enumerate(SIXTEEN, 1):
        serial = f"QB2601-{number:04}"
        if number in (1, 2, 6, 9, 11, 14):
            running(station, site, serial, number % 5 + 1, "Voltages", "2.512")
        elif number in (3, 7, 10):
            ended(station, site, serial, "PASS")
    ended(station, "site-4", "QB2601-0004", "FAIL", firstFailure="Voltages / VREF: 2.71 V is above 2.6 V")
    ended(station, "site-5", "QB2601-0005", "BROKEN_OFF", brokenOff="the plug-in crashed in test 3 Voltages")
    station.site("site-12", state="DISABLED", since=now_us(), reason="pogo pin 14 is bent", todo="A technician enables it.")
    station.site("site-13", state="UNSAFE", since=now_us(), reason="the supply could not be switched off",
                 todo="Make the fixture safe by hand.")
    running(station, "site-16", "QB2601-0016", 2, "Idle current", "2.5", waitsFor="site-2 holds meter", attempt=2,
            firstFailure="Idle current / I_IDLE: 131.2 is above 120")


SCENES = {name.removeprefix("scene_"): scene for name, scene in list(globals().items()) if name.startswith("scene_")}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--scene", choices=sorted(SCENES))
    parser.add_argument("--port", type=int, default=8800)
    arguments = parser.parse_args()
    station = Station(port=arguments.port)
    if arguments.scene:
        SCENES[arguments.scene](station)
    print(station.up().address)
    try:
        threading.Event().wait()
    except KeyboardInterrupt:
        station.down()
    return 0


if __name__ == "__main__":
    sys.exit(main())
