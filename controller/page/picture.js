// A drawing that is made for the width that it has, and made again when that changes.
import {draw, make} from './dom.js';
import {clockTime, date, dayLength, hourTime, minute} from './format.js';

export class Picture {
  #draw;
  #content;
  #resized;
  #width = 0;

  // `draw(content, width)` returns an SVG element.
  constructor(draw) {
    this.#draw = draw;
    this.element = make('div', {class: 'picture'});
    this.#resized = new ResizeObserver(() => this.#width !== this.element.clientWidth && this.#redraw());
    this.#resized.observe(this.element);
  }

  show(content) {
    this.#content = content;
    this.#redraw();
  }

  end() {
    this.#resized.disconnect();
  }

  #redraw() {
    this.#width = this.element.clientWidth;
    if (this.#content !== undefined && this.#width > 0) {
      this.element.replaceChildren(this.#draw(this.#content, this.#width));
    }
  }
}

const steps = [1 / 12, 1 / 6, 1 / 4, 1 / 2, 1, 2, 5, 10, 15, 30, 60, 120, 180, 360, 720, 1440, 2880, 10_080].map(
  (each) => each * minute);

// At most `most` marks of an axis between `from` and `to` (ms), {at, label}, at round local times.
export function ticksOf(from, to, most) {
  const step = steps.find((each) => (to - from) / each <= most) ?? (to - from) / most;
  const label = step < minute ? clockTime : step < dayLength ? hourTime : date;
  const offset = new Date(from).getTimezoneOffset() * minute;
  const ticks = [];
  for (let at = Math.ceil((from - offset) / step) * step + offset; at <= to; at += step) {
    ticks.push({at, label: label(at)});
  }
  return ticks;
}

// An SVG element of this size whose content `label` describes.
export const frame = (width, height, label, ...children) => draw(
  'svg', {width, height, viewBox: `0 0 ${width} ${height}`, role: 'img', 'aria-label': label}, ...children);

export const text = (x, y, anchor, content) => draw('text', {x, y, 'text-anchor': anchor}, content);
