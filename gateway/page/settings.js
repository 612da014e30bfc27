// The settings: a row for each command of the gateway that has one value, showing what the camera reports.

import { send } from './commands.js';
import { question } from './question.js';

// Where a command stands and what it is called. One that a newer gateway knows besides goes to the last group under its
// own name.
const groups = [
  ['Exposure', { 'video_mode': 'Program', 'iso': 'ISO', 'shutter': 'Shutter', 'aperture': 'Aperture',
    'ev': 'Compensation', 'histogram': 'Histogram' }],
  ['Picture', { 'wb': 'White balance', 'wb custom': 'Colour temperature', 'color': 'Colour profile',
    'video_resolution': 'Video', 'shotmode': 'Photos', 'video_aspect': 'Photo ratio', 'video_std': 'Standard',
    'antiflicker': 'Against flicker', 'video_transmission': 'Transmission' }],
  ['Focus', { 'focus type': 'Focus', 'focus manual': 'By hand' }],
  ['Gimbal', { 'position': 'Facing', 'orientation': 'Direction', 'gimbal mode': 'Follows',
    'gimbal follow': 'How fast', 'set movement': 'Stick gives', 'horizont calibrate': 'Level' }],
  ['Card and camera', { 'format sd': 'Card', 'resetcamera': 'Settings' }],
];
const elsewhere = ['record start', 'record stop', 'shot', 'camera mode', 'focus point'];

// Two commands that are one choice.
const pairs = { 'position normal': 'position', 'position selfie': 'position',
  'orientation lock': 'orientation', 'orientation unlock': 'orientation' };

// Commands that take a number.
const numbers = {
  'wb custom': { min: 2000, max: 10000, step: 100, unit: 'K', value: (state) => state.camera?.white_balance_kelvin },
  'focus manual': { min: 0, max: 100, step: 1, unit: '%',
    value: ({ focus }) => (focus?.max > 0 ? Math.round((100 * focus.position) / focus.max) : null) },
};
const f_numbers = ['2.8', '3.2', '3.5', '4', '4.5', '5', '5.6', '6.3', '7.1', '8', '9', '10', '11'];

const titles = { '1': 'on', '0': 'off', 'normal': 'ahead', 'selfie': 'back', 'unlock': 'follow', 'mf': 'MF',
  'afs': 'AFS', 'afc': 'AFC', 'abs': 'position', 'rel': 'speed', 'tiltlocked': 'level' };
const titled = { 'histogram': ['1', '0'] };  // whose digits are no numbers
const title_of = (name, choice) =>
  (/^[01]$/.test(choice) && !titled[name] ? choice : titles[choice] ?? choice);

// Done only when asked for twice.
const dangers = {
  'format sd': {
    button: 'Erase the card',
    first: { title: 'Erase the card?', text: 'The camera formats its SD card. Every recording and photo on it is lost.',
      yes: 'Erase it' },
    second: { title: 'Really erase it?', text: 'Nothing brings the recordings back.', yes: 'Yes, erase all of it' },
  },
  'resetcamera': {
    button: 'Reset the camera',
    first: { title: 'Reset the camera?', text: 'Every setting of the camera goes back to what it was when new.',
      yes: 'Reset it' },
    second: { title: 'Really reset it?', text: 'Exposure, picture and format change at once.', yes: 'Yes, reset all' },
  },
};

// What a report says of the choices that the camera takes: "+0.3" is 0.3, "50 Hz" is 50, "JPG" is jpg.
function choice_of(choices, reported) {
  const plain = (text) => {
    const short = text.toLowerCase().replace(/ hz$/, '');
    return short !== '' && Number.isFinite(Number(short)) ? Number(short) : short;
  };
  return choices.find((choice) => plain(choice) === plain(reported));
}

function make(tag, properties = {}, ...children) {
  const node = Object.assign(document.createElement(tag), properties);
  node.append(...children);
  return node;
}

const rows = [];

// The row's own words on what became of its newest command.
function outcome_in(node) {
  return (result, text, why) => {
    node.dataset.result = result;
    node.textContent = why ? `${text}: ${why}` : text;
  };
}

function make_row(name, label, { is_labelled_by_itself = true } = {}) {
  const told = make('span', { className: 'outcome' });
  const node = make('div', { className: 'row' });
  node.dataset.command = name;
  const id = `set-${name.replaceAll(' ', '-')}`;
  const caption = make(is_labelled_by_itself ? 'label' : 'span', { textContent: label, id: `${id}-name` });
  if (is_labelled_by_itself) {
    caption.htmlFor = id;
  }
  node.append(caption);
  return { node, id, told, show: outcome_in(told) };
}

// A list to choose from, or for few choices a button each.
function make_choices(name, label, choices, words, reported, is_never_reported) {
  const is_list = choices.length > 3;
  const row = make_row(name, label, { is_labelled_by_itself: is_list });
  let last;
  const give = async (choice) => {
    await send(words(choice), (result, text, why) => {
      row.show(result, text, why);
      last = ['sending', 'sent'].includes(result) ? last : undefined;  // show what is reported again
    }, { is_never_reported });
  };
  let set;
  if (is_list) {
    const select = make('select', { id: row.id }, make('option', { value: '', disabled: true, hidden: true }),
      ...choices.map((choice) => make('option', { value: choice, textContent: title_of(name, choice) })));
    select.addEventListener('change', () => give(select.value));
    set = (choice, text) => {
      select.options[0].textContent = text || '\u2013';
      select.value = choice ?? '';
    };
    row.node.append(select);
  } else {
    const buttons = choices.map((choice) => {
      const button = make('button', { type: 'button', value: choice, textContent: title_of(name, choice) });
      button.addEventListener('click', () => give(choice));
      return button;
    });
    const box = make('div', { className: 'segments' }, ...buttons);
    box.setAttribute('role', 'group');
    box.setAttribute('aria-labelledby', `${row.id}-name`);
    set = (choice) => buttons.forEach((button) => button.setAttribute('aria-pressed', String(button.value === choice)));
    row.node.append(box);
  }
  row.node.append(row.told);
  set(undefined, '');
  rows.push((state) => {
    const now = reported(state) ?? '';
    if (now !== last) {
      last = now;
      set(choice_of(choices, now), now);
    }
  });
  return row.node;
}

function make_number(name, label, { min, max, step, unit, value }) {
  const row = make_row(name, label);
  const slider = make('input', { type: 'range', id: row.id, min, max, step });
  const output = make('output', { htmlFor: row.id });
  const tell = () => {
    output.textContent = `${slider.value} ${unit}`;
    slider.setAttribute('aria-valuetext', output.textContent);
  };
  slider.addEventListener('input', tell);
  slider.addEventListener('change', () => send(`${name} ${slider.value}`, row.show));
  row.node.append(slider, output, row.told);
  let last;
  rows.push((state) => {
    const now = value(state);
    if (now !== null && now !== undefined && now !== last) {
      last = now;
      slider.value = now;
      tell();
    }
  });
  return row.node;
}

function make_button(name, label) {
  const row = make_row(name, label, { is_labelled_by_itself: false });
  const danger = dangers[name];
  const button = make('button', { type: 'button', textContent: danger?.button ?? 'Calibrate' });
  button.classList.toggle('danger', danger !== undefined);
  button.addEventListener('click', async () => {
    if (!danger || (await question(danger.first) && await question(danger.second))) {
      send(name, row.show, { is_never_reported: true });
    }
  });
  row.node.append(button, row.told);
  return row.node;
}

const of_gimbal = {
  'position': { choices: ['normal', 'selfie'], reported: ({ gimbal }) =>
    (gimbal ? (gimbal.heading < -130 && gimbal.heading > -230 ? 'selfie' : 'normal') : null) },
  'orientation': { choices: ['lock', 'unlock'], reported: ({ gimbal }) =>
    (gimbal ? (gimbal.orientation_lock ? 'lock' : 'unlock') : null) },
};
const focus_type = ({ focus }) => focus?.type;

export function make_setting({ name, choices, reported_in: key }, label) {
  const words = (choice) => `${name} ${choice}`;
  if (of_gimbal[name]) {
    return make_choices(name, label, of_gimbal[name].choices, words, of_gimbal[name].reported, false);
  }
  const all = name === 'aperture' ? f_numbers : choices;
  if (all.length > 0) {
    const reported = name === 'focus type' ? focus_type : (state) => state.words?.[key];
    return make_choices(name, label, all, words, reported, key === '');
  }
  return numbers[name] ? make_number(name, label, numbers[name]) : make_button(name, label);
}

// Fills the panel from what the gateway says it takes.
export function fill(panel, commands) {
  const left = new Map();
  for (const command of commands) {
    const name = pairs[command.name] ?? command.name;
    if (!elsewhere.includes(name)) {
      left.set(name, { ...command, name });
    }
  }
  const all = [...groups];
  const others = [...left.keys()].filter((name) => !groups.some(([, labels]) => name in labels));
  if (others.length > 0) {
    all.push(['Others', Object.fromEntries(others.map((name) => [name, name]))]);
  }
  rows.length = 0;
  panel.querySelectorAll('details.settings').forEach((old) => old.remove());
  for (const [title, labels] of all) {
    const details = make('details', { className: 'settings', open: title === 'Exposure' || matchMedia('(min-width: 700px)').matches },
      make('summary', { textContent: title }));
    for (const [name, label] of Object.entries(labels)) {
      if (left.has(name)) {
        details.append(make_setting(left.get(name), label));
      }
    }
    panel.append(details);
  }
}

export function show(state) {
  rows.forEach((row) => row(state));
}
