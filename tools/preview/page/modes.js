// The mode chooser: format, size and rate from what the camera offers.

import { readModes, setMode } from "./api.js";

// Offered from a range of sizes or rates, beside its bounds.
const COMMON_SIZES = [[160, 120], [320, 240], [640, 360], [640, 480], [800, 600], [1280, 720], [1920, 1080], [3840, 2160]];
const COMMON_RATES = ["5", "10", "15", "20", "24", "25", "30", "50", "60"];

const least = (bound) => (typeof bound === "object" ? bound.min : bound);
const most = (bound) => (typeof bound === "object" ? bound.max : bound);

function contains(bound, value) {
  const step = typeof bound === "object" ? bound.step || 1 : 1;
  return value >= least(bound) && value <= most(bound) && (value - least(bound)) % step === 0;
}

function sizesOf(offer) {
  const all = [[least(offer.width), least(offer.height)], ...COMMON_SIZES, [most(offer.width), most(offer.height)]];
  return all.filter(([width, height]) => contains(offer.width, width) && contains(offer.height, height));
}

/** "1001/30000" seconds per frame are "30000/1001" frames per second. */
function rateOf(interval) {
  const [seconds, frames] = interval.split("/").map(Number);
  return frames % seconds === 0 ? String(frames / seconds) : `${frames}/${seconds}`;
}

const numberOf = (rate) => rate.split("/").reduce((frames, seconds) => Number(frames) / Number(seconds));

function ratesOf(offer) {
  if (typeof offer.interval === "string") {
    return offer.interval.startsWith("0/") ? [] : [rateOf(offer.interval)];
  }
  const bounds = [rateOf(offer.interval.max), rateOf(offer.interval.min)];
  const inside = (rate) => Number(rate) > offer.fps.min && Number(rate) < offer.fps.max;
  const isExact = offer.interval.step.startsWith("0/");
  return [bounds[0], ...(isExact ? COMMON_RATES.filter(inside) : []), bounds[1]];
}

function fill(select, values, chosen, textOf) {
  const key = values.join(" ");
  if (select.dataset.values !== key) {
    select.dataset.values = key;
    select.replaceChildren(...values.map((value) => new Option(textOf(value), value)));
  }
  select.value = values.includes(chosen) ? chosen : values[0] ?? "";
  select.disabled = values.length === 0;
}

export class Modes {
  constructor(form, report) {
    this.format = form.querySelector("#format");
    this.size = form.querySelector("#size");
    this.rate = form.querySelector("#fps");
    this.report = report;
    this.offers = [];
    this.mode = null;
    this.pending = 0; // changes that the server has not answered
    this.changes = 0; // changes that began or ended: what was asked for before the last of them is out of date
    form.addEventListener("submit", (event) => event.preventDefault());
    for (const select of [this.format, this.size, this.rate]) {
      select.addEventListener("change", () => this.choose(select));
    }
  }

  async load(camera) {
    if (camera !== this.camera) {
      this.camera = camera;
      this.offers = [];
    }
    const offers = await readModes(camera);
    if (camera === this.camera) {
      this.offers = offers;
      this.show();
    }
  }

  /** Shows the mode that the camera is in. `changes` is what it was when the mode was asked for. */
  update(mode, changes) {
    if (this.pending > 0 || changes !== this.changes) {
      return;
    }
    const isNew = JSON.stringify(mode) !== JSON.stringify(this.mode);
    this.mode = mode;
    if (isNew) {
      this.show();
    }
  }

  show() {
    const first = this.offers[0];
    const mode = this.mode ?? (first && { format: first.format, width: most(first.width), height: most(first.height) });
    this.fillFrom(mode?.format, mode ? `${mode.width}x${mode.height}` : "", mode?.rate);
  }

  fillFrom(format, size, rate) {
    const formats = [...new Set(this.offers.map((offer) => offer.format))];
    fill(this.format, formats, format, (value) => ({ MJPG: "MJPEG" })[value] ?? value);

    const ofFormat = this.offers.filter((offer) => offer.format === this.format.value);
    const sizes = [...new Set(ofFormat.flatMap(sizesOf).map((pair) => pair.join("x")))];
    sizes.sort((one, other) => parseInt(one) - parseInt(other) || parseInt(one.split("x")[1]) - parseInt(other.split("x")[1]));
    fill(this.size, sizes, size, (value) => value.replace("x", "×"));

    const [width, height] = this.size.value.split("x").map(Number);
    const ofSize = ofFormat.filter((offer) => contains(offer.width, width) && contains(offer.height, height));
    const rates = [...new Set(ofSize.flatMap(ratesOf))].sort((one, other) => numberOf(other) - numberOf(one));
    fill(this.rate, rates, rate, (value) => `${Math.round(numberOf(value) * 100) / 100} fps`);
  }

  /** Asks for what is chosen. Where the other fields do not fit it, they take the nearest that does. */
  async choose(changed) {
    const keepRate = changed === this.rate ? this.rate.value : this.mode?.rate;
    this.fillFrom(this.format.value, this.size.value, keepRate);
    const [width, height] = this.size.value.split("x").map(Number);
    this.pending++;
    this.changes++;
    try {
      this.mode = await setMode(this.camera, { format: this.format.value, width, height, rate: this.rate.value });
      this.report("");
    } catch (error) {
      this.report(error.message);
    }
    this.pending--;
    this.changes++;
    if (this.pending === 0) {
      this.show();
    }
  }
}
