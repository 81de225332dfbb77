// The rows of a listing that the controller gives page by page, each page by the cursor of the one before. Pages are
// read in turn up to the one in sight; those far from it are forgotten, and read again by their cursors.
import {ask, withQuery} from './server.js';

const pageRows = 200;
const pagesKept = 30;
const ahead = 100;  // rows that are read before they are in sight

export class CursorRows {
  #path;
  #on;
  #words = {};
  #pages = [];      // {cursor, start, length, rows}; rows is null when they were forgotten
  #ended = false;   // the last page is the listing's last one
  #next = null;     // the cursor of the first page that was never read; null for the listing's first one
  #wanted = [0, -1];
  #reading = null;  // aborts what is read
  expected = null;  // rows that the listing probably has; null when nobody knows

  // `on` has the functions changed() and failed(error).
  constructor(path, on) {
    this.#path = path;
    this.#on = on;
  }

  // Starts anew, with other filters.
  filter(words) {
    this.#reading?.abort();
    this.#reading = null;
    this.#words = words;
    this.#pages = [];
    this.#ended = false;
    this.#next = null;
    this.#wanted = [0, pageRows - 1];
    this.#fill();
  }

  get known() {
    const last = this.#pages.at(-1);
    return last === undefined ? 0 : last.start + last.length;
  }

  get isComplete() {
    return this.#ended;
  }

  get count() {
    if (this.#ended) {
      return this.known;
    }
    return Math.max(this.known + (this.#pages.length > 0 ? 1 : 0), this.expected ?? 0);
  }

  at(index) {
    const page = this.#pageOf(index);
    return page?.rows?.[index - page.start];
  }

  want(first, last) {
    this.#wanted = [first, last + ahead];
    this.#fill();
  }

  // Reads what is in sight once more.
  refresh() {
    for (const page of this.#pages) {
      page.isOld = true;
    }
    this.#fill();
  }

  #pageOf(index) {
    let low = 0;
    let high = this.#pages.length - 1;
    while (low <= high) {
      const middle = (low + high) >> 1;
      const page = this.#pages[middle];
      if (index < page.start) {
        high = middle - 1;
      } else if (index >= page.start + page.length) {
        low = middle + 1;
      } else {
        return page;
      }
    }
    return undefined;
  }

  // One of the pages in sight that is missing or old; "next" when that one was never read.
  #lacking() {
    const [first, last] = this.#wanted;
    const old = this.#pages.find((page) => (page.rows === null || page.isOld) && page.start <= last &&
                                           page.start + Math.max(1, page.length) > first);
    return old ?? (!this.#ended && this.known <= last ? 'next' : undefined);
  }

  async #fill() {
    if (this.#reading !== null) {
      return;
    }
    const reading = new AbortController();
    this.#reading = reading;
    try {
      for (let page = this.#lacking(); page !== undefined; page = this.#lacking()) {
        const cursor = page === 'next' ? this.#next : page.cursor;
        const answer = await ask(withQuery(this.#path, {...this.#words, limit: pageRows, cursor}),
                                 {signal: reading.signal});
        if (reading.signal.aborted) {
          return;
        }
        page === 'next' ? this.#add(answer) : this.#replace(page, answer);
        this.#forget();
        this.#on.changed();
      }
    } catch (error) {
      this.#on.failed(error);
    } finally {
      if (this.#reading === reading) {
        this.#reading = null;
      }
    }
  }

  #add({items, next}) {
    this.#pages.push({cursor: this.#next, start: this.known, length: items.length, rows: items, isOld: false});
    this.#next = next;
    this.#ended = next === null;
  }

  // When the page ends elsewhere than before, those after it have other rows too, and are read when they are in sight.
  #replace(page, {items, next}) {
    const at = this.#pages.indexOf(page);
    const former = at + 1 < this.#pages.length ? this.#pages[at + 1].cursor : this.#next;
    Object.assign(page, {rows: items, isOld: false});
    if (items.length !== page.length || next !== former) {
      page.length = items.length;
      this.#pages.length = at + 1;
      this.#next = next;
      this.#ended = next === null;
    }
  }

  #forget() {
    const middle = (this.#wanted[0] + this.#wanted[1]) / 2;
    const kept = this.#pages.filter((page) => page.rows !== null);
    kept.sort((one, other) => Math.abs(one.start - middle) - Math.abs(other.start - middle));
    for (const page of kept.slice(pagesKept)) {
      page.rows = null;
    }
  }
}
