// The rows of a listing that the controller gives page by page, each page by the cursor of the one before. Pages are
// read in turn from the end of the listing that is nearer, up to what is in sight; those far from it are forgotten, and
// read again by their cursors.
import {ask, withQuery} from './server.js';

const pageRows = 200;
const pagesKept = 30;
const ahead = 100;  // rows that are read before they are in sight

// The pages from one end of the listing. Rows are counted from that end.
class Chain {
  #pages = [];  // {cursor, start, length, rows, isOld}; rows is null when they were forgotten
  next = null;    // the cursor of the first page that was never read; null for the first one
  ended = false;  // the last page is the last one of all

  constructor(order) {
    this.order = order;
  }

  get known() {
    const last = this.#pages.at(-1);
    return last === undefined ? 0 : last.start + last.length;
  }

  at(index) {
    const page = this.#pageOf(index);
    return page?.rows?.[index - page.start];
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

  outdate() {
    for (const page of this.#pages) {
      page.isOld = true;
    }
  }

  // A page with some of these rows that is to be read again.
  oldPage(first, last) {
    return this.#pages.find((page) => (page.rows === null || page.isOld) && page.start <= last &&
                                      page.start + Math.max(1, page.length) > first);
  }

  // The answer for a page; undefined for the next one.
  take(page, answer) {
    page === undefined ? this.#add(answer) : this.#replace(page, answer);
  }

  #add({items, next}) {
    this.#pages.push({cursor: this.next, start: this.known, length: items.length, rows: items, isOld: false});
    this.next = next;
    this.ended = next === null;
  }

  // When the page ends elsewhere than before, those after it have other rows too, and are read when they are in sight.
  #replace(page, {items, next}) {
    const at = this.#pages.indexOf(page);
    const former = at + 1 < this.#pages.length ? this.#pages[at + 1].cursor : this.next;
    Object.assign(page, {rows: items, isOld: false});
    if (items.length !== page.length || next !== former) {
      page.length = items.length;
      this.#pages.length = at + 1;
      this.next = next;
      this.ended = next === null;
    }
  }

  // Keeps the pages that are nearest to a row.
  forget(middle) {
    const kept = this.#pages.filter((page) => page.rows !== null);
    kept.sort((one, other) => Math.abs(one.start - middle) - Math.abs(other.start - middle));
    for (const page of kept.slice(pagesKept)) {
      page.rows = null;
    }
  }
}

export class CursorRows {
  #path;
  #on;
  #words = {};
  #head = new Chain(null);
  #tail = new Chain('descending');  // used when the number of rows is expected
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
    this.#head = new Chain(null);
    this.#tail = new Chain('descending');
    this.#wanted = [0, pageRows - 1];
    this.#fill();
  }

  // From the first row on.
  get known() {
    return this.#head.known;
  }

  get isComplete() {
    return this.#head.ended;
  }

  get count() {
    return this.isComplete ? this.known : Math.max(this.known + (this.known > 0 ? 1 : 0), this.expected ?? 0);
  }

  at(index) {
    return this.#head.at(index) ?? (this.#hasTail ? this.#tail.at(this.count - 1 - index) : undefined);
  }

  want(first, last) {
    this.#wanted = [first, last + ahead];
    this.#fill();
  }

  // Reads what is in sight once more.
  refresh() {
    this.#head.outdate();
    this.#tail.outdate();
    this.#fill();
  }

  get #hasTail() {
    return !this.#head.ended && this.expected !== null && this.expected > this.known;
  }

  // The chain and its page that is to be read next for what is in sight; the page is undefined when it was never read.
  #lacking() {
    const [first, last] = this.#wanted;
    const head = {chain: this.#head, page: this.#head.oldPage(first, last)};
    if (head.page !== undefined) {
      return head;
    }
    if (!this.#hasTail) {
      return this.isComplete || this.known > last ? undefined : head;
    }
    const end = this.count - 1;
    const tail = {chain: this.#tail, page: this.#tail.oldPage(end - last, end - first)};
    if (tail.page !== undefined) {
      return tail;
    }
    const from = Math.max(first, this.known);
    const to = Math.min(last, end - this.#tail.known);
    if (from > to) {
      return undefined;
    }
    return this.#tail.ended || to - this.known <= end - from - this.#tail.known ? head : tail;
  }

  async #fill() {
    if (this.#reading !== null) {
      return;
    }
    const reading = new AbortController();
    this.#reading = reading;
    try {
      for (let next = this.#lacking(); next !== undefined; next = this.#lacking()) {
        const {chain, page} = next;
        const cursor = page === undefined ? chain.next : page.cursor;
        const words = {...this.#words, limit: pageRows, order: chain.order, cursor};
        const answer = await ask(withQuery(this.#path, words), {signal: reading.signal});
        if (reading.signal.aborted) {
          return;
        }
        chain.take(page, answer);
        const middle = (this.#wanted[0] + this.#wanted[1]) / 2;
        this.#head.forget(middle);
        this.#tail.forget(this.count - 1 - middle);
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
}
