// One hand on the controls: who has them, and how they change hands.

import { ask } from './gateway.js';
import { announce, tell } from './log.js';
import { question, withdraw } from './question.js';

const renewal = 2000;
const term = 5000;

const holder_text = document.getElementById('holder');
const button = document.getElementById('take');

// The number tells two phones apart.
const kind = matchMedia('(pointer: coarse)').matches ? 'phone' : 'laptop';
let own_name = `${kind} ${10 + Math.floor(90 * Math.random())}`;
let own = null;      // {token, id, renewed} while this page has the controls
let holder = null;   // the name of who has them, as the gateway says
let on_change = () => {};

export const name = () => own_name;
export const token = () => own?.token;
export const has_control = () => own !== null;
// Whether the gateway has said so within the term.
export const is_sure = () => own !== null && performance.now() - own.renewed < term;

export function when_changed(listener) {
  on_change = listener;
}

function show() {
  holder_text.title = own ? `as ${own_name}` : '';
  holder_text.textContent = own ? 'You have control'
    : holder ? `${holder} has control` : 'Nobody has control';
  button.textContent = own ? 'Give back' : holder ? 'Take over' : 'Take control';
  button.classList.toggle('primary', !own && !holder);
  document.body.classList.toggle('in-control', own !== null);
  on_change(own !== null);
}

function lose(why) {
  if (own) {
    own = null;
    withdraw();
    tell(`Control lost: ${why}`, { is_bad: true });
    show();
  }
}

// What the gateway says of the controls: {holder, id, taken_from?}.
export function hear(control) {
  const is_late = own && control.id < own.id && (control.id !== 0 || !own.is_heard);
  if (is_late) {
    return;
  }
  const before = holder;
  holder = control.holder;
  if (own && control.id === own.id) {
    own.is_heard = true;
  } else if (own) {
    lose(holder ? `${holder} took it` : 'it was not renewed in time');
  } else if (holder !== before && holder !== own_name) {
    const from = control.taken_from ? ` from ${control.taken_from}` : '';
    tell(holder ? `${holder} took control${from}` : `${before} ${control.taken_from ? 'lost control' : 'gave control back'}`);
  }
  show();
}

async function take() {
  const others = holder;
  if (others && !await question({
    title: `Take over from ${others}?`,
    text: `${others} has control of the camera now, loses it at once, and is told that you took it.`,
    yes: 'Take over',
  })) {
    return;
  }
  const { answer, error } = await ask('/api/control', {
    body: { action: 'take', name: own_name, force: others !== null },
  });
  if (!answer) {
    tell(`No control: ${error}`, { is_bad: true });
    return;
  }
  own = { token: answer.token, id: answer.id, renewed: performance.now(), is_heard: false };
  holder = own_name;
  tell(others ? `You took control from ${others}` : 'You have control');
  show();
}

async function give() {
  const { token: given } = own;
  own = null;
  holder = null;
  show();
  announce('You gave control back');
  await ask('/api/control', { body: { action: 'give' }, control: given });
}

async function renew() {
  const renewed = own;
  if (!renewed) {
    return;
  }
  const asked = performance.now();
  const { status, error } = await ask('/api/control', {
    body: { action: 'renew' }, control: renewed.token, patience: renewal,
  });
  if (own !== renewed) {
    return;
  }
  if (status === 200) {
    renewed.renewed = asked;
  } else if (status === 403 || performance.now() - renewed.renewed > term) {
    holder = null;
    lose(error);
  }
}

export function begin(set_name) {
  own_name = set_name || own_name;
  button.addEventListener('click', () => (own ? give() : take()));
  setInterval(renew, renewal);
  addEventListener('pagehide', () => {
    if (own) {
      ask('/api/control', { body: { action: 'give' }, control: own.token, keepalive: true });
      lose('the page was left');
    }
  });
  show();
}

// After a connection came back: what was said in between was not heard.
export async function look() {
  const { answer } = await ask('/api/control');
  if (answer) {
    hear(answer);
  }
}
