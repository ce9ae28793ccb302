// The one module that knows the camera's API: its URLs, the access key and
// the shapes of its answers. Every function returns a promise; a failure is
// an ApiError whose message can be shown to a person as it is.

const CONTROL = '/cgi-bin/web.fcgi';
const REMOTE = '/cgi-bin/aw_ptz';
const PREVIEW = '/mw-api/v1/preview/image';
const KEY_STORE = 'camera.key';
const TIMEOUT_MS = 8000;

export class ApiError extends Error {
  constructor(message, { members = [], needsLogin = false } = {}) {
    super(message);
    this.members = members;      // the members the camera refused
    this.needsLogin = needsLogin;
  }
}

async function send(url, options = {}, timeout = TIMEOUT_MS) {
  const abort = new AbortController();
  const timer = setTimeout(() => abort.abort(), timeout);
  try {
    const res = await fetch(url, { cache: 'no-store', signal: abort.signal, ...options });
    if (res.status === 401) throw new ApiError('The web server asks for credentials', { needsLogin: true });
    if (!res.ok) throw new ApiError(`The camera answered HTTP ${res.status}`);
    return await res.text();
  } catch (e) {
    if (e instanceof ApiError) throw e;
    throw new ApiError(e.name === 'AbortError' ? 'The camera did not answer in time' : 'The camera cannot be reached');
  } finally {
    clearTimeout(timer);
  }
}

// A JSON answer; the error envelope ({"status":-1,"message":...}) carries its
// message as bare text, so it is read before parsing.
function parse(text) {
  const envelope = /^\{"status":-1,"message":(.*)\}\s*$/s.exec(text);
  if (envelope) throw new ApiError(`The camera refused the request: ${envelope[1]}`);
  try {
    return JSON.parse(text);
  } catch {
    throw new ApiError('The camera sent an answer that is not JSON');
  }
}

// The members of an answer that failed (false, or -1 from a camera action),
// as "section.member" paths.
function refused(answer, path = '') {
  if (answer === false || answer === -1) return [path];
  if (answer === null || typeof answer !== 'object' || Array.isArray(answer)) return [];
  return Object.entries(answer).flatMap(([k, v]) => (k === 'status' && !path ? [] : refused(v, path ? `${path}.${k}` : k)));
}

function checked(answer) {
  if (answer.status === true || answer.status === 1) return answer;
  const members = refused(answer);
  if (members.includes('key')) {
    sessionStorage.removeItem(KEY_STORE);
    throw new ApiError('The access key is no longer valid: log in again', { needsLogin: true, members });
  }
  throw new ApiError(`The camera refused ${members.join(', ') || 'the request'}`, { members });
}

// ---- access ----------------------------------------------------------------------------

// The key the dispatcher compares is the login's 32 bits as a signed number.
const signed = (n) => (n > 0x7fffffff ? n - 0x100000000 : n);

export const loggedIn = () => sessionStorage.getItem(KEY_STORE) !== null;
export const logout = () => sessionStorage.removeItem(KEY_STORE);

export async function login(user, password) {
  const answer = parse(await send(`${CONTROL}?path=get`, {
    method: 'POST',
    body: JSON.stringify({ system: { login: `${user}:${password}` } }),
  }));
  const key = answer.system && answer.system.login;
  if (typeof key !== 'number') throw new ApiError('Wrong user name or password');
  sessionStorage.setItem(KEY_STORE, String(signed(key)));
}

// ---- the JSON control API ------------------------------------------------------------------

// A read goes as a GET; one too long for the query's limit goes as a POST
// with the key (the responder asks it of every request that is not a GET).
const QUERY_MAX = 2000;
export async function read(request) {
  const url = `${CONTROL}?func=get${encodeURIComponent(JSON.stringify(request))}`;
  const key = sessionStorage.getItem(KEY_STORE);
  if (url.length <= QUERY_MAX || key === null) return checked(parse(await send(url)));
  return checked(parse(await send(`${CONTROL}?path=get`, {
    method: 'POST',
    body: JSON.stringify({ key: Number(key), ...request }),
  })));
}

export async function write(request) {
  const key = sessionStorage.getItem(KEY_STORE);
  if (key === null) throw new ApiError('Log in to change the camera', { needsLogin: true });
  return checked(parse(await send(`${CONTROL}?path=set`, {
    method: 'POST',
    body: JSON.stringify({ key: Number(key), ...request }),
  })));
}

// ---- moving the camera ----------------------------------------------------------------------

// A remote-control command; its answer, or an error for a refusal ("ER…").
async function remote(command) {
  const text = (await send(`${REMOTE}?cmd=${encodeURIComponent(command)}&res=1`)).trim();
  if (/^"?ER\d/.test(text)) throw new ApiError(`The camera refused ${command}`);
  return text;
}

const two = (n) => String(n).padStart(2, '0');

// Pan and tilt speeds from -1 to 1 (right and up positive); 0 and 0 stops.
export function panTilt(pan, tilt) {
  const p = 50 + Math.round(pan * 49);
  const t = 50 - Math.round(tilt * 49);
  return remote(`#PTS${two(p)}${two(t)}`);
}

export const stopPanTilt = () => panTilt(0, 0);

// Zoom speed from -1 (wide) to 1 (tele); 0 stops.
export function zoom(speed) {
  const level = Math.min(7, Math.round(Math.abs(speed) * 7));
  const direction = level === 0 ? 0 : speed > 0 ? 1 : 2;
  return write({ image: { zoom: [direction, level] } });
}

// Focus: -1 near, 1 far, 0 stops (the camera is in manual focus after it).
export function focus(direction, speed = 3) {
  const d = direction === 0 ? 0 : direction < 0 ? 1 : 2;
  return write({ image: { focus: [d, d === 0 ? 0 : speed] } });
}

export const setAutoFocus = (on) => write({ image: { focus_mode: on ? 'auto' : 'manual' } });

export const presetStates = async (count) =>
  (await read({ image: { preset: [...Array(count).keys()] } })).image.preset;
export const recallPreset = (n) => write({ image: { preset: { call: n } } });
export const storePreset = (n) => write({ image: { preset: { add: n } } });
export const clearPreset = (n) => write({ image: { preset: { del: n } } });

export const setStandby = (on) => write({ system: { suspend: on ? 1 : 0 } });

// ---- state ---------------------------------------------------------------------------------

export async function position() {
  const { image, system } = await read({
    image: { pan: true, tilt: true, zoom: true, focus: true, focus_mode: true },
    system: { suspend: true },
  });
  return { ...image, standby: system.suspend === 1 };
}

export async function identity() {
  const answer = await read({ system: { device_name: true }, ethernet: { eth0: { ip: true } } });
  return { name: answer.system.device_name, address: answer.ethernet.eth0.ip };
}

let frame = 0;
export const previewUrl = () => `${PREVIEW}?n=${++frame}`;

// ---- the API's own description, generated from the responder's tables ----------------------

export async function describe() {
  const text = await send('api.json');
  try {
    return JSON.parse(text);
  } catch {
    throw new ApiError('The API description is not JSON');
  }
}

// ---- firmware update ---------------------------------------------------------------------

const PIECE = 64 * 1024;
const PIECE_TIMEOUT_MS = 120000;  // a slow link still gets a piece through

// Sends a firmware image: arm, the file in pieces (the responder appends
// them), end. `progress(sent, total)` after each piece. The responder
// answers every piece with the bytes it took; a sum that is not the file's
// size means the image did not arrive whole, and the update is not started.
export async function updateFirmware(file, progress) {
  await write({ system: { post_update: 'start' } });
  let taken = 0;
  for (let at = 0; at < file.size; at += PIECE) {
    const piece = file.slice(at, at + PIECE);
    const answer = parse(await send(`${CONTROL}?path=update`, { method: 'POST', body: piece }, PIECE_TIMEOUT_MS));
    if (answer.status !== 1 || typeof answer.size !== 'number') throw new ApiError('The camera did not take the image');
    taken += answer.size;
    progress(at + piece.size, file.size);
  }
  if (taken !== file.size) throw new ApiError(`The camera took ${taken} of ${file.size} bytes: the update was not started`);
  await write({ system: { post_update: 'end' } });
  return taken;
}
