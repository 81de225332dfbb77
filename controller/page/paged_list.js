// A listing that grows by a button: the pages that were read are shown, and read again when they may have changed.
import {make} from './dom.js';
import {ask, withQuery} from './server.js';

const pageRows = 100;

export class PagedList {
  #show;
  #report;
  #path = '';
  #pages = 1;
  #reading = null;

  // `show(items, isAll)` shows them; `report(error)` is told why they cannot be read.
  constructor(show, report) {
    this.#show = show;
    this.#report = report;
    this.more = make('button', {type: 'button', hidden: true, onclick: () => {
      this.#pages++;
      this.read();
    }}, 'Show more');
  }

  // Starts anew with another listing.
  use(path) {
    this.#path = path;
    this.#pages = 1;
    return this.read();
  }

  async read() {
    this.#reading?.abort();
    const reading = new AbortController();
    this.#reading = reading;
    try {
      const items = [];
      let cursor = null;
      do {
        const page = await ask(this.#withCursor(cursor), {signal: reading.signal});
        items.push(...page.items);
        cursor = page.next;
      } while (cursor !== null && items.length < this.#pages * pageRows);
      if (!reading.signal.aborted) {
        this.more.hidden = cursor === null;
        this.#show(items, cursor === null);
      }
    } catch (error) {
      this.#report(error);
    }
  }

  end() {
    this.#reading?.abort();
  }

  #withCursor(cursor) {
    const [path, query] = this.#path.split('?');
    return withQuery(path, {...Object.fromEntries(new URLSearchParams(query)), limit: pageRows, cursor});
  }
}
