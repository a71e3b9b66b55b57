// The answers the plug-in gave to the host's commands, in the order given.
// `next()` hands each answer out once, to one reader at a time.
import {getJson} from './http.js';

export class Answers {
  constructor(origin, state, failures) {
    this.origin_ = origin;
    this.state_ = state;
    this.failures_ = failures;
    this.cursor_ = 0;
    this.failuresSeen_ = 0;
  }

  // Every answer so far: [{callbackId, status, keepCallback, payload, note?, answeredAt}].
  async all() {
    if (!this.state_.pushed) await this.state_.refresh();
    const list = this.state_.summary.answers.filter(Boolean);
    return Promise.all(list.map((a) => this.withPayload_(a)));
  }

  // The next answer not yet handed out by next(). Rejects after `timeout` ms
  // with why the commands are still open, or at once when a queued device
  // action was refused by the host while waiting.
  async next({timeout = 15_000} = {}) {
    const index = this.cursor_;
    const failure = () => (this.failures_.length > this.failuresSeen_ ? this.failures_[this.failuresSeen_] : null);
    const found = await this.state_.until((s) => s.answers[index] ?? failure(), {timeout, what: `answer ${index + 1}`});
    if (found instanceof Error) {
      this.failuresSeen_ += 1;
      throw found;
    }
    this.cursor_ = index + 1;
    return this.withPayload_(found);
  }

  // Why each command is still open: [{command, operation, reason, action}],
  // the same reasons the command line prints.
  async open() {
    await this.state_.refresh();
    return this.state_.summary.open ?? [];
  }

  // Resolves with the open commands once one is open for a reason matching
  // `pattern` (a RegExp or text; any reason when omitted).
  untilOpen(pattern, {timeout = 10_000} = {}) {
    const matches = (reason) => (pattern === undefined ? true : pattern instanceof RegExp ? pattern.test(reason) : reason.includes(pattern));
    return this.state_.until((s) => ((s.open ?? []).some((o) => matches(o.reason)) ? s.open : null),
                             {timeout, what: `a command open for ${pattern ?? 'any reason'}`});
  }

  async withPayload_(a) {
    const answer = {callbackId: a.callbackId, status: a.status, keepCallback: Boolean(a.keepCallback)};
    if ('payload' in a) answer.payload = a.payload;
    else answer.payload = (await getJson(this.origin_, `/api/answers/${a.index}`)).payload;
    if (a.note) answer.note = a.note;
    if (a.answeredAt !== undefined) answer.answeredAt = a.answeredAt;
    return answer;
  }
}
