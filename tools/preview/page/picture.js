// The live picture: reads the stream, draws each frame, and keeps the one that is shown.
//
// The page reads the multipart stream itself, because an <img> would not tell which frame it shows.

const HEADER_END = [13, 10, 13, 10];

/** Takes a stream of bytes apart into parts with a Content-Length. */
class Parts {
  bytes = new Uint8Array(1 << 20);
  start = 0;
  end = 0;

  push(chunk) {
    if (this.end + chunk.length > this.bytes.length) {
      this.makeRoom(chunk.length);
    }
    this.bytes.set(chunk, this.end);
    this.end += chunk.length;
  }

  makeRoom(count) {
    const used = this.bytes.subarray(this.start, this.end);
    const needed = used.length + count;
    const target = needed > this.bytes.length ? new Uint8Array(2 * needed) : this.bytes;
    target.set(used);
    this.bytes = target;
    this.start = 0;
    this.end = used.length;
  }

  /** The next whole part, or null. */
  next() {
    const head = this.headerEnd();
    if (head < 0) {
      return null;
    }
    const text = new TextDecoder().decode(this.bytes.subarray(this.start, head));
    const length = Number(/Content-Length: (\d+)/i.exec(text)?.[1]);
    const body = head + HEADER_END.length;
    if (!(length > 0)) {
      throw new Error("the stream is not a stream of pictures");
    }
    if (this.end < body + length) {
      return null;
    }
    this.start = body + length;
    return {
      sequence: Number(/X-Sequence: (\d+)/i.exec(text)?.[1]),
      blob: new Blob([this.bytes.slice(body, body + length)], { type: "image/jpeg" }),
    };
  }

  headerEnd() {
    for (let i = this.start; i + HEADER_END.length <= this.end; ++i) {
      if (HEADER_END.every((byte, k) => this.bytes[i + k] === byte)) {
        return i;
      }
    }
    return -1;
  }
}

export class Picture {
  /** The frame on the canvas: { sequence, blob, width, height }. */
  shown = null;
  /** Why the preview sends no pictures: its sentence, or "". */
  refusal = "";

  constructor(canvas, onFrame) {
    this.canvas = canvas;
    this.context = canvas.getContext("2d", { alpha: false });
    this.onFrame = onFrame;
    this.ending = null;
  }

  /** Forgets the frame that is shown. */
  clear() {
    this.shown = null;
    this.refusal = "";
    this.context.clearRect(0, 0, this.canvas.width, this.canvas.height);
  }

  /** Shows a camera's stream until close() or another open(). Begins again when the connection breaks. */
  async open(camera) {
    this.close();
    const ending = new AbortController();
    this.ending = ending;
    while (!ending.signal.aborted) {
      try {
        await this.follow(camera, ending.signal);
      } catch {
        // The page's status line tells what is wrong.
      }
      await new Promise((resolve) => setTimeout(resolve, 1000));
    }
  }

  close() {
    this.ending?.abort();
    this.ending = null;
  }

  async follow(camera, signal) {
    const response = await fetch(`/stream?camera=${encodeURIComponent(camera)}`, { signal });
    this.refusal = response.ok ? "" : (await response.json()).error;
    if (!response.ok) {
      return;
    }
    const reader = response.body.getReader();
    const parts = new Parts();
    for (;;) {
      const { done, value } = await reader.read();
      if (done) {
        return;
      }
      parts.push(value);
      let newest = null;
      for (let part = parts.next(); part; part = parts.next()) {
        newest = part;
      }
      if (newest) {
        await this.draw(newest, signal);
      }
    }
  }

  async draw(part, signal) {
    let bitmap;
    try {
      bitmap = await createImageBitmap(part.blob);
    } catch {
      return; // a damaged frame; the next one comes soon
    }
    if (!signal.aborted) {
      if (this.canvas.width !== bitmap.width || this.canvas.height !== bitmap.height) {
        this.canvas.width = bitmap.width;
        this.canvas.height = bitmap.height;
      }
      this.context.drawImage(bitmap, 0, 0);
      this.shown = { ...part, width: bitmap.width, height: bitmap.height };
      this.onFrame(this.shown);
    }
    bitmap.close();
  }
}

/** Saves the very bytes of a frame as a file. */
export function saveFrame(frame, cameraName) {
  const two = (number) => String(number).padStart(2, "0");
  const now = new Date();
  const day = `${now.getFullYear()}-${two(now.getMonth() + 1)}-${two(now.getDate())}`;
  const time = `${two(now.getHours())}${two(now.getMinutes())}${two(now.getSeconds())}`;
  const name = cameraName.toLowerCase().replace(/[^a-z0-9]+/g, "-").replace(/^-+|-+$/g, "") || "camera";
  const link = document.createElement("a");
  link.href = URL.createObjectURL(frame.blob);
  link.download = `${name}-${day}-${time}-${String(frame.sequence).padStart(6, "0")}.jpg`;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}
