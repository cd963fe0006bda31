// The settings in the panel of the camera.

import { byId, element, find } from "../shared/elements.js";

export const panel = byId("camera");
export const form = find("form", HTMLFormElement, panel);
export const device = find("[name=device]", HTMLSelectElement, form);
export const size = find("[name=size]", HTMLSelectElement, form);
export const mirrored = find("[name=mirrored]", HTMLInputElement, form);
export const numbers = find("[name=numbers]", HTMLInputElement, form);
export const rate = find("[name=rate]", HTMLInputElement, form);
export const landmarks = find("[name=landmarks]", HTMLInputElement, form);
export const film = find("[name=film]", HTMLInputElement, form);

export async function listCameras() {
  const devices = await navigator.mediaDevices?.enumerateDevices() ?? [];
  const options = devices.filter(({ kind, deviceId }) => kind === "videoinput" && deviceId)
    .map(({ deviceId, label }) => element("option", { value: deviceId }, label));
  const chosen = device.value;
  device.replaceChildren(element("option", { value: "" }, "Default"), ...options);
  device.value = options.some(({ value }) => value === chosen) ? chosen : "";
}
