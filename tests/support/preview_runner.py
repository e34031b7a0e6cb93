"""What the tests of the live picture share: a preview of virtual cameras, requests to it, and its stream."""

import http.client
import json
import os
import re
import signal
import subprocess
import time

from tool_runner import TIME_LIMIT, Tool_Test

CAMERAS = """
camera Desk
format MJPG
  size 640x480 30 15
  size 320x240 30
format YUYV
  size 640x480 30
format GREY
  size 160x120 30
camera <b>Door</b>
format MJPG
  size 160x120 30
"""


class Stream:
    """A viewer that reads pictures from /stream."""

    def __init__(self, address, path="/stream", headers=None):
        self.connection = http.client.HTTPConnection(*address, timeout=TIME_LIMIT)
        self.connection.request("GET", path, headers=headers or {})
        self.answer = self.connection.getresponse()
        assert self.answer.status == 200, self.answer.read()
        self.boundary = b"--" + self.answer.headers["Content-Type"].split("boundary=")[1].encode() + b"\r\n"
        assert self.answer.readline() == self.boundary

    def next(self):
        """The headers and the bytes of the next picture."""
        headers = http.client.parse_headers(self.answer)
        picture = self.answer.read(int(headers["Content-Length"]))
        assert self.answer.read(2) == b"\r\n" and self.answer.readline() == self.boundary
        assert (picture[:2], picture[-2:]) == (b"\xff\xd8", b"\xff\xd9"), "not a whole JPEG"
        return headers, picture

    def close(self):
        self.answer.close()
        self.connection.close()


class Preview_Test(Tool_Test):
    def serve(self, description=CAMERAS, *words):
        """Starts a preview that the end of the test ends, and checks that it ends well."""
        command = self.command(description, "preview", *(words or ("--port", "0")))
        process = subprocess.Popen(command, cwd=self.folder, text=True, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, start_new_session=True)
        self.addCleanup(self.end, process)
        self.url = process.stdout.readline().strip()
        self.assertRegex(self.url, r"^http://[0-9.]+:\d+/", self.url or process.stderr)
        host, port = re.match(r"http://([^/]+):(\d+)/", self.url).groups()
        self.address = (host, int(port))
        return process

    def end(self, process):
        if process.stdout.closed:
            return  # ended before the end of the test
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGINT)
        start = time.monotonic()
        self.assertEqual(process.wait(TIME_LIMIT), 0, process.stderr.read())
        self.assertLess(time.monotonic() - start, 5, "the end takes long")
        process.stdout.close()
        process.stderr.close()

    def request(self, path, change=None, method=None, **headers):
        """The status, the headers and the body of an answer; `change` is sent as JSON."""
        connection = http.client.HTTPConnection(*self.address, timeout=TIME_LIMIT)
        headers = {name.replace("_", "-"): value for name, value in headers.items()}
        body = None
        if change is not None:
            body = json.dumps(change)
            headers = {"Content-Type": "application/json", **headers}
        connection.request(method or ("GET" if body is None else "POST"), path, body, headers)
        answer = connection.getresponse()
        content = answer.read()
        connection.close()
        return answer.status, answer.headers, content

    def ask(self, path, change=None):
        status, _, content = self.request(path, change)
        self.assertEqual(status, 200, content)
        return json.loads(content)

    def control(self, name):
        return next(control for control in self.ask("/api/controls") if control["name"] == name)

    def wait_for(self, what, condition, limit=TIME_LIMIT):
        deadline = time.monotonic() + limit
        while time.monotonic() < deadline:
            result = condition()
            if result:
                return result
            time.sleep(0.05)
        self.fail("no " + what)
