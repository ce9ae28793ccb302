// The system page's own flows (clock, login, power schedule, SD card, logs,
// parameter export, the maintenance actions) and the firmware update.
import * as api from './api.js';
import { clearMessage, confirmed, el, show } from './page.js';

const two = (n) => String(n).padStart(2, '0');

// A card of the system page; `handles` names the keys it serves, as paths.
function card(title, handles, ...children) {
  const section = el('section', { className: 'card' }, el('h3', { textContent: title }), ...children);
  section.dataset.handles = handles;
  return section;
}
const button = (text, onclick, className = '') => el('button', { type: 'button', textContent: text, onclick, className });

// Runs an action, saying in `status` how it went.
async function act(status, what, work) {
  clearMessage();
  status.textContent = `${what}…`;
  try {
    const result = await work();
    status.textContent = `${what}: done`;
    return result;
  } catch (e) {
    status.textContent = `${what}: failed`;
    show(e);
    return undefined;
  }
}

// ---- clock -----------------------------------------------------------------------------------

function clock() {
  const now = el('output');
  const status = el('span', { className: 'status', role: 'status' });
  const read = async () => {
    const { system } = await api.read({ system: { date: true, time: true, TZ: true } });
    now.value = `${system.date} ${system.time} (${system.TZ})`;
  };
  const take = () => act(status, "Setting the browser's clock", async () => {
    const d = new Date();
    await api.write({ system: { date: `${d.getFullYear()}-${d.getMonth() + 1}-${d.getDate()}`,
      time: `${d.getHours()}:${two(d.getMinutes())}:${two(d.getSeconds())}` } });
    await read();
  });
  read().catch(show);
  return card('Date and time', 'system.date system.time', el('p', {}, 'The camera: ', now),
    el('div', { className: 'actions' }, button("Take the browser's clock", take), status));
}

// ---- login -----------------------------------------------------------------------------------

function login() {
  const user = el('input', { name: 'user', maxLength: 15, required: true, autocomplete: 'username' });
  const pass = el('input', { name: 'password', type: 'password', maxLength: 15, required: true, autocomplete: 'new-password' });
  const again = el('input', { name: 'again', type: 'password', maxLength: 15, required: true, autocomplete: 'new-password' });
  const status = el('span', { className: 'status', role: 'status' });
  const form = el('form', { className: 'section' },
    el('div', { className: 'fields' },
      el('div', { className: 'field' }, el('label', { textContent: 'User' }), user),
      el('div', { className: 'field' }, el('label', { textContent: 'Password' }), pass),
      el('div', { className: 'field' }, el('label', { textContent: 'Password again' }), again)),
    el('div', { className: 'actions' }, el('button', { type: 'submit', textContent: 'Change the login' }), status));
  form.addEventListener('submit', async (e) => {
    e.preventDefault();
    if (pass.value !== again.value) return show(new Error('The two passwords differ'));
    if (!(await confirmed(`Change the login to the user "${user.value}"?`))) return;
    await act(status, 'Changing the login', async () => {
      await api.write({ system: { login: `${user.value}:${pass.value}` } });
      await api.login(user.value, pass.value);  // the key follows the login
    });
  });
  return card('Login', 'system.login', form);
}

// ---- power schedule ----------------------------------------------------------------------------

const TASK_FIELDS = ['enable', 'mode', 'action', 'year', 'month', 'day', 'wday', 'hour', 'min', 'sec'];

function schedule() {
  const body = el('tbody');
  const status = el('span', { className: 'status', role: 'status' });
  const inputs = [];
  const read = async () => {
    const { system } = await api.read({ system: { power_ctrl: true } });
    body.replaceChildren();
    inputs.length = 0;
    for (let t = 0; t < 8; t++) {
      const task = system.power_ctrl[`task${t}`] || {};
      const row = el('tr', {}, el('th', { textContent: t }));
      for (const f of TASK_FIELDS) {
        const input = el('input', { type: 'number', step: 1, value: task[f] ?? 0, ariaLabel: `task ${t} ${f}` });
        input.dataset.orig = input.value;
        inputs.push({ t, f, input });
        row.append(el('td', {}, input));
      }
      body.append(row);
    }
  };
  const save = () => act(status, 'Saving the schedule', async () => {
    const request = {};
    for (const { t, f, input } of inputs) {
      if (input.value !== input.dataset.orig) (request[`task${t}`] ||= {})[f] = Number(input.value);
    }
    if (Object.keys(request).length) await api.write({ system: { power_ctrl: request } });
    await read();
  });
  read().catch(show);
  const head = el('tr', {}, el('th', { textContent: 'task' }), ...TASK_FIELDS.map((f) => el('th', { textContent: f })));
  return card('Power schedule', 'system.power_ctrl', el('div', { className: 'scroll' }, el('table', {}, el('thead', {}, head), body)),
    el('div', { className: 'actions' }, button('Save the schedule', save), status));
}

// ---- SD card ---------------------------------------------------------------------------------

function sdCard() {
  const state = el('p');
  const list = el('ul', { className: 'files' });
  const status = el('span', { className: 'status', role: 'status' });
  const format = el('select', {}, el('option', { value: 'fat32', textContent: 'FAT32' }), el('option', { value: 'ntfs', textContent: 'NTFS' }));
  const read = async () => {
    const { system } = await api.read({ system: { sd: true } });
    const sd = system.sd;
    state.textContent = sd.state === 1
      ? `Card present: ${sd['avail size']} MiB free of ${sd['storage size']} MiB`
      : `No card ready (state ${sd.state})`;
    list.replaceChildren();
    if (sd.state !== 1) return;
    const files = (await api.read({ system: { sd: { filelist: true } } })).system.sd.filelist || [];
    list.append(...files.map((name) => el('li', {}, el('label', {}, el('input', { type: 'checkbox', value: name }), ` ${name}`))));
  };
  const remove = async () => {
    const names = [...list.querySelectorAll('input:checked')].map((i) => i.value);
    if (!names.length || !(await confirmed(`Delete ${names.length} recording(s) from the card?`))) return;
    await act(status, 'Deleting', async () => { await api.write({ system: { sd: { delete: names } } }); await read(); });
  };
  const wipe = async () => {
    if (!(await confirmed(`Format the card as ${format.value.toUpperCase()}? Everything on it is lost.`))) return;
    await act(status, 'Formatting', async () => { await api.write({ system: { sd: { format: format.value } } }); await read(); });
  };
  read().catch(show);
  return card('SD card', 'system.sd', state, list, el('div', { className: 'actions' },
    button('Delete the chosen recordings', remove), format, button('Format', wipe), status));
}

// ---- logs, export, features, actions --------------------------------------------------------

function downloads() {
  const links = el('ul', { className: 'files' });
  const status = el('span', { className: 'status', role: 'status' });
  const offer = (urls) => links.append(...[].concat(urls).map((href) => el('li', {}, el('a', { href, textContent: href.replace(/^.*\//, ''), download: '' }))));
  const get = (what, request, pick) => act(status, what, async () => offer(pick((await api.read(request)).system)));
  return card('Logs and parameters', 'system.log system.params', links, el('div', { className: 'actions' },
    button('Kernel log', () => get('Kernel log', { system: { log: 'kernel' } }, (s) => s.log)),
    button('Application logs', () => get('Application logs', { system: { log: 'app' } }, (s) => s.log)),
    button('Export the parameters', () => get('Export', { system: { params: true } }, (s) => s.params)),
    status));
}

function features() {
  const list = el('dl', { className: 'features' });
  api.read({ system: { support: true } }).then(({ system }) => {
    list.append(...Object.entries(system.support).flatMap(([k, v]) => [el('dt', { textContent: k }), el('dd', { textContent: v ? 'yes' : 'no' })]));
  }).catch(show);
  return card('Features', 'system.support', list);
}

const ACTIONS = [
  ['system_reboot', 'Reboot', 'Reboot the camera? It is away for a minute.'],
  ['image_reset', 'Reset the picture', 'Put every picture setting back to its default?'],
  ['system_reset', 'Reset the system settings', 'Put the system settings back to their defaults?'],
  ['factory_reset', 'Factory reset', 'Put every setting back as it left the factory? The network settings too.'],
  ['default_save', 'Save as defaults', 'Keep the present settings as the defaults?'],
  ['default_clear', 'Clear the saved defaults', 'Forget the saved defaults?'],
  ['network_test', 'Test the network', 'Run the network test?'],
];

function actions() {
  const status = el('span', { className: 'status', role: 'status' });
  const run = async (action, text, question) => {
    if (await confirmed(question)) act(status, text, () => api.write({ system: { system_control: action } }));
  };
  return card('Maintenance', 'system.system_control', el('div', { className: 'actions' },
    ...ACTIONS.map(([action, text, question]) => button(text, () => run(action, text, question), action === 'factory_reset' ? 'danger' : '')),
    status));
}

export function system(main) {
  main.append(clock(), login(), schedule(), sdCard(), downloads(), features(), actions());
}

// ---- firmware update: the job outlives the view ------------------------------------------------

const job = { running: false, sent: 0, total: 0, text: '' };
let redraw = () => {};

window.addEventListener('beforeunload', (e) => { if (job.running) e.preventDefault(); });

async function update(file) {
  if (!(await confirmed(`Send ${file.name} (${file.size} bytes) to the camera and update it? Do not switch the camera off.`))) return;
  Object.assign(job, { running: true, sent: 0, total: file.size, text: 'Sending the image…' });
  redraw();
  try {
    await api.updateFirmware(file, (sent, total) => { Object.assign(job, { sent, total }); redraw(); });
    job.text = `The camera took all ${file.size} bytes and is updating itself; it restarts when it is done.`;
  } catch (e) {
    job.text = `The update failed: ${e.message}`;
    show(e);
  }
  job.running = false;
  redraw();
}

export function firmware(main) {
  const file = el('input', { type: 'file', id: 'firmware-file' });
  const go = button('Update', () => file.files[0] && update(file.files[0]), 'primary');
  go.id = 'firmware-go';
  const bar = el('progress', { id: 'firmware-progress', max: 1, value: 0 });
  const said = el('p', { id: 'firmware-status', role: 'status' });
  redraw = () => {
    bar.max = job.total || 1;
    bar.value = job.sent;
    said.textContent = job.total ? `${job.text} ${job.sent} of ${job.total} bytes sent.` : job.text;
    go.disabled = job.running;
  };
  redraw();
  main.append(card('Firmware update', 'system.post_update', el('p', { className: 'dim', textContent: 'Choose the image file, then Update. Leave this page open until it is done; other pages of the settings may be used meanwhile.' }),
    el('div', { className: 'actions' }, file, go), bar, said));
}
