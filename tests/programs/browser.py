"""A page in a browser that opens the camera, and the server that its pictures come back to."""

import http.server
import queue
import tempfile
import threading
import urllib.parse
from pathlib import Path

PAGE = Path(__file__).with_name("camera_page.html")
OPTIONS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync",
           "--disable-dev-shm-usage", "--use-fake-ui-for-media-stream", "--autoplay-policy=no-user-gesture-required")


class Page_Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        page = PAGE.read_bytes() if self.path == "/" else b""
        self.answer(200 if page else 404, page)

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        self.server.messages.put((urllib.parse.urlparse(self.path), body))
        self.answer(200, b"")

    def answer(self, status, body):
        self.send_response(status)
        self.send_header("Content-Type", "text/html")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


def pictures_of_page(start, time_limit):
    """Shows the page in a browser that `start` runs, given its options.

    Returns the name of the camera and the pictures as (red-green-blue bytes, width, height).
    """
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Page_Handler)
    server.messages = queue.Queue()
    threading.Thread(target=server.serve_forever, daemon=True).start()
    pictures = []
    with tempfile.TemporaryDirectory(prefix="browser-", ignore_cleanup_errors=True) as profile:
        address = "http://127.0.0.1:%d/" % server.server_address[1]
        with start([*OPTIONS, "--user-data-dir=" + profile, address]):
            try:
                while True:
                    path, body = server.messages.get(timeout=time_limit)
                    if path.path == "/done":
                        return body.decode(), pictures
                    if path.path == "/failed":
                        raise RuntimeError("the page says: " + body.decode())
                    size = urllib.parse.parse_qs(path.query)
                    pictures.append((without_alpha(body), int(size["width"][0]), int(size["height"][0])))
            except queue.Empty:
                raise RuntimeError("no picture from the page within %d seconds" % time_limit) from None
            finally:
                server.shutdown()


def without_alpha(pixels):
    colours = bytearray(len(pixels) // 4 * 3)
    for channel in range(3):
        colours[channel::3] = pixels[channel::4]
    return bytes(colours)
