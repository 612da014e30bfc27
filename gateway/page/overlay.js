// What a camera operator looks at, over the picture. It shows the state as the gateway sent it, and nothing of its own;
// what is old is greyed and says how old.

import * as clock from './clock.js';

// Ages in seconds up to which a report is shown as live: a line comes once a second, a record five times.
const fresh = { camera: 2.5, gimbal: 1.2, focus: 1.2, histogram: 1.2 };
const degrees_high = 50;  // of the picture, about, for the horizon

const element = (id) => document.getElementById(id);

export function set_text(target, text) {
  const node = typeof target === 'string' ? element(target) : target;
  if (node.textContent !== text) {
    node.textContent = text;
  }
}

const unknown = '\u2013';
const known = (value, show) => (value === null || value === undefined ? unknown : show(value));
const two = (number) => String(Math.floor(number)).padStart(2, '0');
const minus = (text) => text.replace('-', '\u2212');

export function duration_text(seconds) {
  const minutes = `${two((seconds / 60) % 60)}:${two(seconds % 60)}`;
  return seconds >= 3600 ? `${Math.floor(seconds / 3600)}:${minutes}` : minutes;
}

export function age_text(seconds) {
  return seconds < 10 ? `${seconds.toFixed(1)} s` : seconds < 120 ? `${Math.round(seconds)} s`
    : `${Math.round(seconds / 60)} min`;
}

const text_of = {
  mode: ({ camera }) => known(camera.mode, (mode) => mode[0].toUpperCase() + mode.slice(1)),
  card: ({ camera }) => {
    if (camera.card_gigabytes === null) {
      return 'none';
    }
    return camera.mode === 'photo' ? known(camera.shots_left, (shots) => `${shots} photos`)
      : known(camera.recording_seconds_left, (seconds) => `${duration_text(seconds)} left`);
  },
  battery: ({ camera }) => known(camera.battery_percent, (percent) => `${percent} %`),
  iso: ({ camera }) => known(camera.iso, (iso) => `${iso}${camera.iso_set === 0 ? ' A' : ''}`),
  shutter: ({ words }) => words.shutter || unknown,
  aperture: ({ camera }) => known(camera.aperture, (number) => `f/${number}`),
  ev: ({ camera }) => known(camera.ev, (ev) => minus(`${ev > 0 ? '+' : ''}${ev.toFixed(1)}`)),
  program: ({ camera }) => known(camera.exposure_program, (program) => program),
  white: ({ camera }) => known(camera.white_balance, (light) =>
    (camera.white_balance_kelvin > 0 && light === 'custom' ? `${camera.white_balance_kelvin} K` : light)),
  format: ({ camera }) => (camera.mode === 'photo' ? known(camera.photo_format, (format) => format.toUpperCase())
    : known(camera.video_height, (height) => `${height}p${known(camera.video_rate, String)}`)),
};

function show_camera(state) {
  const { camera, gimbal } = state;
  for (const [id, text] of Object.entries(text_of)) {
    set_text(id, camera ? text(state) : unknown);
  }
  const records = gimbal?.recording ?? false;
  const time = known(camera?.recording_seconds, duration_text);
  set_text('recording', records ? `REC ${time}` : 'STBY');
  element('recording-value').classList.toggle('on', records);
  element('battery').classList.toggle('low', camera?.battery_percent !== null && camera?.battery_percent < 25);
}

function show_gimbal({ gimbal }) {
  const angle = (value) => known(value, (number) => minus(`${number}\u00b0`));
  set_text('tilt', angle(gimbal?.tilt));
  set_text('pan', angle(gimbal?.heading));
  set_text('roll', angle(gimbal?.roll));
  set_text('lock', gimbal?.orientation_lock ? 'locked' : 'follows');
  if (gimbal) {
    const down = Math.max(-85, Math.min(85, (gimbal.tilt / degrees_high) * 180));
    element('horizon-line').setAttribute('transform', `rotate(${-gimbal.roll}) translate(0 ${down})`);
  }
}

function show_focus({ focus }) {
  const mark = element('focus-mark');
  const in_picture = (value) => value !== null && value >= 0 && value <= 1;
  mark.hidden = !focus || !in_picture(focus.x) || !in_picture(focus.y);
  set_text('focus', known(focus?.type, (type) => type.toUpperCase()));
  if (!mark.hidden) {
    mark.style.left = `${100 * focus.x}%`;
    mark.style.top = `${100 * focus.y}%`;
  }
}

function show_histogram({ histogram }) {
  element('histogram').toggleAttribute('hidden', !histogram);
  if (histogram) {
    const top = Math.max(1, ...histogram.bins);
    const steps = histogram.bins.map((bin, i) => `V${(40 - (40 * bin) / top).toFixed(1)}H${i + 1}`);
    element('histogram-plot').setAttribute('d', `M0 40${steps.join('')}V40Z`);
  }
}

export function show(state) {
  show_camera(state);
  show_gimbal(state);
  show_focus(state);
  show_histogram(state);
}

// How old what the state says is by now, in seconds; null for what was never reported.
export function age_of(state, group) {
  return state[group] ? state[group].age + clock.now() - state.monotonic : null;
}

// Greys what is old: by its own age, or all of it when what is shown is not live.
export function show_ages(state, is_live) {
  for (const part of document.querySelectorAll('.report')) {
    const group = part.dataset.report;
    const age = state ? age_of(state, group) : null;
    const is_old = !is_live || age === null || age > fresh[group];
    part.classList.toggle('old', is_old);
    for (const place of part.querySelectorAll('.age')) {
      set_text(place, is_old && age !== null ? `${age_text(age)} old` : '');
    }
  }
}
