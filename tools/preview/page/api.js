// Requests to the preview.

export class Refused extends Error {}

async function request(path, camera, options = {}) {
  const response = await fetch(`${path}?camera=${encodeURIComponent(camera)}`, {
    ...options,
    signal: AbortSignal.timeout(20000),
  });
  const answer = await response.json();
  if (!response.ok) {
    throw new Refused(answer.error);
  }
  return answer;
}

function change(path, camera, body) {
  return request(path, camera, {
    method: "POST",
    headers: { "Content-Type": "application/json" },
    body: JSON.stringify(body),
  });
}

export const readState = (camera) => request("/api/state", camera);
export const readModes = (camera) => request("/api/modes", camera);
export const readControls = (camera) => request("/api/controls", camera);
export const setMode = (camera, mode) => change("/api/mode", camera, mode);
export const setControl = (camera, name, value) => change("/api/controls", camera, { name, value });
export const resetControls = (camera) => change("/api/controls", camera, { reset: true });
