// How the service that the page comes from is reached, and the token that it may ask for. The tab keeps the
// token. It comes with the page's address, from which it goes at once, or is typed.

const storedAs = "token";

/**
 * Whether it can be one. What else is in it would be no protocol of a WebSocket.
 * @param {string} token
 */
export function keepToken(token) {
  if (!/^[\w.~-]+$/.test(token)) return false;
  sessionStorage.setItem(storedAs, token);
  return true;
}

/** Whether the address has brought one. */
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
  // No header can be given, but protocols can: the service takes the first.
  return new WebSocket(address, token ? ["zorvel", `token.${token}`] : ["zorvel"]);
}

takeToken();
