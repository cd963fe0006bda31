async function main() {
  const endDelay = delayLoadEvent();
  try {
    recording = await readRecording();
    addPage();
  } finally {
    endDelay();
  }
  for (const button of document.querySelectorAll("[data-action]")) {
    button.addEventListener("click", () => perform(button.dataset.action));
  }
  document.addEventListener("keydown", onKey);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawAnew);
  addEventListener("resize", resize);
  addEventListener("beforeprint", () => setPaper(true));
  addEventListener("afterprint", () => setPaper(false));
}

main().catch((error) => {
  showFailure(`The charts cannot be shown: ${error.message}`);
  throw error;
});
