// What every page of the camera shares, over elements each page's HTML has
// by id: the message line ("message"), the question dialog ("confirm",
// "confirm-text") and the login form ("login", "logout").
import * as api from './api.js';

const $ = (id) => document.getElementById(id);
let leave = () => {};

// An element with its properties and children.
export const el = (tag, props = {}, ...children) => {
  const e = Object.assign(document.createElement(tag), props);
  e.append(...children.filter((c) => c !== null && c !== undefined));
  return e;
};

// An error for a person; one that needs a login brings the login form.
export function show(error) {
  $('message').textContent = error.message || String(error);
  $('message').hidden = false;
  if (error.needsLogin) leave();
}
export const clearMessage = () => { $('message').hidden = true; };

// Asks a yes-or-no question; true for yes.
export function confirmed(text) {
  const dialog = $('confirm');
  $('confirm-text').textContent = text;
  dialog.returnValue = '';
  dialog.showModal();
  return new Promise((done) => dialog.addEventListener('close', () => done(dialog.returnValue === 'yes'), { once: true }));
}

// The page's session: `enter` once logged in, `out` when the login form is
// to be shown (at the start without a key, on log out, on a refused key).
export function session(enter, out) {
  leave = () => {
    out();
    $('login').hidden = false;
    $('logout').hidden = true;
    $('login').elements.user.focus();
  };
  $('login').addEventListener('submit', async (e) => {
    e.preventDefault();
    const form = e.target.elements;
    try {
      await api.login(form.user.value, form.password.value);
      form.password.value = '';
      clearMessage();
      $('login').hidden = true;
      $('logout').hidden = false;
      enter();
    } catch (error) {
      show(error);
    }
  });
  $('logout').addEventListener('click', () => { api.logout(); leave(); });
  if (api.loggedIn()) {
    $('login').hidden = true;
    $('logout').hidden = false;
    enter();
  } else {
    leave();
  }
}
