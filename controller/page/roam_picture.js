// Roams per minute as bars.
import {draw} from './dom.js';
import {count, hourTime, minute, plural} from './format.js';
import {frame, text, ticksOf} from './picture.js';

const height = 150;
const left = 44;   // of the first bar
const below = 22;  // for the times
const above = 8;

// 1, 2 or 5 times a power of ten, at least `value`.
function niceAbove(value) {
  const power = 10 ** Math.floor(Math.log10(Math.max(1, value)));
  return [1, 2, 5, 10].map((each) => each * power).find((each) => each >= value);
}

function labelOf(minutes) {
  const all = minutes.map(({roams}) => roams);
  const sum = all.reduce((one, other) => one + other, 0);
  return `Roams per minute in the last ${plural(all.length, 'minute')}: ${count(sum)} in all, ` +
    `at most ${count(Math.max(0, ...all))} in a minute, ${count(all.at(-1) ?? 0)} in the present one`;
}

// `minutes` is {start, roams} in the order of time; the last one is not over.
export function drawRoams(minutes, width) {
  const most = niceAbove(Math.max(1, ...minutes.map(({roams}) => roams)));
  const bottom = height - below;
  const span = Math.max(30, minutes.length);
  const end = Date.parse(minutes.at(-1)?.start ?? new Date()) + minute;
  const start = end - span * minute;
  const bar = (width - left) / span;
  const x = (at) => left + (at - start) / minute * bar;
  const y = (roams) => bottom - roams / most * (bottom - above);
  const lines = [0, most / 2, most].filter(Number.isInteger).flatMap((value) => [
    draw('line', {class: 'grid', x1: left, x2: width, y1: y(value), y2: y(value)}),
    text(left - 8, y(value) + 4, 'end', count(value))]);
  const times = ticksOf(start, end - minute, Math.max(2, Math.floor(width / 90))).map(
    ({at, label}) => text(Math.min(width - 18, Math.max(left + 14, x(at))), height - 5, 'middle', label));
  const bars = minutes.map(({start: at, roams}, index) => draw(
    'rect', {class: index === minutes.length - 1 ? 'bar present' : 'bar', x: x(Date.parse(at)), y: y(roams),
             width: Math.max(.5, bar - (bar > 4 ? 1 : 0)), height: bottom - y(roams)},
    draw('title', {}, `${hourTime(at)}: ${plural(roams, 'roam')}`)));
  return frame(width, height, labelOf(minutes), ...lines, ...bars, ...times);
}
