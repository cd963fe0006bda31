// Asks for the token of the service.

import { find, setText } from "../shared/elements.js";
import { hasToken, keepToken, takeToken } from "../shared/service.js";

const form = find("#token", HTMLFormElement);
const input = find("input", HTMLInputElement, form);

/** @param {string} text */
function say(text) {
  setText(find("p", HTMLElement, form), text);
}

export function askForToken() {
  form.hidden = false;
  say(hasToken() ? "The service has another token. It may have been restarted."
                 : "The token is at the end of the address that the service printed at its start, or in the " +
                   "file of its --token-file.");
  input.focus();
}

form.addEventListener("submit", (event) => {
  event.preventDefault();
  // It may be the whole address.
  if (keepToken(input.value.trim().replace(/^.*token=/, ""))) location.reload();
  else say("That is not a token.");
});
addEventListener("hashchange", () => { if (takeToken()) location.reload(); });
