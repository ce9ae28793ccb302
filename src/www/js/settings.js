// The settings pages. Each section's form is built from the API's own
// description (api.json, generated from the responder's tables): a control
// per key, of the key's type, with its words or range, so a new row in a
// section's table is a new control here. Only what changed is written; a
// refused member is shown beside its control; after a write the section is
// read again and shows what the camera now holds.
import * as api from './api.js';
import * as maint from './maint.js';
import { clearMessage, confirmed, el, session, show } from './page.js';

const $ = (id) => document.getElementById(id);

// Keys the forms leave to other views: the drives and presets belong to the
// live view, the system section's actions and special flows to the views of
// the system page, which name the keys they handle (data-handles). The
// firmware companion ("update") serves other update tools, not the pages.
const LEAVE = {
  image: ['zoom', 'focus', 'pan', 'tilt', 'ptz', 'abs ctrl', 'preset'],
  system: ['login', 'power_ctrl', 'sd', 'log', 'params', 'update', 'date', 'time', 'image', 'support',
    'system_control', 'post_update'],
};

const PAGES = [
  { id: 'image', title: 'Image', sections: ['image'] },
  { id: 'encoder', title: 'Encoder', sections: ['venc', 'full ndi'] },
  { id: 'streams', title: 'Streams', sections: ['rtmp', 'rtp multicast'] },
  { id: 'network', title: 'Network', sections: ['ethernet'] },
  { id: 'audio', title: 'Audio', sections: ['audio'] },
  { id: 'record', title: 'Recording', sections: ['record'] },
  { id: 'gb28181', title: 'GB28181', sections: ['gb28181'] },
  { id: 'freed', title: 'FreeD', sections: ['FreeD'] },
  { id: 'ntp', title: 'NTP', sections: ['NTP'] },
  { id: 'tracking', title: 'Tracking', sections: ['ai'] },
  { id: 'system', title: 'System', sections: ['system'], view: maint.system },
  { id: 'firmware', title: 'Firmware', view: maint.firmware },
];

// ---- one control per key -------------------------------------------------------------------

const json = (v) => JSON.stringify(v);
const PATTERNS = { ipv4: '\\d{1,3}(\\.\\d{1,3}){3}', mac: '[0-9a-fA-F]{2}(:[0-9a-fA-F]{2}){5}' };

function control(key, id) {
  if (!key.write) return el('output', { id });
  if (key.type === 'word') {
    return el('select', { id }, ...key.words.map((w) => el('option', { value: w, textContent: w })));
  }
  if (key.type === 'number') {
    const input = el('input', { id, type: 'number', step: 1 });
    if ('min' in key) Object.assign(input, { min: key.min, max: key.max });
    return input;
  }
  if (key.type === 'object' || key.type === 'any') return el('textarea', { id, rows: 2, spellcheck: false });
  const input = el('input', { id, type: 'text', spellcheck: false });
  if (key.length) input.maxLength = key.length - 1;
  if (PATTERNS[key.type]) input.pattern = PATTERNS[key.type];
  return input;
}

// The control shows a value; `orig` keeps it to tell what changed. A key
// the camera answered `false` for stays empty (and writable).
function put(c, value) {
  const text = value === false ? '' : typeof value === 'object' || c.tagName === 'TEXTAREA' ? json(value) : String(value);
  c.placeholder = value === false ? 'not read' : '';
  if (c.tagName === 'OUTPUT') c.value = typeof value === 'object' ? json(value) : String(value);
  else if (c.tagName === 'SELECT' && ![...c.options].some((o) => o.value === text)) {
    c.append(el('option', { value: text, textContent: text }));
  }
  if (c.tagName !== 'OUTPUT') c.value = text;
  c.dataset.orig = c.value;
}

function taken(c, key) {
  if (key.type === 'number') return Number(c.value);
  if (key.type === 'object' || key.type === 'any') return JSON.parse(c.value);
  return c.value;
}

// ---- a section's form ------------------------------------------------------------------------

const label = (name) => name.replace(/_/g, ' ');

function sectionForm(section) {
  const leave = new Set(LEAVE[section.name] || []);
  const keys = section.keys.filter((k) => !leave.has(k.key));
  const form = el('form', { className: 'section', noValidate: true });  // only the changed controls are checked
  form.dataset.section = section.name;
  const groups = new Map();
  for (const key of keys) {
    const path = key.path || '';
    if (!groups.has(path)) {
      groups.set(path, path ? el('fieldset', {}, el('legend', { textContent: path })) : el('div', { className: 'fields' }));
      form.append(groups.get(path));
    }
    const id = `f-${section.name}-${path}-${key.key}`.replace(/\W+/g, '-');
    const c = control(key, id);
    if (!key.read) Object.assign(c.dataset, { orig: '' }, { writeOnly: '' });  // sent only when filled in
    c.dataset.path = [section.name, path, key.key].filter(Boolean).join('.');
    c.key = key;
    groups.get(path).append(el('div', { className: 'field', title: key.text || '' },
      el('label', { htmlFor: id, textContent: label(key.key) }), c, el('small', { className: 'why' })));
  }
  const status = el('span', { className: 'status', role: 'status' });
  form.append(el('div', { className: 'actions' },
    el('button', { type: 'submit', className: 'primary', textContent: 'Apply' }),
    el('button', { type: 'button', className: 'reload', textContent: 'Read again', onclick: () => load(form) }),
    status));
  form.addEventListener('submit', (e) => { e.preventDefault(); apply(form, section); });
  return form;
}

const controls = (form) => [...form.querySelectorAll('[data-path]')];
const readable = (form) => controls(form).filter((c) => c.key.read);

// What a read asks: the whole section where it takes `true`, else its
// objects or keys by name.
function readRequest(form, section) {
  if (section.whole) return { [section.name]: true };
  const ask = {};
  for (const c of readable(form)) {
    const key = c.key;
    if (key.path) ask[key.path] = true;
    else ask[key.key] = true;
  }
  return { [section.name]: ask };
}

async function load(form) {
  const section = form.section;
  if (!readable(form).length) return;  // a section that is only written
  try {
    const answer = await api.read(readRequest(form, section));
    const values = answer[section.name] || {};
    for (const c of readable(form)) {
      const holder = c.key.path ? values[c.key.path] || {} : values;
      if (c.key.key in holder) put(c, holder[c.key.key]);
      else if (c.dataset.orig === undefined) put(c, false);  // not served by this camera
    }
  } catch (e) {
    if (!e.members) return show(e);
    // A read with refused members still shows what it got.
    show(e);
  }
}

// Marks the controls the answer refused: a refused object (the network's
// "eth0" answers false whole) marks the changed controls inside it.
function mark(form, refused, changed = []) {
  for (const c of controls(form)) {
    const field = c.closest('.field');
    const path = c.dataset.path;
    const bad = refused.includes(path) || (changed.includes(path) && refused.some((r) => path.startsWith(`${r}.`)));
    field.classList.toggle('refused', bad);
    field.querySelector('.why').textContent = bad ? 'The camera refused this value' : '';
  }
}

async function apply(form, section) {
  clearMessage();
  const status = form.querySelector('.status');
  const request = {};
  const wrong = [];
  const changed = [];
  for (const c of controls(form)) {
    if (c.tagName === 'OUTPUT' || c.value === c.dataset.orig) continue;
    changed.push(c.dataset.path);
    let value;
    try {
      if (!c.checkValidity() || (c.type === 'number' && c.value === '')) throw new Error();
      value = taken(c, c.key);
    } catch {
      wrong.push(c.dataset.path);
      continue;
    }
    const holder = c.key.path ? (request[c.key.path] ||= {}) : request;
    holder[c.key.key] = value;
  }
  mark(form, wrong);
  if (wrong.length) return show(new Error('Some values are not of their kind: see the marked fields'));
  if (!Object.keys(request).length) { status.textContent = 'Nothing changed'; return; }
  if (section.before && !(await section.before(request, form))) return;
  status.textContent = 'Applying…';
  try {
    await api.write({ [section.name]: request });
    status.textContent = 'Applied';
    for (const c of controls(form)) if ('writeOnly' in c.dataset) c.value = '';
    if (section.after && section.after(request)) return;  // the page is leaving
  } catch (e) {
    status.textContent = '';
    mark(form, e.members || [], changed);
    show(e);
  }
  await load(form);
}

// ---- the network page follows the camera to its new address -------------------------------

function followAddress(request) {
  const eth0 = request.eth0 || {};
  if (!eth0.ip) return null;
  return `${location.protocol}//${eth0.ip}${location.port ? `:${location.port}` : ''}${location.pathname}#network`;
}
const NETWORK = {
  before: (request) => {
    const target = followAddress(request);
    return !target || confirmed(`The camera moves to ${request.eth0.ip}. This page follows it there; if it does not come, open ${target}.`);
  },
  after: (request) => {
    const target = followAddress(request);
    if (target) setTimeout(() => location.assign(target), 1500);
    return target !== null;
  },
};

// ---- pages -----------------------------------------------------------------------------------

let description = null;

async function showPage() {
  const page = PAGES.find((p) => `#${p.id}` === location.hash) || PAGES[0];
  for (const a of $('pages').children) a.setAttribute('aria-current', a.hash === `#${page.id}` ? 'page' : 'false');
  const main = $('page');
  main.replaceChildren(el('h2', { textContent: page.title }));
  main.ariaBusy = 'true';  // until every section has been read
  const reads = [];
  for (const name of page.sections || []) {
    const section = description.sections.find((s) => s.name === name);
    if (!section) continue;
    if (name === 'ethernet') Object.assign(section, NETWORK);
    const form = sectionForm(section);
    form.section = section;
    main.append(el('section', { className: 'card' },
      el('h3', { textContent: section.name }), section.text ? el('p', { className: 'dim', textContent: section.text }) : null, form));
    reads.push(load(form));
  }
  if (page.view) page.view(main);
  await Promise.all(reads);
  if (main.firstChild.textContent === page.title) main.ariaBusy = 'false';
}

async function start() {
  $('page').hidden = false;
  try {
    if (!description) {
      description = await api.describe();
      // A section the camera does not read has no key to read.
      for (const s of description.sections) if (!s.get) s.keys.forEach((k) => { k.read = false; });
    }
    const who = await api.identity();
    $('address').textContent = `${who.name} · ${who.address}`;
  } catch (e) {
    show(e);
    if (!description) return;
  }
  showPage();
}

$('pages').append(...PAGES.map((p) => el('a', { href: `#${p.id}`, textContent: p.title })));
window.addEventListener('hashchange', () => { clearMessage(); if (description && api.loggedIn()) showPage(); });
session(start, () => { $('page').hidden = true; });
