// What is in the hand all the time: record, photo, mode, the point of focus, a still, the full screen.

import { send } from './commands.js';
import * as hand from './hand.js';
import { log } from './log.js';
import { set_text } from './overlay.js';
import { make_setting } from './settings.js';

const element = (id) => document.getElementById(id);
let records = false;

function outcome_on(node) {
  return (result, text, why) => {
    node.dataset.result = result;
    node.title = why ? `${text}: ${why}` : text;
  };
}

function show_still(picture) {
  element('still').addEventListener('click', async () => {
    const file = await picture.still();
    if (!file) {
      log('There is no picture to save', { is_bad: true });
      return;
    }
    const link = document.createElement('a');
    link.href = URL.createObjectURL(file);
    link.download = `ardenvue-${new Date().toISOString().slice(0, 19).replaceAll(':', '-')}.jpg`;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60_000);
    log(`Still saved: ${link.download}`);
  });
}

// Where a browser lets no page have the whole screen, it has the whole window.
function show_full() {
  const button = element('full');
  const set = (is_full) => {
    document.body.classList.toggle('full', is_full);
    button.setAttribute('aria-pressed', String(is_full));
  };
  button.addEventListener('click', async () => {
    if (document.body.classList.contains('full')) {
      set(false);
      if (document.fullscreenElement) {
        await document.exitFullscreen();
      }
    } else {
      set(true);
      await document.documentElement.requestFullscreen?.({ navigationUI: 'hide' }).catch(() => {});
    }
  });
  document.addEventListener('fullscreenchange', () => set(document.fullscreenElement !== null));
}

function take_focus_points() {
  const frame = element('frame');
  frame.addEventListener('click', (event) => {
    if (!hand.has_control() || event.target.closest('button')) {
      return;
    }
    const box = frame.getBoundingClientRect();
    const x = ((event.clientX - box.left) / box.width).toFixed(3);
    const y = ((event.clientY - box.top) / box.height).toFixed(3);
    const mark = element('focus-asked');
    mark.hidden = false;
    mark.style.left = `${100 * x}%`;
    mark.style.top = `${100 * y}%`;
    send(`focus point ${x} ${y}`, (result, text, why) => {
      mark.dataset.result = result;
      mark.title = why;
      mark.hidden = result === 'confirmed' || result === 'was there';
    });
  });
}

export function begin(picture) {
  show_still(picture);
  show_full();
  take_focus_points();
  element('record').addEventListener('click', () =>
    send(records ? 'record stop' : 'record start', outcome_on(element('record'))));
  element('shot').addEventListener('click', () => send('shot', outcome_on(element('shot'))));
}

export function fill(commands) {
  const mode = commands.find(({ name }) => name === 'camera mode');
  element('camera-mode').replaceChildren(...(mode ? [make_setting(mode, 'Mode')] : []));
}

export function show({ gimbal }) {
  records = gimbal?.recording ?? false;
  set_text('record', records ? 'Stop' : 'Record');
  element('record').classList.toggle('on', records);
}
