import { element } from "../shared/elements.js";

// A browser without a window prints a page at its load event. An open document in a frame delays the
// event; the function that this returns closes the document.
export function delayLoadEvent() {
  const frame = element("iframe", { hidden: "" });
  document.body.append(frame);
  frame.contentDocument?.open();
  return () => {
    frame.contentDocument?.close();
    frame.remove();
  };
}
