// The live view: the picture, the camera's position, and the controls that
// move it. Moving is physical, so every way a person can let go (release,
// cancel, leaving the window, losing focus, hiding the page) and every failed
// request ends in a stop.
import * as api from './api.js';
import { clearMessage, confirmed, session, show } from './page.js';

const $ = (id) => document.getElementById(id);
const PRESETS = 16;
const POLL_MS = 300;
const FRAME_MS = 100;

// ---- drives: the latest wish is sent, one request at a time ------------------------------

const releases = [];  // what every control does when let go
const stopAll = () => releases.forEach((release) => release());

class Drive {
  constructor(move, axes = 1) {
    this.move = move;
    this.target = Array(axes).fill(0);
    this.sent = Array(axes).fill(0);
    this.busy = false;
    this.retries = 0;
  }
  to(...speeds) { this.target = speeds; this.pump(); }
  stop() { this.target = this.target.map(() => 0); this.pump(); }
  async pump() {
    if (this.busy) return;
    this.busy = true;
    while (String(this.target) !== String(this.sent)) {
      const target = this.target;
      try {
        await this.move(...target);
        this.sent = target;
        this.retries = 0;
      } catch (e) {
        show(e);
        this.sent = null;  // unknown: the camera may be moving
        if (target.some((s) => s !== 0)) {
          this.stop();  // a failed move ends in a stop
        } else if (++this.retries <= 5) {
          setTimeout(() => this.pump(), 500);  // the stop itself failed: try again
          break;
        } else {
          break;
        }
      }
    }
    this.busy = false;
  }
}

const panTilt = new Drive((pan, tilt) => api.panTilt(pan, tilt), 2);
const zoom = new Drive((speed) => api.zoom(speed));
const focus = new Drive((direction) => api.focus(direction));

// ---- pointer controls ---------------------------------------------------------------------

// A control dragged from its centre: `change(x, y)` with x and y from -1 to 1
// (right and up positive) while held, and once with 0, 0 when let go.
function draggable(el, axes, change) {
  const knob = el.querySelector('.knob');
  let pointer = null;
  const place = (x, y) => {
    knob.style.transform = `translate(${(x * el.clientWidth) / 2}px, ${(-y * el.clientHeight) / 2}px)`;
  };
  const release = () => {
    if (pointer === null) return;
    pointer = null;
    place(0, 0);
    change(0, 0);
  };
  const follow = (e) => {
    const r = el.getBoundingClientRect();
    let x = axes.x ? (e.clientX - r.left - r.width / 2) / (r.width / 2) : 0;
    let y = axes.y ? (r.top + r.height / 2 - e.clientY) / (r.height / 2) : 0;
    const length = Math.hypot(x, y);
    if (length > 1) { x /= length; y /= length; }
    place(x, y);
    const dead = (v) => (Math.abs(v) < 0.12 ? 0 : v);
    change(dead(x), dead(y));
  };
  el.addEventListener('pointerdown', (e) => {
    if (pointer !== null) return;
    pointer = e.pointerId;
    el.setPointerCapture(pointer);
    e.preventDefault();
    follow(e);
  });
  el.addEventListener('pointermove', (e) => { if (e.pointerId === pointer) follow(e); });
  for (const type of ['pointerup', 'pointercancel', 'lostpointercapture'])
    el.addEventListener(type, (e) => { if (e.pointerId === pointer) release(); });
  releases.push(release);
}

// A button that acts while it is held, by pointer or by Space/Enter.
function holdable(button, start, end) {
  let held = false;
  const on = () => { if (!held) { held = true; button.classList.add('active'); start(); } };
  const off = () => { if (held) { held = false; button.classList.remove('active'); end(); } };
  button.addEventListener('pointerdown', (e) => { button.setPointerCapture(e.pointerId); on(); });
  for (const type of ['pointerup', 'pointercancel', 'lostpointercapture', 'blur']) button.addEventListener(type, off);
  button.addEventListener('keydown', (e) => {
    if ((e.key === ' ' || e.key === 'Enter') && !e.repeat) { e.preventDefault(); on(); }
  });
  button.addEventListener('keyup', (e) => { if (e.key === ' ' || e.key === 'Enter') off(); });
  button.addEventListener('click', (e) => e.preventDefault());
  releases.push(off);
}

const quantise = (v, steps) => Math.round(v * steps) / steps;

draggable($('joystick'), { x: true, y: true }, (x, y) => panTilt.to(quantise(x, 49), quantise(y, 49)));
draggable($('rocker'), { x: true }, (x) => zoom.to(quantise(x, 7)));
holdable($('zoom-in'), () => zoom.to(quantise(0.5, 7)), () => zoom.stop());
holdable($('zoom-out'), () => zoom.to(quantise(-0.5, 7)), () => zoom.stop());
holdable($('focus-near'), () => focus.to(-1), () => focus.stop());
holdable($('focus-far'), () => focus.to(1), () => focus.stop());

// The mouse wheel zooms while it turns, faster the faster it turns.
let wheelEnd = 0;
function wheel(e) {
  e.preventDefault();
  const speed = Math.min(1, Math.abs(e.deltaY) / 100) * -Math.sign(e.deltaY);
  zoom.to(quantise(speed, 7) || Math.sign(speed) / 7);
  clearTimeout(wheelEnd);
  wheelEnd = setTimeout(() => zoom.stop(), 250);
}
for (const el of [$('preview'), $('rocker')]) el.addEventListener('wheel', wheel, { passive: false });
releases.push(() => { if (wheelEnd) { clearTimeout(wheelEnd); wheelEnd = 0; zoom.stop(); } });

// ---- the arrow keys ----------------------------------------------------------------------------

const held = new Set();
const ARROWS = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1] };
const typing = () => {
  const el = document.activeElement;
  return el && (el.isContentEditable || ['INPUT', 'TEXTAREA', 'SELECT'].includes(el.tagName));
};
function steer(speed) {
  let x = 0, y = 0;
  for (const key of held) { x += ARROWS[key][0]; y += ARROWS[key][1]; }
  panTilt.to(x * speed, y * speed);
}
document.addEventListener('keydown', (e) => {
  if (!(e.key in ARROWS) || typing() || $('live').hidden) return;
  e.preventDefault();
  if (e.repeat) return;
  held.add(e.key);
  steer(e.shiftKey ? 1 : 0.5);
});
document.addEventListener('keyup', (e) => {
  if (!held.delete(e.key)) return;
  steer(e.shiftKey ? 1 : 0.5);
});
releases.push(() => { if (held.size) { held.clear(); panTilt.stop(); } });

// ---- letting go, whatever the way -----------------------------------------------------------

window.addEventListener('blur', stopAll);
window.addEventListener('pagehide', stopAll);
document.addEventListener('visibilitychange', () => {
  if (document.hidden) stopAll();
  else resume();
});
document.addEventListener('mouseout', (e) => { if (!e.relatedTarget) stopAll(); });

// ---- focus mode, presets, power ----------------------------------------------------------------

let state = {};

async function act(fn) {
  try {
    await fn();
    clearMessage();
  } catch (e) {
    show(e);
  }
}

$('autofocus').addEventListener('click', () => act(async () => {
  await api.setAutoFocus(state.focus_mode !== 'auto');
  state.focus_mode = state.focus_mode === 'auto' ? 'manual' : 'auto';
  showState();
}));

$('onepush').addEventListener('click', () => act(async () => {
  const button = $('onepush');
  button.disabled = true;
  try {
    await api.setAutoFocus(true);
    await new Promise((done) => setTimeout(done, 1500));
    await api.setAutoFocus(false);
  } finally {
    button.disabled = false;
  }
}));

$('power').addEventListener('click', () => act(() => api.setStandby(!state.standby)));

let presetMode = null;  // null: recall; 'store' or 'clear'
for (const mode of ['store', 'clear']) {
  $(mode).addEventListener('click', () => {
    presetMode = presetMode === mode ? null : mode;
    for (const m of ['store', 'clear']) $(m).setAttribute('aria-pressed', String(presetMode === m));
  });
}

async function presetClicked(n) {
  const mode = presetMode;
  presetMode = null;
  for (const m of ['store', 'clear']) $(m).setAttribute('aria-pressed', 'false');
  if (mode === 'store' && !(await confirmed(`Store the present position as preset ${n}?`))) return;
  if (mode === 'clear' && !(await confirmed(`Clear preset ${n}?`))) return;
  await act(() => (mode === 'store' ? api.storePreset(n) : mode === 'clear' ? api.clearPreset(n) : api.recallPreset(n)));
  refreshPresets();
}

for (let n = 0; n < PRESETS; n++) {
  const button = document.createElement('button');
  button.type = 'button';
  button.textContent = n;
  button.dataset.preset = n;
  button.addEventListener('click', () => presetClicked(n));
  $('grid').append(button);
}

async function refreshPresets() {
  try {
    const states = await api.presetStates(PRESETS);
    $('grid').querySelectorAll('button').forEach((b, n) => {
      b.classList.toggle('stored', states[n] === 1);
      b.title = states[n] === 1 ? `Preset ${n} (stored)` : `Preset ${n}`;
    });
  } catch (e) {
    show(e);
  }
}

// ---- what the page shows while it is visible ------------------------------------------------

function showState() {
  for (const axis of ['pan', 'tilt', 'zoom', 'focus']) $(axis).textContent = state[axis] ?? '–';
  $('autofocus').setAttribute('aria-pressed', String(state.focus_mode === 'auto'));
  $('power').setAttribute('aria-pressed', String(!!state.standby));
  $('power').textContent = state.standby ? 'Wake up' : 'Standby';
}

let polling = false;
async function poll() {
  if (polling || document.hidden || $('live').hidden) return;
  polling = true;
  let wait = POLL_MS;
  try {
    state = await api.position();
    showState();
  } catch (e) {
    show(e);
    wait = 1000;
  }
  polling = false;
  setTimeout(poll, wait);
}

let framing = false;
const preview = $('preview');
function nextFrame() {
  if (document.hidden || $('live').hidden) { framing = false; return; }
  framing = true;
  preview.src = api.previewUrl();
}
preview.addEventListener('load', () => setTimeout(nextFrame, FRAME_MS));
preview.addEventListener('error', () => {
  show(new Error('The camera sent no picture'));
  setTimeout(nextFrame, 1000);
});

function resume() {
  if ($('live').hidden) return;
  if (!framing) nextFrame();
  poll();
}

// ---- access ------------------------------------------------------------------------------------

function showLogin() {
  stopAll();
  $('live').hidden = true;
  $('power').hidden = true;
}

async function showLive() {
  $('live').hidden = false;
  $('power').hidden = false;
  resume();
  refreshPresets();
  try {
    const { name, address } = await api.identity();
    $('name').textContent = name;
    $('address').textContent = address;
    document.title = `${name} – live`;
  } catch (e) {
    show(e);
  }
}

session(showLive, showLogin);
