// Reaches the service that the page comes from, with the token that it may ask for. The token comes with the
// page's address, from which it is removed at once, or it is typed. The tab keeps it.

const storedAs = "token";

/**
 * Keeps the token; returns false when it cannot be one. A protocol of a WebSocket has no other characters.
 * @param {string} token
 */
export function keepToken(token) {
  if (!/^[\w.~-]+$/.test(token)) return false;
  sessionStorage.setItem(storedAs, token);
  return true;
}

/** Takes the token out of the address; returns whether there was one. */
export function takeToken() {
  const parts = location.hash.slice(1).split("&");
  const token = parts.find((part) => part.startsWith("token="));
  if (token === undefined) return false;
  keepToken(token.slice("token=".length));
  const others = parts.filter((part) => part !== token).join("&");
  history.replaceState(null, "", location.pathname + location.search + (others && `#${others}`));
  return true;
}

export function hasToken() {
  return Boolean(sessionStorage.getItem(storedAs));
}

/** @param {string} path @param {RequestInit} [options] */
export function request(path, options) {
  const token = sessionStorage.getItem(storedAs);
  return fetch(path, { ...options, headers: token ? { Authorization: `Bearer ${token}` } : {} });
}

/** @param {string} path */
export function openSocket(path) {
  const address = `${location.protocol.replace("http", "ws")}//${location.host}${path}`;
  const token = sessionStorage.getItem(storedAs);
  // A script can give no header but protocols, of which the service chooses the first.
  return new WebSocket(address, token ? ["zorvel", `token.${token}`] : ["zorvel"]);
}

takeToken();
