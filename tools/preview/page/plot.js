// The running plot: frames per second over the last minute, with a mark where frames were lost.

const SECONDS = 60;

export class Plot {
  samples = [];

  constructor(canvas) {
    this.canvas = canvas;
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.draw());
    new ResizeObserver(() => this.draw()).observe(canvas);
  }

  clear() {
    this.samples = [];
    this.draw();
  }

  /** Adds a second: its rate, and how many frames were lost in it. */
  add(rate, lost) {
    this.samples.push({ rate, lost });
    this.samples = this.samples.slice(-SECONDS);
    this.draw();
  }

  draw() {
    const scale = devicePixelRatio || 1;
    const width = this.canvas.clientWidth;
    const height = this.canvas.clientHeight;
    this.canvas.width = Math.round(width * scale);
    this.canvas.height = Math.round(height * scale);
    const context = this.canvas.getContext("2d");
    const colour = (name) => getComputedStyle(this.canvas).getPropertyValue(name);
    context.scale(scale, scale);

    const top = Math.max(10, ...this.samples.map((sample) => sample.rate)) * 1.15;
    const x = (i) => width - 2 - ((this.samples.length - 1 - i) * (width - 4)) / (SECONDS - 1);
    const y = (rate) => height - 1.5 - (rate / top) * (height - 4);

    context.strokeStyle = colour("--line");
    context.beginPath();
    context.moveTo(0, height - 0.5);
    context.lineTo(width, height - 0.5);
    context.stroke();

    context.strokeStyle = colour("--bad");
    context.lineWidth = 2;
    this.samples.forEach((sample, i) => {
      if (sample.lost > 0) {
        context.beginPath();
        context.moveTo(x(i), 0);
        context.lineTo(x(i), height);
        context.stroke();
      }
    });

    context.strokeStyle = colour("--accent");
    context.lineWidth = 1.75;
    context.lineJoin = "round";
    context.beginPath();
    this.samples.forEach((sample, i) => context.lineTo(x(i), y(sample.rate)));
    context.stroke();
  }
}
