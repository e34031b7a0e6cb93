// The page: cameras by tab, their state once a second, and what belongs to the chosen one.

import { readState } from "./api.js";
import { Controls } from "./controls.js";
import { Modes } from "./modes.js";
import { Picture, saveFrame } from "./picture.js";
import { Plot } from "./plot.js";

const STATE_INTERVAL = 1000;
const CONTROLS_INTERVAL = 3; // states between two looks at controls that the camera changes by itself

const STATE_TEXTS = { live: "Live", starting: "Starting", idle: "Starting", unplugged: "Unplugged", failed: "No picture", gone: "Not connected" };

// A camera in these states answers questions about its modes and controls.
const ANSWERING = ["live", "starting", "idle", "failed"];

const find = (id) => document.getElementById(id);

const picture = new Picture(find("picture"), () => showNotice(current));
const plot = new Plot(find("plot"));
const modes = new Modes(find("mode-form"), report);
const controls = new Controls(find("controls"), find("reset"), report);

let identity = "";
let current = null; // the state of the chosen camera
let loaded = ""; // identity and revision of the controls and modes on the page
let rounds = 0;

function report(sentence) {
  const message = find("message");
  message.textContent = sentence;
  message.hidden = sentence === "";
}

function makeTab(camera) {
  const tab = document.createElement("button");
  tab.type = "button";
  tab.setAttribute("role", "tab");
  tab.dataset.identity = camera.identity;
  tab.addEventListener("click", () => choose(camera.identity));
  return tab;
}

/** Cameras of one name are told apart by their nodes. */
function tabText(camera, cameras) {
  const isTwin = cameras.filter((other) => other.name === camera.name).length > 1;
  return isTwin ? `${camera.name} (${camera.node.replace("/dev/", "")})` : camera.name;
}

function showTabs(cameras) {
  const tabs = find("tabs");
  for (const camera of cameras) {
    let tab = [...tabs.children].find((each) => each.dataset.identity === camera.identity);
    if (!tab) {
      tab = makeTab(camera);
      tabs.append(tab);
    }
    const isChosen = camera.identity === identity;
    tab.textContent = tabText(camera, cameras);
    tab.classList.toggle("away", !camera.plugged);
    tab.setAttribute("aria-selected", isChosen);
    tab.tabIndex = isChosen ? 0 : -1;
  }
}

function moveTab(event) {
  const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
  const tabs = [...find("tabs").children];
  if (step && tabs.length > 1) {
    const next = tabs[(tabs.indexOf(document.activeElement) + step + tabs.length) % tabs.length];
    next.focus();
    choose(next.dataset.identity);
  }
}

function choose(next) {
  if (next === identity) {
    return;
  }
  identity = next;
  current = null;
  loaded = "";
  controls.clear();
  plot.clear();
  report("");
  picture.clear(); // another camera's picture would stay if this one does not start
  picture.open(identity);
  refresh();
}

function showNotice(state) {
  const notice = find("notice");
  const texts = {
    unplugged: ["The camera is unplugged", "Plug it in again. The picture comes back by itself."],
    failed: ["No picture", state?.problem],
    gone: ["The preview has ended", "Start wqz-usbcam preview again. This page goes on then."],
    none: ["No camera", "Plug one in. It appears here by itself."],
  };
  const [title, text] = texts[state?.state] ?? [];
  notice.hidden = !title;
  find("notice-title").textContent = title ?? "";
  find("notice-text").textContent = text ?? "";
  find("picture").classList.toggle("stale", Boolean(title));
  find("save").disabled = Boolean(title) || !picture.shown;
}

function showNumbers(state) {
  const isLive = state.state === "live";
  find("rate").textContent = isLive ? state.rate.toFixed(1) : "–";
  find("lost").textContent = String(state.lost);
  find("latency").textContent = isLive ? `${state.latency_ms.toFixed(1)} ms` : "–";
  if (isLive || plot.samples.length > 0) {
    plot.add(isLive ? state.rate : 0, current?.identity === state.identity ? state.lost - current.lost : 0);
  }
}

function showState(state, changes) {
  if (state.state === "live" && picture.refusal !== "") {
    state = { ...state, state: "failed", problem: picture.refusal }; // the camera serves others
  }
  const status = find("status");
  status.dataset.state = state.state;
  find("status-text").textContent = STATE_TEXTS[state.state] ?? "No camera";
  if (state.identity) {
    showNumbers(state);
    modes.update(state.mode, changes);
    document.title = `${state.name} – Camera preview`;
  }
  for (const form of document.forms) {
    form.inert = !ANSWERING.includes(state.state);
  }
  current = state;
  showNotice(state);
}

/** Reads modes and controls of a camera that is new here, and controls that may have changed. */
async function loadSettings(state) {
  const wanted = `${state.identity} ${state.revision}`;
  if (!ANSWERING.includes(state.state)) {
    loaded = "";
  } else if (loaded !== wanted) {
    await Promise.all([modes.load(state.identity), controls.load(state.identity)]);
    loaded = wanted;
  } else if (++rounds % CONTROLS_INTERVAL === 0) {
    await controls.refresh();
  }
}

async function refresh() {
  const changes = modes.changes;
  let answer;
  try {
    answer = await readState(identity);
  } catch {
    showState({ state: "gone" });
    return;
  }
  showTabs(answer.cameras);
  const state = answer.camera;
  if (!state) {
    showState({ state: "none" });
  } else if (identity === "") {
    choose(state.identity);
  } else if (state.identity === identity) {
    showState(state, changes);
    await loadSettings(state).catch(() => {}); // the next round tries again
  }
}

// A page that nobody sees gives its connection and the camera back.
function followVisibility() {
  if (document.hidden) {
    picture.close();
  } else if (identity) {
    picture.open(identity);
  }
}

function save() {
  if (picture.shown && !find("save").disabled) {
    saveFrame(picture.shown, current?.name ?? "");
  }
}

function saveByKey(event) {
  const isTyping = event.target.matches("input, select, textarea");
  if (event.key.toLowerCase() === "s" && !isTyping && !event.ctrlKey && !event.metaKey && !event.altKey) {
    save();
  }
}

async function run() {
  for (;;) {
    if (!document.hidden) {
      await refresh();
    }
    await new Promise((resolve) => setTimeout(resolve, STATE_INTERVAL));
  }
}

find("save").addEventListener("click", save);
find("tabs").addEventListener("keydown", moveTab);
document.addEventListener("keydown", saveByKey);
document.addEventListener("visibilitychange", followVisibility);
run();
