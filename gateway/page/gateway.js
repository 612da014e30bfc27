// The gateway on the other side: one way to ask it, and streams from it that come back by themselves.

let token = '';
let on_refused = () => {};
let wake = () => {};
let woken = new Promise((resolve) => { wake = resolve; });

// Kept in memory only. Streams that wait try again at once.
export function set_token(text) {
  token = text.trim();
  wake();
  woken = new Promise((resolve) => { wake = resolve; });
}

// Called when the gateway wants a token: with what is wrong with the one that was sent, if one was.
export function when_refused(listener) {
  on_refused = listener;
}

function headers(more) {
  return token ? { ...more, Authorization: `Bearer ${token}` } : more;
}

// A wrong token is forgotten, so that the streams' new tries don't count as more wrong ones.
function refuse(reply, error, sent) {
  if (reply.status === 401 || reply.status === 429) {
    token = token === sent ? '' : token;
    on_refused(sent ? error : '');
  }
}

async function reason_of(reply) {
  const text = await reply.text().catch(() => '');
  try {
    return JSON.parse(text).error ?? reply.statusText;
  } catch {
    return text.slice(0, 200) || reply.statusText;
  }
}

// What the gateway answers, with its status; status 0 and an error where there is no answer within the patience
// (in milliseconds). A body makes it a POST.
export async function ask(path, { body, control, patience = 5000, keepalive = false } = {}) {
  const more = control ? { 'X-Ardenvue-Control': control } : {};
  const sent = token;
  try {
    const reply = await fetch(path, {
      method: body ? 'POST' : 'GET',
      headers: headers(body ? { ...more, 'Content-Type': 'application/json' } : more),
      body: body && JSON.stringify(body),
      signal: AbortSignal.timeout(patience),
      cache: 'no-store',
      keepalive,
    });
    if (reply.ok) {
      return { status: reply.status, answer: await reply.json() };
    }
    const error = await reason_of(reply);
    refuse(reply, error, sent);
    return { status: reply.status, error };
  } catch {
    return { status: 0, error: 'the gateway does not answer' };
  }
}

// Follows a stream for as long as the page lives. What it calls: open() at each beginning, bytes(Uint8Array) for each
// piece, closed(why) at each end; is_stuck(milliseconds since
// the last piece, and since it began) says when to give up and come again.
export function follow(path, { more = () => ({}), open, bytes, closed, is_stuck }) {
  let abort = new AbortController();
  const once = async () => {
    const sent = token;
    const began = performance.now();
    let heard = began;
    const watch = setInterval(() => {
      if (is_stuck(performance.now() - heard, performance.now() - began)) {
        abort.abort();
      }
    }, 250);
    try {
      const reply = await fetch(path, { headers: headers(more()), signal: abort.signal, cache: 'no-store' });
      if (!reply.ok) {
        const error = await reason_of(reply);
        refuse(reply, error, sent);
        return { error, pause: reply.status === 429 ? 60_000 : 2000 };
      }
      open();
      const reader = reply.body.getReader();
      for (;;) {
        const { done, value } = await reader.read();
        if (done) {
          return { error: 'the gateway ended it', pause: 300 };
        }
        heard = performance.now();
        bytes(value);
      }
    } catch (failure) {
      return { error: abort.signal.aborted ? 'nothing came any more' : String(failure.message), pause: 700 };
    } finally {
      clearInterval(watch);
      abort.abort();
      abort = new AbortController();
    }
  };
  (async () => {
    for (;;) {
      const { error, pause } = await once();
      closed(error);
      await Promise.race([woken, new Promise((resolve) => { setTimeout(resolve, pause); })]);
    }
  })();
  return { again: () => abort.abort() };
}

// Follows the server-sent events (HTML, 9.2.6). heard() is called for each piece of the stream, on(name, data) for
// each event; is_late() says when they are so old that a new stream is quicker. What was missed while the connection was
// gone is asked for.
export function follow_events(path, { open, heard, on, closed, is_late }) {
  let last_id = '';
  let decoder;
  let text;
  const take = (block) => {
    let name = 'message';
    const data = [];
    for (const line of block.split('\n')) {
      const [, field, value] = /^([a-z]*):? ?(.*)$/.exec(line) ?? [];
      if (field === 'event') {
        name = value;
      } else if (field === 'data') {
        data.push(value);
      } else if (field === 'id') {
        last_id = value;
      }
    }
    if (data.length > 0) {
      on(name, JSON.parse(data.join('\n')));
    }
  };
  return follow(path, {
    more: () => (last_id ? { 'Last-Event-ID': last_id } : {}),
    open: () => {
      decoder = new TextDecoder();
      text = '';
      open();
    },
    bytes: (piece) => {
      heard();
      text += decoder.decode(piece, { stream: true });
      const blocks = text.split('\n\n');
      text = blocks.pop();
      blocks.forEach(take);
    },
    closed,
    is_stuck: (silence, since) => silence > 4000 || (since > 4000 && is_late()),
  });
}
