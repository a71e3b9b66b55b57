// The host bridge: exec(service, action, args) for the page API, and the
// device's state as the server pushes it (Server-Sent Events on /api/events).
// An answer's summary arrives on the stream; its payload is then read once
// from /api/answers/{index}. Nothing here polls: the page waits on the stream,
// and the browser's EventSource resumes it after a dropped connection
// (Last-Event-ID), so no answer is lost or seen twice.
//
// Exports: exec, api, subscribe, currentState. Installs window.velqor.

// How many answer summaries the bridge remembers for a call whose answer
// arrives before the call's own reply (the stream can be faster than fetch).
const KEPT_ANSWERS = 256;
const RECONNECT_MS = [250, 500, 1000, 2000, 5000];

// A request to the host; POSTs carry the header the server wants on every
// state-changing request (a page of another site cannot send it). Rejects
// with an Error holding the server's message.
export async function api(path, body) {
  const init = body === undefined ? {} : {
    method: 'POST',
    headers: body instanceof FormData ? {'X-Velqor-Request': '1'}
                                      : {'Content-Type': 'application/json', 'X-Velqor-Request': '1'},
    body: body instanceof FormData ? body : JSON.stringify(body),
  };
  const res = await fetch(path, init);
  const json = await res.json().catch(() => ({error: `the server sent no JSON (HTTP ${res.status})`}));
  if (!res.ok) throw new Error(json.error || `HTTP ${res.status}`);
  return json;
}

const waiting = new Map();   // callbackId -> {resolve, reject, calledAt}
const answered = new Map();  // callbackId -> the final answer's summary, newest KEPT_ANSWERS
const listeners = new Set();
const state = {seq: 0, answerCount: 0, eventCount: 0, screen: null, device: null, open: [], connected: false};

// Calls one of the plug-in's operations. Resolves with the answer's payload;
// rejects with {status, payload} when the plug-in answers with an error, or
// with an Error when the host cannot be reached or refuses the call.
export async function exec(service, action, args) {
  if (service !== 'Camera') throw new Error(`the host offers no service "${service}"`);
  connect();
  const {callbackId} = await api('/api/call', {operation: action, args: args ?? []});
  return new Promise((resolve, reject) => {
    waiting.set(callbackId, {resolve, reject});
    const early = answered.get(callbackId);
    if (early) settle(early);
  });
}

// `listener(message, state)` runs for every message of the stream: `message`
// holds what is new (answers, events) and the whole screen, device and open
// commands; `state` what the bridge knows so far. A listener added after the
// first message is called at once with the state.
export function subscribe(listener) {
  listeners.add(listener);
  connect();
  if (state.seq || state.screen) listener({answers: [], events: [], ...state}, state);
  return () => listeners.delete(listener);
}

export function currentState() { return state; }

async function settle(summary) {
  const waiter = waiting.get(summary.callbackId);
  if (!waiter) return;
  waiting.delete(summary.callbackId);
  try {
    const full = 'payload' in summary ? summary : await api(`/api/answers/${summary.index}`);
    if (full.status === 'OK') waiter.resolve(full.payload);
    else waiter.reject({status: full.status, payload: full.payload});
  } catch (e) {
    waiter.reject(e);
  }
}

function remember(summary) {
  answered.set(summary.callbackId, summary);
  if (answered.size > KEPT_ANSWERS) answered.delete(answered.keys().next().value);
}

function receive(message) {
  // Everything but the lists is whole in every message; the lists only hold what is new.
  const {answers, events, ...whole} = message;
  Object.assign(state, whole);
  for (const a of message.answers || []) {
    if (a.keepCallback) continue;  // not the last answer of its command
    remember(a);
    settle(a);
  }
  for (const l of listeners) {
    try { l(message, state); } catch (e) { console.error('velqor listener', e); }
  }
}

function announce(connected, why) {
  state.connected = connected;
  window.dispatchEvent(new CustomEvent('velqorconnection', {detail: {connected, why}}));
}

let source = null;
let failures = 0;

// Opens the stream once. The browser's EventSource retries by itself after a
// dropped connection; when it gives up (the server answered an error), a
// new stream starts from what this page has already seen.
function connect() {
  if (source || typeof EventSource === 'undefined') return;
  source = new EventSource(`/api/events?answers=${state.answerCount}&events=${state.eventCount}`);
  source.addEventListener('state', (e) => {
    failures = 0;
    if (!state.connected) announce(true, '');
    let message;
    try { message = JSON.parse(e.data); } catch { return; }
    receive(message);
  });
  source.addEventListener('error', () => {
    announce(false, source.readyState === EventSource.CLOSED ? 'the host closed the stream' : 'reconnecting');
    if (source.readyState !== EventSource.CLOSED) return;
    source = null;
    setTimeout(connect, RECONNECT_MS[Math.min(failures++, RECONNECT_MS.length - 1)]);
  });
}

window.velqor = Object.assign(window.velqor || {}, {
  exec, api, subscribe, currentState,
  // The control panel's older entry point: an operation and its positional arguments.
  call: (operation, args) => exec('Camera', operation, args),
});
connect();
