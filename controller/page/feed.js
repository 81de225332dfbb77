// The controller's events as they come. A connection that ends is made again, and goes on after the last event.
import {Refusal, session} from './server.js';

const silenceMax = 25_000;  // ms; the controller writes at least every 15 s
const pauseMax = 8_000;

// {kind, id, data} of the lines of one event; null for a comment.
function parseEvent(block) {
  const fields = {};
  for (const line of block.split('\n')) {
    const colon = line.indexOf(': ');
    if (colon > 0) {
      fields[line.slice(0, colon)] = line.slice(colon + 2);
    }
  }
  return fields.event ? {kind: fields.event, id: fields.id, data: JSON.parse(fields.data)} : null;
}

const wait = (ms, signal) => new Promise((resolve) => {
  const timer = setTimeout(resolve, ms);
  signal.addEventListener('abort', () => { clearTimeout(timer); resolve(); }, {once: true});
});

// A hidden tab has no stream: browsers open few connections to one server, and the controller has few streams.
const shown = (signal) => new Promise((resolve) => {
  if (!document.hidden) {
    resolve();
    return;
  }
  document.addEventListener('visibilitychange', resolve, {once: true});
  signal.addEventListener('abort', resolve, {once: true});
});

export class Feed {
  #on;
  #last = null;
  #run = null;
  #isConnected = null;  // null before the first attempt
  #reason = '';         // for which the controller sends no events; empty when it does not answer

  // `on` has the functions event({kind, id, data}), connected(), lost(reason) and refused(Refusal). `reason` is empty
  // when the controller does not answer.
  constructor(on) {
    this.#on = on;
  }

  async start() {
    this.stop();
    const run = new AbortController();
    this.#run = run;
    let failures = 0;
    while (!run.signal.aborted) {
      try {
        await shown(run.signal);
        const opened = await this.#follow(run.signal);
        failures = opened ? 0 : failures + 1;
      } catch (error) {
        this.#on.refused(error);
        return;
      }
      // A stream that was open is made again before anybody is told of its end.
      if (failures > 0 && !run.signal.aborted) {
        this.#setConnected(false);
      }
      await wait(failures === 0 ? 100 : Math.min(pauseMax, 500 * 2 ** (failures - 1)), run.signal);
    }
  }

  stop() {
    this.#run?.abort();
    this.#run = null;
    this.#isConnected = null;
  }

  #setConnected(is) {
    if (is !== this.#isConnected) {
      this.#isConnected = is;
      is ? this.#on.connected() : this.#on.lost(this.#reason);
    }
  }

  // Reads the events until the stream ends. False when it could not be opened. Throws a Refusal when the user may not
  // read it.
  async #follow(signal) {
    const end = new AbortController();
    const stop = () => end.abort();
    const stopWhenHidden = () => document.hidden && stop();
    let timer = setTimeout(stop, silenceMax);
    signal.addEventListener('abort', stop);
    document.addEventListener('visibilitychange', stopWhenHidden);
    let opened = false;
    this.#reason = '';
    try {
      const headers = {...session.fields(false), ...(this.#last && {'Last-Event-ID': this.#last})};
      const answer = await fetch('/api/v1/events', {headers, signal: end.signal, cache: 'no-store'});
      if (answer.status === 401 || answer.status === 403) {
        throw new Refusal(answer.status, 'the session has ended');
      }
      opened = answer.ok;
      if (opened) {
        this.#setConnected(true);
        await this.#read(answer.body, () => {
          clearTimeout(timer);
          timer = setTimeout(stop, silenceMax);
        });
      } else {
        this.#reason = (await answer.json()).detail;
      }
    } catch (error) {
      if (error instanceof Refusal) {
        throw error;
      }
    } finally {
      clearTimeout(timer);
      signal.removeEventListener('abort', stop);
      document.removeEventListener('visibilitychange', stopWhenHidden);
      stop();
    }
    return opened;
  }

  async #read(body, alive) {
    const reader = body.pipeThrough(new TextDecoderStream()).getReader();
    let rest = '';
    for (;;) {
      const {value, done} = await reader.read();
      if (done) {
        return;
      }
      alive();
      const blocks = (rest + value).split('\n\n');
      rest = blocks.pop();
      for (const event of blocks.map(parseEvent).filter(Boolean)) {
        this.#last = event.id;
        try {
          this.#on.event(event);
        } catch (error) {
          reportError(error);  // a fault of the page, which must not end the stream
        }
      }
    }
  }
}
