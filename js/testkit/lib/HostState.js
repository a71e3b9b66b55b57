// What one host shows right now, kept current from the server's push stream
// (GET /api/events), merged message by message: answers and events add up,
// screen, device and open reasons are replaced whole. A server without the
// stream is read from GET /api/state instead, only while someone waits.
//
// Waiting is always on a condition over this state (`until`), woken by each
// change the server reports; nothing here waits for a fixed time.
import {getJson, openEventStream} from './http.js';

const kPollMs = 20;

export class HostState {
  constructor(origin) {
    this.origin_ = origin;
    this.summary_ = {seq: 0, answers: [], answerCount: 0, events: [], eventCount: 0,
                     screen: null, device: {}, open: [], locationStarted: 0};
    this.waiters_ = new Set();
    this.stream_ = null;
    this.polling_ = false;
    this.closed_ = false;
    this.failure_ = null;
    this.holding_ = 0;
  }

  // Opens the push stream; falls back to reading the state when the server
  // has none. Resolves once the first whole summary is in.
  async connect() {
    try {
      await this.openStream_();
      await this.until(() => this.summary_.seq > 0 || this.received_, {what: 'the first state message', timeout: 10_000});
    } catch (e) {
      if (e.status !== 404) throw e;
      this.polling_ = true;
      await this.refresh();
    }
  }

  get summary() { return this.summary_; }
  get pushed() { return !this.polling_; }

  async openStream_() {
    const {answerCount, eventCount} = this.summary_;
    // Holds the process while the stream opens, so a waiter is never left
    // with nothing alive.
    const opening = setInterval(() => {}, 1 << 30);
    try {
      this.stream_ = await openEventStream(this.origin_, `/api/events?answers=${answerCount}&events=${eventCount}`, {
      lastEventId: this.lastId_,
      onMessage: (m) => {
        if (m.id) this.lastId_ = m.id;
        if (m.event !== 'state') return;
        try { this.merge_(JSON.parse(m.data)); } catch (e) { this.fail_(new Error(`a state message is not JSON: ${e.message}`)); }
      },
      onEnd: () => {
        if (this.closed_) return;
        this.stream_ = null;
        // The stream resumes from the last message id, so nothing is lost or repeated.
        this.openStream_().catch((e) => this.fail_(new Error(`the push stream ended and could not reopen: ${e.message}`)));
      },
    });
    } finally {
      clearInterval(opening);
    }
    if (this.holding_ > 0) this.stream_.socket.ref();
  }

  // Reads the whole state now (the answer to a POST is applied by then).
  async refresh() {
    const {answerCount, eventCount} = this.summary_;
    this.merge_(await getJson(this.origin_, `/api/state?answers=${answerCount}&events=${eventCount}`));
  }

  merge_(message) {
    const s = this.summary_;
    this.received_ = true;
    if (Array.isArray(message.answers)) {
      for (const [i, a] of message.answers.entries()) {
        const index = a.index ?? (message.answerCount - message.answers.length + i);
        if (index >= s.answers.length) s.answers[index] = {...a, index};
      }
    }
    if (Array.isArray(message.events)) {
      const first = (message.eventCount ?? s.events.length) - message.events.length;
      message.events.forEach((e, i) => { if (first + i >= s.events.length) s.events[first + i] = e; });
    }
    for (const key of ['answerCount', 'eventCount', 'screen', 'device', 'open', 'locationStarted'])
      if (key in message) s[key] = message[key];
    s.seq = message.seq ?? s.seq + 1;
    for (const w of [...this.waiters_]) w.check();
  }

  fail_(error) {
    this.failure_ = error;
    for (const w of [...this.waiters_]) w.check();
  }

  // Resolves with the first truthy value of `condition()`, checked now and on
  // every change; rejects after `timeout` ms (never when null) with what was
  // awaited and why the host's commands are still open.
  // A waiter that `hold`s keeps the process alive while it waits (a test
  // awaiting an answer); queued device actions do not, so a host a test
  // forgot to stop never keeps the process from exiting.
  until(condition, {timeout = 10_000, what = 'a change', hold = true} = {}) {
    return new Promise((resolve, reject) => {
      const waiter = {
        check: () => {
          if (this.failure_) return finish(null, this.failure_);
          let value;
          try { value = condition(this.summary_); } catch (e) { return finish(null, e); }
          if (value) finish(value);
        },
      };
      const timer = timeout === null ? null : setTimeout(() => {
        const open = (this.summary_.open ?? []).map((o) => `${o.command}: ${o.reason}`).join('; ');
        finish(null, new Error(`timed out after ${timeout} ms waiting for ${what}` + (open ? ` (open: ${open})` : '')));
      }, timeout);
      let held = false;
      const finish = (value, error) => {
        clearTimeout(timer);
        if (!this.waiters_.delete(waiter)) return;
        if (held) this.hold_(-1);
        error ? reject(error) : resolve(value);
      };
      this.waiters_.add(waiter);
      if (hold) { held = true; this.hold_(1); }
      waiter.check();
      if (this.polling_) this.poll_();
    });
  }

  hold_(delta) {
    this.holding_ += delta;
    const socket = this.stream_?.socket;
    if (socket) this.holding_ > 0 ? socket.ref() : socket.unref();
    if (this.pollTimer_) this.holding_ > 0 ? this.pollTimer_.ref() : this.pollTimer_.unref();
  }

  // Without a push stream: read the state while anyone waits.
  poll_() {
    if (this.pollTimer_ || this.closed_) return;
    const tick = async () => {
      this.pollTimer_ = null;
      if (!this.waiters_.size || this.closed_) return;
      try { await this.refresh(); } catch (e) { if (!this.closed_) this.fail_(e); return; }
      this.pollTimer_ = setTimeout(tick, kPollMs);
      if (!this.holding_) this.pollTimer_.unref();
    };
    this.pollTimer_ = setTimeout(tick, 0);
  }

  // Wakes every waiter, e.g. after the kit queued a new action.
  nudge() {
    for (const w of [...this.waiters_]) w.check();
  }

  close() {
    this.closed_ = true;
    this.stream_?.close();
    clearTimeout(this.pollTimer_);
    this.fail_(new Error('the host was stopped'));
  }
}
