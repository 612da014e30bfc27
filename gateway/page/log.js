// What happened: a list to read, and to copy into a report.

const most = 200;
const list = document.getElementById('log');
const announcer = document.getElementById('announcer');

const clock_text = () => new Date().toTimeString().slice(0, 8);

// A line of its own; what is returned changes its text later.
export function log(text, { is_bad = false } = {}) {
  const line = document.createElement('li');
  const time = document.createElement('time');
  const words = document.createElement('span');
  time.textContent = clock_text();
  words.textContent = text;
  line.classList.toggle('bad', is_bad);
  line.append(time, ' ', words);
  list.prepend(line);
  while (list.children.length > most) {
    list.lastChild.remove();
  }
  return (changed, now_bad = false) => {
    words.textContent = changed;
    line.classList.toggle('bad', now_bad);
  };
}

// For screen readers: said once, and only what somebody who can't see the page must know.
export function announce(text) {
  announcer.textContent = text;
}

// The same into the list and to screen readers.
export function tell(text, options) {
  announce(text);
  return log(text, options);
}

// Oldest first, with what tells one report from another.
export function log_text(about) {
  const lines = [...list.children].reverse().map((line) => line.textContent);
  return [`Ardenvue, ${new Date().toISOString()}`, navigator.userAgent, about, '', ...lines, ''].join('\n');
}

// A page on a plain address has no clipboard of its own; what is selected can be copied everywhere.
export async function copy(text) {
  try {
    await navigator.clipboard.writeText(text);
    return true;
  } catch {
    const area = document.createElement('textarea');
    area.value = text;
    area.setAttribute('aria-hidden', 'true');
    document.body.append(area);
    area.select();
    const has_copied = document.execCommand('copy');
    area.remove();
    return has_copied;
  }
}
