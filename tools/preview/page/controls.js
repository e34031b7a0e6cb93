// The controls of the camera: a field for each, kept in step with the camera.

import { readControls, resetControls, setControl } from "./api.js";

const SETTLING = 80; // milliseconds between two settings while a slider is dragged

const LOCKS = {
  inactive: "Set by another control at the moment",
  grabbed: "Cannot be changed while the camera captures",
  "read-only": "Cannot be changed",
};

function element(tag, properties = {}, ...children) {
  const made = Object.assign(document.createElement(tag), properties);
  made.append(...children);
  return made;
}

/** A row with one control. `set` sends a value to the camera; null stands for the default. */
class Row {
  constructor(control, set) {
    this.name = control.name;
    this.id = `control-${control.name}`;
    this.fields = this.makeFields(control, set);
    this.label = element("label", { className: "name", htmlFor: this.id, textContent: control.label });
    this.toDefault = element("button", { type: "button", className: "default", textContent: "Default" });
    this.toDefault.setAttribute("aria-label", `Set ${control.label} to its default`);
    this.toDefault.addEventListener("click", () => set(null));
    this.toDefault.hidden = control.type === "button" || control.type === "string";
    this.why = element("span", { className: "why" });
    this.fields.forEach((field) => field.classList.add("field"));
    this.box = element("div", { className: "control" }, this.label, this.toDefault, ...this.fields, this.why);
    this.box.dataset.control = control.name;
  }

  makeFields(control, set) {
    switch (control.type) {
      case "boolean":
        return [this.makeSwitch(set)];
      case "menu":
      case "integer menu":
        return [this.makeMenu(control, set)];
      case "button":
        return [this.makeButton(control, set)];
      case "string":
        return [this.makeText(control, set)];
      case "bitmask":
        return [this.makeNumber(control, set)];
      default:
        return this.makeSlider(control, set);
    }
  }

  makeSwitch(set) {
    const field = element("input", { type: "checkbox", className: "switch", id: this.id });
    field.setAttribute("role", "switch");
    field.addEventListener("change", () => set(field.checked));
    this.show = (value) => { field.checked = value; };
    return field;
  }

  makeMenu(control, set) {
    const field = element("select", { id: this.id, className: "below" });
    field.append(...(control.items ?? []).map((item) => new Option(item.name, item.index)));
    field.addEventListener("change", () => set(Number(field.value)));
    this.show = (value) => { field.value = value; };
    return field;
  }

  makeButton(control, set) {
    const field = element("button", { type: "button", id: this.id, textContent: "Run" });
    field.addEventListener("click", () => set(1));
    this.show = () => {};
    return field;
  }

  makeText(control, set) {
    const field = element("input", { type: "text", id: this.id, className: "below", maxLength: control.max });
    field.addEventListener("change", () => set(field.value));
    this.show = (value) => { field.value = value ?? ""; };
    return field;
  }

  makeNumber(control, set) {
    const field = element("input", { type: "number", id: this.id, min: control.min, max: control.max, step: control.step || 1 });
    field.addEventListener("change", () => {
      if (field.checkValidity() && field.value !== "") {
        set(Number(field.value));
      } else {
        field.reportValidity();
      }
    });
    this.show = (value) => { field.value = value ?? ""; };
    return field;
  }

  makeSlider(control, set) {
    const number = this.makeNumber(control, set);
    const showNumber = this.show;
    number.id = `${this.id}-number`;
    number.setAttribute("aria-label", `${control.label}, number`);
    const field = element("input", { type: "range", id: this.id, className: "below", min: control.min, max: control.max, step: control.step || 1 });
    field.addEventListener("input", () => {
      showNumber(Number(field.value));
      set(Number(field.value));
    });
    this.show = (value) => {
      field.value = value ?? control.min;
      showNumber(value);
    };
    return [number, field];
  }

  /** Shows what the camera says, but leaves a field alone in which the user is typing. */
  update(control) {
    const lock = control.state.find((state) => state in LOCKS);
    const isTyping = this.fields.some((field) => field === document.activeElement && field.matches("input[type=number], input[type=text]"));
    if (!isTyping) {
      this.show(control.value);
    }
    for (const field of this.fields) {
      field.disabled = Boolean(lock);
    }
    this.box.classList.toggle("inactive", Boolean(lock));
    this.why.textContent = lock ? LOCKS[lock] : "";
    this.toDefault.disabled = Boolean(lock) || control.default === null || control.value === control.default;
  }
}

export class Controls {
  constructor(container, resetButton, report) {
    this.container = container;
    this.resetButton = resetButton;
    this.report = report;
    this.rows = [];
    this.waiting = new Map(); // the newest value of each control that is still to be sent
    this.sending = false;
    this.changes = 0; // changes that began or ended: what was asked for before the last of them is out of date
    resetButton.addEventListener("click", () => this.apply(() => resetControls(this.camera)));
  }

  async load(camera) {
    this.camera = camera;
    await this.refresh();
  }

  /** Forgets the camera, and what was still to be sent to it. */
  clear() {
    this.camera = null;
    this.waiting.clear();
    this.rows = [];
    this.container.replaceChildren();
    this.resetButton.disabled = true;
  }

  async refresh() {
    const { camera, changes } = this;
    const controls = await readControls(camera);
    if (camera === this.camera && changes === this.changes && this.waiting.size === 0 && !this.sending) {
      this.show(controls);
    }
  }

  show(controls) {
    const names = controls.map((control) => control.name).join(" ");
    if (names !== this.rows.map((row) => row.name).join(" ")) {
      this.rows = controls.map((control) => new Row(control, (value) => this.set(control.name, value)));
      this.container.replaceChildren(...this.rows.map((row) => row.box));
    }
    controls.forEach((control, i) => this.rows[i].update(control));
    this.resetButton.disabled = controls.length === 0;
    if (controls.length === 0) {
      this.container.textContent = "The camera has no controls.";
    }
  }

  /** Sends values one after the other. While one is under way, only the newest of each control waits. */
  async set(name, value) {
    this.waiting.set(name, value);
    if (this.sending) {
      return;
    }
    this.sending = true;
    while (this.waiting.size > 0) {
      const [[next, wanted]] = this.waiting;
      this.waiting.delete(next);
      await this.apply(() => setControl(this.camera, next, wanted));
      await new Promise((resolve) => setTimeout(resolve, SETTLING));
    }
    this.sending = false;
  }

  async apply(change) {
    const camera = this.camera;
    const isShown = () => camera === this.camera; // another tab may have been chosen meanwhile
    this.changes++;
    try {
      const controls = await change();
      if (isShown()) {
        this.report("");
      }
      if (isShown() && this.waiting.size === 0) {
        this.show(controls);
      }
    } catch (error) {
      if (isShown()) {
        this.report(error.message);
        await readControls(camera).then((controls) => isShown() && this.show(controls), () => {});
      }
    }
    this.changes++;
  }
}
