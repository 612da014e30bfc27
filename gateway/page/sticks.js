// The stick pad. What it is let go of stands still: the gateway holds an input for 250 ms, and this page renews it only
// while a finger, a button or a key is down, the page is seen, not stalled, and the gateway answers.

import { ask } from './gateway.js';
import * as hand from './hand.js';

const period = 80;
const longest_pause = 250;  // a page that was stalled for longer doesn't go on by itself
const patience = 200;       // for the answer to one
const zeros = 3;

const still = () => ({ pan: 0, tilt: 0, roll: 0 });
const is_still = (inputs) => Object.values(inputs).every((value) => value === 0);

const told = document.getElementById('stick-told');
const sticks = [];
let inputs = still();
let timer = null;
let last_step = 0;
let zeros_left = 0;
let is_asking = false;

function say(text, is_bad = false) {
  told.textContent = text;
  told.classList.toggle('bad', is_bad);
}

async function step() {
  const now = performance.now();
  if (now - last_step > longest_pause && !is_still(inputs)) {
    let_go('The page stood still: let go');
  }
  last_step = now;
  if (is_asking) {  // one at a time, so that none arrives behind a later one
    return;
  }
  if (is_still(inputs) && zeros_left-- <= 0) {
    clearInterval(timer);
    timer = null;
    return;
  }
  is_asking = true;
  const { status, error } = await ask('/api/sticks', { body: inputs, control: hand.token(), patience });
  is_asking = false;
  if (status !== 200 && !is_still(inputs)) {
    let_go(`Let go: ${error}`);
  }
}

function move(change) {
  inputs = { ...inputs, ...change };
  zeros_left = zeros;
  if (!timer) {
    last_step = performance.now();
    timer = setInterval(step, period);
    step();
  }
}

// Everything to zero, at once; what is held must be taken hold of again.
export function let_go(why = '') {
  if (why && !is_still(inputs)) {
    say(why, true);
  }
  sticks.forEach((stick) => stick.release());
}

// A stick on an element, with a knob in it; axes are the names of the inputs along x and y, null where it has none.
class Stick {
  #element;
  #knob;
  #axes;
  #speed;
  #pointer = null;
  #keys = new Set();

  constructor(element, axes, speed) {
    this.#element = element;
    this.#knob = element.querySelector('i');
    this.#axes = axes;
    this.#speed = speed;
    const on = (type, listener) => element.addEventListener(type, listener);
    on('pointerdown', (event) => {
      if (this.#may_move() && event.button === 0) {
        this.#pointer = event.pointerId;
        element.setPointerCapture(event.pointerId);
        this.#drag(event);
      }
    });
    on('pointermove', (event) => event.pointerId === this.#pointer && this.#drag(event));
    for (const type of ['pointerup', 'pointercancel', 'lostpointercapture', 'blur']) {
      on(type, () => this.release());
    }
    on('contextmenu', (event) => event.preventDefault());
    on('keydown', (event) => this.#key(event, true));
    on('keyup', (event) => this.#key(event, false));
  }

  release() {
    this.#keys.clear();
    this.#pointer = null;
    this.#deflect(0, 0);
  }

  #may_move() {
    return hand.is_sure() && !this.#element.closest('fieldset').disabled;
  }

  #drag(event) {
    const box = this.#element.getBoundingClientRect();
    const part = (at, begin, size) => Math.max(-1, Math.min(1, (2 * (at - begin)) / size - 1));
    this.#deflect(part(event.clientX, box.left, box.width), -part(event.clientY, box.top, box.height));
  }

  #key(event, is_down) {
    if (!/^Arrow(Left|Right|Up|Down)$/.test(event.key) || (is_down && !this.#may_move())) {
      return;
    }
    event.preventDefault();
    if (event.repeat) {
      return;  // and one that was let go of by others than its key stays so
    }
    this.#keys[is_down ? 'add' : 'delete'](event.key);
    const axis = (less, more) => Number(this.#keys.has(more)) - Number(this.#keys.has(less));
    this.#deflect(axis('ArrowLeft', 'ArrowRight'), axis('ArrowDown', 'ArrowUp'));
  }

  // The middle is gentler than the edge.
  #deflect(x, y) {
    const change = {};
    [x, y].forEach((value, i) => {
      if (this.#axes[i]) {
        change[this.#axes[i]] = Math.sign(value) * value * value * this.#speed();
      }
    });
    const left = this.#axes[0] ? x : 0;
    const top = this.#axes[1] ? -y : 0;
    this.#knob.style.translate = `${left * this.#reach('Width')}px ${top * this.#reach('Height')}px`;
    const is_moved = !is_still({ ...still(), ...change });
    this.#element.classList.toggle('held', is_moved);
    if (is_moved || !is_still(inputs)) {
      move(change);
      if (!is_still(inputs)) {
        say('Moving');
      } else if (told.textContent === 'Moving') {
        say('Let go: it stops.');
      }
    }
  }

  #reach(side) {
    return (this.#element[`client${side}`] - this.#knob[`offset${side}`]) / 2;
  }
}

export function begin() {
  const speed = document.getElementById('speed');
  const speed_told = document.getElementById('speed-told');
  speed.addEventListener('input', () => { speed_told.textContent = `${speed.value} %`; });
  const factor = () => Number(speed.value) / 100;
  sticks.push(new Stick(document.getElementById('pad'), ['pan', 'tilt'], factor));
  sticks.push(new Stick(document.getElementById('roll-strip'), ['roll', null], factor));
  addEventListener('blur', () => let_go('Let go: the page lost the focus'));
  addEventListener('pagehide', () => let_go());
  document.addEventListener('visibilitychange', () => document.hidden && let_go('Let go: the page was hidden'));
}
