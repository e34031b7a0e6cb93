#!/usr/bin/env python3
"""Uses the live picture as other programs, strangers and broken clients do: by HTTP.

usage: preview_test.py TOOL LAUNCHER [unittest arguments]
"""

import json
import os
import re
import signal
import socket
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "support"))
from preview_runner import CAMERAS, Preview_Test, Stream  # pylint: disable=wrong-import-position
from tool_runner import TIME_LIMIT, decode, difference, main  # pylint: disable=wrong-import-position

DOCUMENT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../docs/preview.md")

FORMATS = """
camera
format MJPG
  size 320x240 30
format YUYV
  size 320x240 30
format GREY
  size 320x240 30
format UYVY
  size 320x240 30
format BA81
  size 320x240 30
format H264
  size 320x240 30
"""


class Pictures(Preview_Test):
    def test_every_format_that_can_be_shown_is_shown(self):
        self.serve(FORMATS)
        for name in ("MJPG", "YUYV", "UYVY", "BA81", "GREY"):
            mode = self.ask("/api/mode", {"format": name, "width": 320, "height": 240, "rate": "30"})
            self.assertEqual((mode["format"], mode["width"], mode["rate"]), (name, 320, "30"))
            status, _, picture = self.request("/snapshot")
            self.assertEqual(status, 200, picture)
            path = os.path.join(self.folder, name + ".jpg")
            with open(path, "wb") as file:
                file.write(picture)
            shown = decode(path, 320, 240)
            if name == "GREY":  # the camera's brightness as it is, which YUYV has too
                self.assertEqual(shown[0::3], shown[1::3])
                continue
            # The library's own conversion of the same card; the number in its middle differs.
            bitmap = os.path.join(self.folder, name + ".bmp")
            self.run_tool(FORMATS, "capture", "--format", name, "-o", bitmap)
            self.assertLess(difference(shown, decode(bitmap, 320, 240)), 12, name)
        for width, rate, sentence in ((321, "30", "nearest modes"), (320, "x", "not a rate")):
            status, _, content = self.request("/api/mode", {"format": "MJPG", "width": width, "height": 240, "rate": rate})
            self.assertEqual(status, 422)
            self.assertIn(sentence, json.loads(content)["error"])
        self.ask("/api/mode", {"format": "H264", "width": 320, "height": 240})
        stream = Stream(self.address)  # the connection waits for a picture that can be shown
        self.addCleanup(stream.close)
        problem = self.wait_for("problem", lambda: self.ask("/api/state")["camera"]["problem"])
        self.assertIn("H264", problem)
        self.ask("/api/mode", {"format": "GREY", "width": 320, "height": 240})
        stream.next()

    def test_a_slow_viewer_skips_pictures_and_slows_nobody(self):
        self.serve("camera\nformat MJPG\n  size 1280x720 30\n")
        slow = Stream(self.address)
        viewers = [Stream(self.address) for _ in range(5)]
        self.wait_for("six viewers", lambda: self.ask("/api/state")["camera"]["viewers"] == 6)
        slow.next()
        sequences = []
        start = time.monotonic()
        while time.monotonic() - start < 2:
            sequences.append([int(viewer.next()[0]["X-Sequence"]) for viewer in viewers])
        self.assertGreater(len(sequences), 2 * 30 * 0.6)
        for one in zip(*sequences):
            self.assertEqual(sorted(set(one)), list(one), "pictures are repeated")
        while int(slow.next()[0]["X-Sequence"]) < sequences[-1][0]:
            pass  # what the kernel had kept for it
        state = self.ask("/api/state")["camera"]
        self.assertEqual((state["lost"], state["damaged"]), (0, 0))
        self.assertGreater(state["rate"], 20)
        self.assertGreater(state["latency_ms"], 0)
        for stream in (slow, *viewers):
            stream.close()
        self.wait_for("end of the capture", lambda: self.ask("/api/state")["camera"]["state"] == "idle")
        self.assertLess(int(self.request("/snapshot")[1]["X-Sequence"]), sequences[-1][0], "an old picture")

    def test_frames_that_are_cut_short_are_counted_and_not_shown(self):
        self.serve("camera\nformat YUYV\n  size 320x240 30\ndamage-every 2\n")
        stream = Stream(self.address)
        self.addCleanup(stream.close)
        sequences = [int(stream.next()[0]["X-Sequence"]) for _ in range(6)]
        self.assertEqual({sequence % 2 for sequence in sequences}, {sequences[0] % 2}, sequences)
        self.assertGreater(self.ask("/api/state")["camera"]["damaged"], 4)

    def test_a_picture_tells_how_many_frames_were_lost_before_it(self):
        process = self.serve("camera\nformat MJPG\n  size 320x240 30\n")
        stream = Stream(self.address)
        self.addCleanup(stream.close)
        before = int(stream.next()[0]["X-Sequence"])
        os.killpg(process.pid, signal.SIGSTOP)  # the camera goes on by the clock, and has no buffer for its frames
        time.sleep(1)
        os.killpg(process.pid, signal.SIGCONT)
        for _ in range(30):
            headers = stream.next()[0]
            sequence, lost = int(headers["X-Sequence"]), int(headers["X-Lost"])
            self.assertLess(lost, sequence - before)
            if lost > 10:
                self.assertGreaterEqual(self.ask("/api/state")["camera"]["lost"], lost)
                return
            before = sequence
        self.fail("no picture says that frames were lost")

    def test_the_camera_that_comes_back_goes_on_with_its_settings(self):
        self.serve("camera\nformat MJPG\n  size 320x240 30\n  size 160x120 30\nunplug-after 1s\nreplug-after 2s\n")
        revision = self.ask("/api/state")["camera"]["revision"]
        self.ask("/api/mode", {"format": "MJPG", "width": 160, "height": 120})
        self.assertGreater(self.ask("/api/state")["camera"]["revision"], revision)
        self.ask("/api/controls", {"name": "brightness", "value": 140})
        revision = self.ask("/api/state")["camera"]["revision"]
        stream = Stream(self.address)
        self.addCleanup(stream.close)
        self.wait_for("unplug", lambda: self.ask("/api/state")["camera"]["state"] == "unplugged")
        self.wait_for("empty port", lambda: not self.ask("/api/state")["cameras"][0]["plugged"])
        self.wait_for("return", lambda: self.ask("/api/state")["camera"]["state"] == "live")
        stream.next()
        self.assertEqual(self.ask("/api/state")["camera"]["mode"]["width"], 160)
        self.assertEqual(self.control("brightness")["value"], 140)
        self.assertGreater(self.ask("/api/state")["camera"]["revision"], revision)

    def test_a_camera_that_does_not_start_is_explained_and_delays_no_end(self):
        process = self.serve("camera\nrefuse VIDIOC_STREAMON EIO\n")
        status, _, content = self.request("/snapshot")
        self.assertEqual((status, "did not start" in content.decode()), (503, True), content)
        Stream(self.address).close()  # noticed although no picture is sent
        self.wait_for("end of the viewer", lambda: self.ask("/api/state")["camera"]["viewers"] == 0, limit=10)
        connection = socket.create_connection(self.address)
        self.addCleanup(connection.close)
        connection.sendall(b"GET /snapshot HTTP/1.1\r\nHost: 127.0.0.1:%d\r\n\r\n" % self.address[1])
        self.wait_for("viewer", lambda: self.ask("/api/state")["camera"]["viewers"] == 1)
        start = time.monotonic()
        self.end(process)
        self.assertLess(time.monotonic() - start, 3)  # the snapshot would wait for five seconds

    def test_settings_are_answered_with_what_the_camera_took(self):
        self.serve()
        for change, name, value in (({"name": "brightness", "value": 99}, "brightness", 99),
                                    ({"name": "brightness", "value": None}, "brightness", 128),
                                    ({"name": "power_line_frequency", "value": "60 Hz"}, "power_line_frequency", 2),
                                    ({"name": "white_balance_automatic", "value": False},
                                     "white_balance_automatic", False),
                                    ({"reset": True}, "power_line_frequency", 1)):
            revision = self.ask("/api/state")["camera"]["revision"]
            answer = {control["name"]: control for control in self.ask("/api/controls", change)}
            self.assertEqual((answer[name]["value"], self.control(name)["value"]), (value, value))
            self.assertGreater(self.ask("/api/state")["camera"]["revision"], revision)
        for change, status in (({"name": "brightness", "value": 256}, 422), ({"name": "nothing", "value": 1}, 422),
                               ({"name": "brightness"}, 400), ({"value": 1}, 400), ([], 400),
                               ({"name": "brightness", "value": []}, 400), ({"name": 7, "value": 7}, 400)):
            with self.subTest(change):
                self.assertEqual(self.request("/api/controls", change)[0], status)
        self.assertEqual(self.request("/api/controls?camera=nobody")[0], 404)

    def test_players_that_ask_for_ranges_get_all(self):
        self.serve()
        for ranges in ("bytes=0-", "bytes=0-1", "bytes=" + "0-," * 1000 + "0-"):
            status, headers, picture = self.request("/snapshot", Range=ranges)
            self.assertEqual((status, headers["Content-Type"], picture[-2:]), (200, "image/jpeg", b"\xff\xd9"))
        Stream(self.address, headers={"Range": "bytes=0-"}).close()


class Strangers(Preview_Test):
    def test_other_origins_are_refused(self):
        self.serve()
        own = "http://%s:%d" % self.address
        brightness = {"name": "brightness", "value": 3}
        for headers, allowed in (({"Host": "rebound.example:%d" % self.address[1]}, False),
                                 ({"Host": "127.0.0.1"}, False),
                                 ({"Host": "127.0.0.1:1"}, False),
                                 ({"Host": "localhost:%d" % self.address[1]}, True),
                                 ({"Origin": "http://evil.example"}, False),
                                 ({"Origin": "null"}, False),
                                 ({"Origin": own + "0"}, False),
                                 ({"Origin": own}, True),
                                 ({"Sec_Fetch_Site": "cross-site", "Sec_Fetch_Mode": "no-cors"}, False),
                                 ({"Sec_Fetch_Site": "same-site"}, False),
                                 ({"Sec_Fetch_Site": "same-origin"}, True)):
            for path, change in (("/", None), ("/stream", None), ("/snapshot", None), ("/api/state", None),
                                 ("/api/controls", brightness), ("/api/mode", {})):
                if allowed and path in ("/stream", "/api/mode"):
                    continue
                with self.subTest((headers, path)):
                    self.assertEqual(self.request(path, change, **headers)[0], 200 if allowed else 403)
        link = {"Sec_Fetch_Site": "cross-site", "Sec_Fetch_Mode": "navigate"}
        self.assertEqual([self.request(path, **link)[0] for path in ("/", "/snapshot")], [200, 403])
        # A form of another page can send these types without asking.
        for kind in ("text/plain", "application/x-www-form-urlencoded", "multipart/form-data; boundary=x"):
            self.assertEqual(self.request("/api/controls", {"reset": True}, Content_Type=kind)[0], 403)
        self.assertEqual(self.control("brightness")["value"], 3)
        self.assertIn(self.request("/api/controls", {"reset": True}, method="GET")[0], (200, 400))
        self.assertEqual(self.control("brightness")["value"], 3)
        _, headers, _ = self.request("/")
        self.assertIn("default-src 'none'", headers["Content-Security-Policy"])
        self.assertEqual(headers["Cross-Origin-Resource-Policy"], "same-origin")

    def test_the_network_needs_the_token(self):
        self.serve()
        with self.assertRaises(ConnectionRefusedError):  # an address that a server of all addresses would have
            socket.create_connection(("127.0.0.2", self.address[1]), timeout=10)
        self.serve(CAMERAS, "--listen", "127.0.0.1", "--port", "0")
        token = self.url.split("?token=")[1]
        self.assertRegex(token, "^[0-9a-f]{32}$")
        wrong = "0" * 32
        for path in ("/", "/snapshot", "/stream", "/api/state", "/app.js"):
            for suffix in ("", "?token=", "?token=" + wrong, "?token=" + token[:-1], "?tokens=" + token):
                self.assertEqual(self.request(path + suffix)[0], 403, path + suffix)
        self.assertEqual(self.request("/api/controls", {"reset": True})[0], 403)
        status, headers, _ = self.request("/?token=" + token)
        self.assertEqual(status, 200)
        cookie = headers["Set-Cookie"]
        self.assertRegex(cookie, "HttpOnly; SameSite=Strict")
        cookie = cookie.split(";")[0]
        for value, expected in ((cookie, 200), ("other=1; " + cookie, 200), (cookie[:-1], 403), ("x" + cookie, 403)):
            self.assertEqual(self.request("/api/state", Cookie=value)[0], expected, value)
        self.assertEqual(self.request("/snapshot?token=" + token)[0], 200)
        self.assertEqual(self.request("/api/state?token=" + token, Host="localhost:%d" % self.address[1])[0], 403)
        self.serve(CAMERAS, "--listen", "0.0.0.0", "--port", "0")
        self.assertNotIn(token, self.url)
        path = "/" + self.url.split("/")[3]
        self.assertEqual(self.request(path)[0], 200)
        self.assertEqual(self.request(path, Host="rebound.example:%d" % self.address[1])[0], 403)

    def connect(self, first=b""):
        connection = socket.create_connection(self.address, timeout=10)
        self.addCleanup(connection.close)
        try:
            connection.sendall(first)
        except ConnectionError:
            pass  # refused already
        return connection

    @staticmethod
    def answers_on(connection):
        """All that comes until the server closes the connection, which it also does with bytes unread."""
        answers = b""
        try:
            for piece in iter(lambda: connection.recv(4096), b""):
                answers += piece
        except ConnectionError:
            pass
        return answers

    def assert_serving(self):
        start = time.monotonic()
        self.ask("/api/state")
        self.assertLess(time.monotonic() - start, 3)

    def test_broken_requests_leave_it_serving(self):
        self.serve()
        host = b"Host: 127.0.0.1:%d\r\n" % self.address[1]
        post = b"POST /api/controls HTTP/1.1\r\n" + host + b"Content-Type: application/json\r\n"
        for request in (b"\0" * 5000, b"GET\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n", b"GET / HTTP/1.1\r\n\r\n",
                        b"GET /" + b"a" * 100000, b"GET / HTTP/1.1\r\nX: " + b"a" * 100000 + b"\r\n\r\n",
                        b"GET / HTTP/1.1\r\n" + host + b"X: y\r\n" * 20000 + b"\r\n",
                        b"GET / HTTP/1.1\r\n" + host * 2 + b"\r\n",
                        b"GET /../../etc/passwd HTTP/1.1\r\n" + host + b"\r\n",
                        post + b"Content-Length: 99999999999\r\n\r\n{", post + b"Content-Length: -1\r\n\r\n{}",
                        post + b"Content-Length: 15000\r\n\r\n" + b"[" * 15000,
                        post + b"Content-Length: 20000\r\n\r\n" + b'{"reset": true}'.ljust(20000),
                        post + b"Transfer-Encoding: chunked\r\n\r\nfffffffffffffffff\r\n"):
            with self.subTest(request[:60]):
                connection = self.connect(request)
                answer = b""
                try:
                    connection.shutdown(socket.SHUT_WR)
                    answer = connection.recv(100)
                except OSError:
                    pass  # the server has closed the connection already
                self.assertNotRegex(answer, rb"^HTTP/1.1 2")
                connection.close()
                self.assert_serving()

    def test_what_a_stranger_puts_into_a_body_is_no_request(self):
        self.serve()
        host = b"Host: 127.0.0.1:%d\r\n" % self.address[1]
        post = b" HTTP/1.1\r\n" + host + b"Content-Type: %s\r\nContent-Length: %d\r\n%s\r\n"
        change = b'{"name": "brightness", "value": 3}'
        inner = b"POST /api/controls" + post % (b"application/json", len(change), b"") + change
        foreign = post % (b"text/plain", len(inner), b"Origin: http://evil.example\r\n") + inner
        for path in (b"/api/controls", b"/" + b"a" * 10000):
            connection = self.connect(b"POST " + path + foreign)
            answer = self.answers_on(connection)
            self.assertEqual(re.findall(rb"HTTP/1.1 (\d+)", answer)[1:], [], answer)
        self.assertEqual(self.control("brightness")["value"], 128)
        connection = self.connect(inner * 2)  # of our own page: both are answered
        self.wait_for("two answers", lambda: connection.recv(1 << 20, socket.MSG_PEEK).count(b"HTTP/1.1 200") == 2)

    def test_clients_that_send_nothing_or_trickle_leave_it_serving(self):
        self.serve()
        idle = [self.connect() for _ in range(150)]
        trickling = [self.connect(b"GET / HTTP/1.1\r\nX: ") for _ in range(60)]
        self.assert_serving()
        start = time.monotonic()
        while time.monotonic() - start < 6:  # longer than a request may take
            for connection in trickling:
                try:
                    connection.send(b"y")
                except OSError:
                    pass
            time.sleep(0.2)
        self.assert_serving()
        for connection in (idle[-1], trickling[-1]):
            try:
                self.assertNotRegex(connection.recv(100), rb"^HTTP/1.1 2")  # closed, or told that it was too slow
            except ConnectionError:
                pass

    def send_deaf(self, request):
        """Sends a request, and receives nothing."""
        deaf = socket.socket()
        self.addCleanup(deaf.close)
        deaf.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
        deaf.connect(self.address)
        deaf.setblocking(False)
        deaf.send(request)

    def test_clients_that_receive_nothing_leave_it_serving(self):
        self.serve()
        for _ in range(100):
            self.send_deaf((b"GET / HTTP/1.1\r\nHost: 127.0.0.1:%d\r\n\r\n" % self.address[1]) * 1000)
        time.sleep(1)
        self.assert_serving()

    def test_one_client_that_sends_or_receives_nothing_is_sent_away(self):
        self.serve()
        idle = self.connect()
        self.send_deaf(b"GET /stream HTTP/1.1\r\nHost: 127.0.0.1:%d\r\n\r\n" % self.address[1])
        self.wait_for("viewer", lambda: self.ask("/api/state")["camera"]["viewers"] == 1)
        self.assertEqual(idle.recv(100), b"")  # closed before the time-out of this socket, ten seconds
        self.wait_for("end of the viewer", lambda: self.ask("/api/state")["camera"]["viewers"] == 0, limit=20)

    def test_viewers_are_limited_and_questions_are_still_answered(self):
        process = self.serve()
        streams = []
        for _ in range(32):
            streams.append(Stream(self.address, "/stream?camera=" + self.ask("/api/state")["cameras"][1]["identity"]))
        for path in ("/stream", "/snapshot"):
            status, _, content = self.request(path)
            self.assertEqual((status, "Too many" in content.decode()), (503, True))
        self.assert_serving()
        streams.pop().close()
        self.wait_for("free place", lambda: self.request("/snapshot")[0] == 200)
        self.end(process)  # with viewers that are connected
        for stream in streams:
            stream.close()


class Command_Line(Preview_Test):
    def test_wrong_words_and_taken_ports_are_named(self):
        self.serve(CAMERAS, "--port", "0")
        port = str(self.address[1])
        for words, sentence in ((("--port", port), "Address already in use; choose another port"),
                                (("--listen", "nowhere.example"), "is not an IP address"),
                                (("--listen", "203.0.113.7"), "cannot be served"),
                                (("no-such-camera",), "No camera has")):
            with self.subTest(words):
                self.assertIn(sentence, self.run_tool(CAMERAS, "preview", *words, status=1).stderr)
        self.assertIn("65536", self.run_tool(CAMERAS, "preview", "--port", "65536", status=2).stderr)

    def test_the_address_as_json(self):
        process = subprocess.Popen(self.command(CAMERAS, "preview", "--port", "0", "--json"), text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
        self.addCleanup(self.end, process)
        address, = json.loads(process.stdout.readline())["addresses"]
        self.assertRegex(address, r"^http://127\.0\.0\.1:\d+/$")

    def test_commands_of_the_documentation_work(self):
        with open(DOCUMENT, encoding="utf-8") as file:
            text = file.read()
        previews = re.findall(r"^    wqz-usbcam preview(.*)$", text, re.M)
        requests = re.findall(r"^    (curl .*)$", text, re.M)
        self.assertEqual((len(previews), len(requests)), (2, 2))
        for words in previews:
            words = words.split("#")[0].replace("8000", "0").split()
            self.serve("camera Named\nusb 046d:0825\ncamera Other\n", *(words or ("--port", "0")))
            names = [camera["name"] for camera in self.ask("/api/state")["cameras"]]
            self.assertEqual(names, ["Named"] if words else ["Named", "Other"])
        for command in requests:
            command = command.replace("127.0.0.1:8080", "%s:%d" % self.address).replace("curl", "curl --fail --silent")
            subprocess.run(command, shell=True, cwd=self.folder, check=True, timeout=TIME_LIMIT, capture_output=True)
        decode(os.path.join(self.folder, "picture.jpg"), 1920, 1080)
        self.assertEqual(self.control("brightness")["value"], 140)


if __name__ == "__main__":
    main()
