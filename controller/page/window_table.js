// A table of any number of rows, of which only those in sight are in the document.
import {make} from './dom.js';

const spare = 10;  // rows above and below the visible ones
let tables = 0;

// `rows` has: count, at(index) (undefined while a row is not known), and want(first, last), which is told what is in
// sight. `columns` are {title, kind, cell(row)}; a cell is a text or an element, and `kind` is its class.
export class WindowTable {
  #columns;
  #open;
  #rows;
  #id = `table-${tables++}`;
  #shown = new Map();  // elements of rows, by index
  #active = 0;
  #drawing = 0;

  // `open(row)` is called when a row is chosen, if it is given.
  constructor({label, kind, columns, rows, open = null}) {
    this.#columns = columns;
    this.#rows = rows;
    this.#open = open;
    this.head = make('thead', {role: 'rowgroup'}, make('tr', {role: 'row', 'aria-rowindex': 1}, ...columns.map(
      (column) => make('th', {role: 'columnheader', scope: 'col', class: column.kind}, column.title))));
    this.body = make('tbody', {role: 'rowgroup'});
    this.table = make('table', {role: 'grid', 'aria-label': label, 'aria-readonly': 'true', tabindex: 0, id: this.#id,
                                onkeydown: (event) => this.#key(event), onfocus: () => this.#draw()},
                      this.head, this.body);
    this.element = make('div', {class: `window ${kind}`, onscroll: () => this.draw()}, this.table);
    this.body.addEventListener('click', (event) => this.#click(event));
    this.#resized = new ResizeObserver(() => this.draw());
    this.#resized.observe(this.element);
  }

  #resized;

  end() {
    this.#resized.disconnect();
    cancelAnimationFrame(this.#drawing);
  }

  // To be called when rows have changed.
  draw() {
    if (this.#drawing === 0) {
      this.#drawing = requestAnimationFrame(() => {
        this.#drawing = 0;
        this.#draw();
      });
    }
  }

  // To be called when these are other rows.
  toTop() {
    this.#active = 0;
    this.element.scrollTop = 0;
    this.draw();
  }

  get #rowHeight() {
    return parseFloat(getComputedStyle(this.element).getPropertyValue('--row-height'));
  }

  #draw() {
    const height = this.#rowHeight;
    const count = this.#rows.count;
    this.#active = Math.max(0, Math.min(this.#active, count - 1));
    this.body.style.height = `${count * height}px`;
    this.table.setAttribute('aria-rowcount', count + 1);
    const first = Math.max(0, Math.floor(this.element.scrollTop / height) - spare);
    const last = Math.min(count, Math.ceil((this.element.scrollTop + this.element.clientHeight) / height) + spare) - 1;
    for (const [index, element] of this.#shown) {
      if (index < first || index > last) {
        element.remove();
        this.#shown.delete(index);
      }
    }
    for (let index = first; index <= last; index++) {
      this.#drawRow(index, height);
    }
    this.table.setAttribute('aria-activedescendant', this.#shown.has(this.#active) ? this.#rowId(this.#active) : '');
    if (last >= first) {
      this.#rows.want(first, last);
    }
  }

  #rowId(index) {
    return `${this.#id}-${index}`;
  }

  #drawRow(index, height) {
    const row = this.#rows.at(index);
    let element = this.#shown.get(index);
    if (element === undefined) {
      element = make('tr', {role: 'row', id: this.#rowId(index), 'aria-rowindex': index + 2});
      element.style.top = `${index * height}px`;
      this.#shown.set(index, element);
      this.body.append(element);
    }
    element.classList.toggle('active', index === this.#active);
    if (element.row !== row || element.childElementCount === 0) {
      element.row = row;
      element.replaceChildren(...this.#columns.map((column) => make(
        'td', {role: 'gridcell', class: column.kind}, row === undefined ? '…' : column.cell(row))));
    }
  }

  #click(event) {
    const element = event.target.closest('tr');
    const index = [...this.#shown].find(([, each]) => each === element)?.[0];
    if (index !== undefined) {
      this.#move(index);
      if (!event.target.closest('a, button') && !String(getSelection())) {
        this.#choose();
      }
    }
  }

  #choose() {
    const row = this.#rows.at(this.#active);
    if (row !== undefined) {
      this.#open?.(row);
    }
  }

  #move(index) {
    this.#active = Math.max(0, Math.min(index, this.#rows.count - 1));
    const height = this.#rowHeight;
    const top = this.#active * height;
    const visible = this.element.clientHeight - this.head.offsetHeight;
    if (top < this.element.scrollTop) {
      this.element.scrollTop = top;
    } else if (top + height > this.element.scrollTop + visible) {
      this.element.scrollTop = top + height - visible;
    }
    this.#draw();
  }

  #key(event) {
    const page = Math.max(1, Math.floor((this.element.clientHeight - this.head.offsetHeight) / this.#rowHeight) - 1);
    const moves = {ArrowDown: this.#active + 1, ArrowUp: this.#active - 1, PageDown: this.#active + page,
                   PageUp: this.#active - page, Home: 0, End: this.#rows.count - 1};
    if (event.target !== this.table || event.altKey || event.metaKey) {
      return;
    }
    if (event.key in moves) {
      this.#move(moves[event.key]);
    } else if (event.key === 'Enter') {
      this.#choose();
    } else {
      return;
    }
    event.preventDefault();
  }
}

// Rows of an array, for a WindowTable.
export class ArrayRows {
  all = [];

  get count() {
    return this.all.length;
  }

  at(index) {
    return this.all[index];
  }

  want() {}
}
