// Which films a browser plays, and how to make one that it plays.

const kinds = [
  { name: "MP4 with H.264", type: 'video/mp4; codecs="avc1.42E01E"', ending: "mp4",
    options: "-c:v libx264 -pix_fmt yuv420p" },
  { name: "WebM with VP9", type: 'video/webm; codecs="vp9"', ending: "webm", options: "-c:v libvpx-vp9" },
  { name: "WebM with VP8", type: 'video/webm; codecs="vp8"', ending: "webm", options: "-c:v libvpx -b:v 4M" },
  { name: "MP4 with AV1", type: 'video/mp4; codecs="av01.0.05M.08"', ending: "mp4", options: "-c:v libsvtav1" },
];

/**
 * What to say of a film that the browser does not play.
 * @param {string} file
 * @param {(type: string) => string} canPlay
 */
export function whyNotPlayed(file, canPlay) {
  const played = kinds.filter(({ type }) => canPlay(type));
  const said = `This browser does not play ${file}.`;
  if (played.length === 0) return said;
  const quoted = (/** @type {string} */ name) => `'${name.replaceAll("'", "'\\''")}'`;
  const [{ options, ending }] = played;
  const made = `${file.replace(/\.[^.]*$/, "")}-played.${ending}`;
  return `${said} It plays ${played.map(({ name }) => name).join(", ")}. This makes such a film: ` +
    `ffmpeg -i ${quoted(`./${file}`)} ${options} ${quoted(`./${made}`)}`;
}
