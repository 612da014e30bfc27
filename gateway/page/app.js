// Puts the page together: what the gateway sends goes into one state, and the rest shows it.

import * as clock from './clock.js';
import * as commands from './commands.js';
import { ask, follow_events, set_token, when_refused } from './gateway.js';
import * as hand from './hand.js';
import { announce, copy, log, log_text, tell } from './log.js';
import * as overlay from './overlay.js';
import { Picture } from './picture.js';
import * as settings from './settings.js';
import * as shoot from './shoot.js';
import * as sticks from './sticks.js';

const element = (id) => document.getElementById(id);

// Seconds.
const silence_is_loss = 2.5;  // the gateway sends a state once a second at least
const old_picture = 0.6;
const lost_picture = 2;
const hopeless = 4;

let state = null;
let video = null;
let heard = 0;
let situation = '';
let told_situation = '';
let has_commands = false;

const seconds_since_heard = () => (performance.now() - heard) / 1000;

// ---- What is wrong, worst first: a word, what is said over the picture, whether values and picture may look live ----

function judge(picture_age) {
  if (!state) {
    return { word: 'connecting', title: 'Connecting', text: 'to the gateway' };
  }
  const age = clock.now() - state.monotonic;
  if (seconds_since_heard() > silence_is_loss || age > silence_is_loss) {
    return { word: 'cut', title: 'No connection', told: 'to the gateway',
      text: `to the gateway for ${overlay.age_text(age)}. All of this is old.` };
  }
  if (state.link.state === 'down') {
    return { word: 'down', title: 'No link', text: 'to the remote controller. All of this is old.',
      told: 'to the remote controller' };
  }
  if (state.link.state === 'silent') {
    return { word: 'silent', title: 'Link is silent', text: 'The last values and picture: both are old.',
      told: '' };
  }
  if (picture_age === null) {
    return { word: 'no-picture', title: 'No picture yet', text: '', values_live: true };
  }
  if (picture_age > old_picture) {
    const title = picture_age > lost_picture ? 'Picture stands still' : 'Picture is late';
    return { word: picture_age > lost_picture ? 'still' : 'late', title,
      text: `It is ${overlay.age_text(picture_age)} old.`, told: '', values_live: true };
  }
  return { word: 'live', title: 'Live', text: '', values_live: true };
}

const link_words = {
  'connecting': 'Connecting', 'cut': 'No connection', 'down': 'No link', 'silent': 'Link silent',
  'no-picture': 'No picture', 'still': 'Picture still', 'late': 'Picture late', 'live': 'Live',
};

function show_situation(picture) {
  const picture_age = picture.age;
  const now = judge(picture_age);
  document.body.dataset.link = now.word;
  element('link').dataset.link = now.word;
  overlay.set_text('link', link_words[now.word]);
  const alarm = element('alarm');
  alarm.hidden = now.word === 'live';
  overlay.set_text(alarm.querySelector('strong'), now.title);
  overlay.set_text(alarm.querySelector('span'), now.text);
  overlay.set_text('delay', picture_age === null ? '\u2013'
    : picture_age < 1 ? `${Math.max(0, Math.round(picture_age * 1000))} ms` : overlay.age_text(picture_age));
  overlay.show_ages(state, now.values_live === true);
  const recording = state?.gimbal?.recording && now.values_live ? '\u25cf ' : '';
  const title = now.values_live ? `${recording}Ardenvue` : `${link_words[now.word]} \u2013 Ardenvue`;
  if (document.title !== title) {
    document.title = title;
  }
  if (now.word !== situation) {
    if (now.word !== 'late' && now.word !== told_situation) {
      tell(`${now.title} ${now.told ?? now.text}`.trim(), { is_bad: !['live', 'connecting', 'no-picture'].includes(now.word) });
      told_situation = now.word;
    }
    situation = now.word;
    document.body.classList.toggle('old-values', !now.values_live);
    show_panel_told();
    if (!now.values_live) {
      sticks.let_go(`Let go: ${link_words[now.word].toLowerCase()}`);
    }
  }
}

function show_panel_told() {
  const is_old = state !== null && document.body.classList.contains('old-values');
  overlay.set_text('panel-told', is_old ? 'What is shown here is old.'
    : hand.has_control() ? '' : 'Take control to change anything.');
}

// ---- What the gateway sends ----

const services = { started: 'The service was heard', restarted: 'The service was restarted' };

function begin_events(picture) {
  const on = {
    state: (sent) => {
      state = sent;
      clock.learn(sent.monotonic);
      picture.frame_age = sent.link.frame_age;
      overlay.show(sent);
      settings.show(sent);
      shoot.show(sent);
      show_situation(picture);
    },
    video: (sent) => {
      if (video && (sent.width !== video.width || sent.height !== video.height)) {
        log(`Picture is ${sent.width}x${sent.height} now`);
      }
      video = sent;
      picture.origin = sent.origin;
      element('stage').style.setProperty('--ratio', sent.width / sent.height);
    },
    control: hand.hear,
    command: commands.hear,
    service: ({ what }) => services[what] && log(services[what]),
    viewers: ({ count }) => overlay.set_text('viewers', count > 1 ? `${count} watch` : ''),
  };
  let is_open = false;
  follow_events('/api/events', {
    open: () => {
      is_open = true;
      element('token-form').hidden = true;
      hand.look();
      get_commands();
    },
    heard: () => { heard = performance.now(); },
    is_late: () => state !== null && clock.now() - state.monotonic > hopeless,
    on: (name, data) => on[name]?.(data),
    closed: (why) => {
      sticks.let_go('Let go: no connection');
      if (is_open) {
        log(`The connection ended: ${why}`, { is_bad: true });
      }
      is_open = false;
    },
  });
}

async function get_commands() {
  const { answer } = has_commands ? {} : await ask('/api/commands');
  if (answer) {
    has_commands = true;
    settings.fill(element('controls'), answer);
    shoot.fill(answer);
  }
}

// ---- What is typed ----

function read_address() {
  const given = new URLSearchParams(location.hash.slice(1));
  if (location.hash) {
    history.replaceState(null, '', location.pathname);
  }
  set_token(given.get('token') ?? '');
  return given.get('name');
}

function take_token() {
  when_refused((why) => {
    element('token-form').hidden = false;
    const problem = why || element('token-problem').textContent || 'This gateway asks for its token.';
    if (element('token-problem').textContent !== problem) {
      element('token-problem').textContent = problem;
      announce(problem);
    }
  });
  element('token-form').addEventListener('submit', (event) => {
    event.preventDefault();
    set_token(element('token').value);
    element('token').value = '';
    element('token-problem').textContent = '';
    element('token-form').hidden = true;
  });
}

function begin() {
  addEventListener('error', ({ message }) => log(`Fault of the page: ${message}`, { is_bad: true }));
  addEventListener('unhandledrejection', ({ reason }) => log(`Fault of the page: ${reason}`, { is_bad: true }));
  const name = read_address();
  take_token();
  hand.when_changed((is_in_control) => {
    element('controls').disabled = !is_in_control;
    element('shoot-controls').disabled = !is_in_control;
    show_panel_told();
    if (!is_in_control) {
      sticks.let_go('Let go: no control');
    }
  });
  sticks.begin();
  hand.begin(name);
  const picture = new Picture(element('picture'), (text) => log(text, { is_bad: true }));
  shoot.begin(picture);
  begin_events(picture);
  setInterval(() => show_situation(picture), 100);
  element('copy').addEventListener('click', async () => {
    const has_copied = await copy(log_text(JSON.stringify({ link: state?.link, video, delay: picture.age })));
    announce(has_copied ? 'Copied' : 'The browser does not let it be copied');
    overlay.set_text('copy', has_copied ? 'Copied' : 'Not copied');
    setTimeout(() => overlay.set_text('copy', 'Copy'), 2000);
  });
}

begin();
