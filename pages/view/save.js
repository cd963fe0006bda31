// Saves the last minute. A link cannot carry a token, so with a token the recording is fetched first.

import { element, find, setText } from "../shared/elements.js";
import { hasToken, request } from "../shared/service.js";

const link = find("#save", HTMLAnchorElement);
const label = link.textContent ?? "";
const fetched = element("a", { download: link.download });

async function save() {
  setText(link, label);
  const answer = await request("/recording");
  if (!answer.ok) throw new Error(await answer.text() || `the service answers ${answer.status}`);
  URL.revokeObjectURL(fetched.href);
  fetched.href = URL.createObjectURL(await answer.blob());
  fetched.click();
}

link.addEventListener("click", (event) => {
  if (!hasToken()) return;
  event.preventDefault();
  save().catch(({ message }) => setText(link, `Not saved: ${message}`));
});
