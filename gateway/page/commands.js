// Commands and what becomes of each: sent, confirmed by the camera's own report, or not.

import { ask } from './gateway.js';
import * as hand from './hand.js';
import { announce, log } from './log.js';

// The gateway watches for five seconds; what it says may be lost with the connection.
const patience = 8000;

const outcomes = {
  'sent': { mark: '\u2026', text: 'sent', is_bad: false },
  'confirmed': { mark: '\u2713', text: 'confirmed', is_bad: false },
  'was there': { mark: '=', text: 'was so before', is_bad: false },
  'not confirmed': { mark: '!', text: 'not confirmed', is_bad: true },
  'refused': { mark: '\u2715', text: 'refused', is_bad: true },
};

const under_way = new Map();  // own ones by their words: {show, timer}
const lines = new Map();      // lines of the list that may change, by sender and words

function put_into_list(by, words, text, is_bad, is_last) {
  const key = `${by}\n${words}`;
  const said = `${words}${by ? ` (${by})` : ''}: ${text}`;
  const change = lines.get(key);
  change ? change(said, is_bad) : lines.set(key, log(said, { is_bad }));
  if (is_last) {
    lines.delete(key);
  }
}

function settle(words, result, why = '') {
  const own = under_way.get(words);
  if (!own) {
    return;
  }
  const { mark, text, is_bad } = outcomes[result];
  own.show(result, `${mark} ${text}`, why);
  const is_over = result !== 'sent' || own.is_never_reported;
  if (is_over) {
    clearTimeout(own.timer);
    under_way.delete(words);
    announce(`${words}: ${text} ${why}`);
    put_into_list(hand.name(), words, why ? `${text}, ${why}` : text, is_bad, true);
  }
}

// Sends the words. show(result, text, why) is called as its fate becomes known. Resolves when it is sent or refused.
export async function send(words, show, { is_never_reported = false } = {}) {
  clearTimeout(under_way.get(words)?.timer);
  under_way.set(words, {
    show,
    is_never_reported,
    timer: setTimeout(() => settle(words, 'not confirmed', 'nothing more was heard of it'), patience),
  });
  show('sending', '\u2026', '');
  put_into_list(hand.name(), words, 'sent', false, false);
  const { answer, error } = await ask('/api/command', { body: { words }, control: hand.token() });
  settle(words, answer ? answer.result : 'refused', error);
}

// What the gateway says of any client's commands.
export function hear({ words, by, result, why }) {
  if (by === hand.name() && under_way.has(words)) {
    settle(words, result, why);
  } else if (by !== hand.name()) {
    const outcome = outcomes[result];
    put_into_list(by, words, outcome?.text ?? result, outcome?.is_bad, result !== 'sent');
  }
}
