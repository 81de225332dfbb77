// A client's life: a line for each access point, on which its stays are bars, with what happened to it.
import {directory} from './directory.js';
import {draw, make} from './dom.js';
import {duration, plural, time} from './format.js';
import {frame, text, ticksOf} from './picture.js';

const lane = 30;
const bar = 12;
const above = 10;
const below = 24;
const namesMax = 130;  // the column of names
const marked = ['address', 'waiting', 'approved', 'left'];

// What the marks mean.
export const legend = () => make('p', {class: 'legend'}, ...marked.map((event) => make(
  'span', {}, draw('svg', {width: 12, height: 12, 'aria-hidden': 'true'},
                   draw('circle', {class: `happened ${event}`, cx: 6, cy: 6, r: 4})), event)));

function shorten(name, width) {
  const most = Math.floor(width / 7.2);
  return name.length > most ? `${name.slice(0, most - 1)}…` : name;
}

function labelOf(stays, lanes) {
  const last = stays.at(-1);
  const roams = stays.filter((stay, at) => at > 0 && stay.from === stays[at - 1].to).length;
  return `Where the client was: ${plural(stays.length, 'stay')} at ${plural(lanes.length, 'access point')}, ` +
    `${plural(roams, 'roam')}, last at ${last ? directory.nameOf(last.ap) : 'none'}. The table below has the same.`;
}

// `stays` as staysOf() makes them, `entries` of the history, both in the order of time, between `from` and `to` (ms).
export function drawLife({stays, entries, from, to}, width) {
  const lanes = [...new Set(stays.map(({ap}) => ap))];
  const left = Math.min(namesMax, width * .3);
  const height = above + Math.max(1, lanes.length) * lane + below;
  const x = (at) => left + (Math.min(Math.max(at, from), to) - from) / Math.max(1, to - from) * (width - left - 8);
  const y = (ap) => above + lanes.indexOf(ap) * lane + lane / 2;
  const ticks = ticksOf(from, to, Math.max(2, Math.floor((width - left) / 95))).flatMap(({at, label}) => [
    draw('line', {class: 'grid', x1: x(at), x2: x(at), y1: above, y2: height - below}),
    text(Math.min(width - 30, x(at)), height - 6, 'middle', label)]);
  const names = lanes.flatMap((ap) => [
    draw('line', {class: 'grid', x1: left, x2: width - 8, y1: y(ap), y2: y(ap)}),
    draw('text', {x: left - 10, y: y(ap) + 4, 'text-anchor': 'end', class: 'name'},
         shorten(directory.nameOf(ap), left - 10))]);
  const bars = stays.map((stay) => draw(
    'rect', {class: 'stay', x: x(stay.from), y: y(stay.ap) - bar / 2, width: Math.max(2, x(stay.to) - x(stay.from)),
             height: bar, rx: 2},
    draw('title', {}, `${directory.nameOf(stay.ap)}, ${directory.ssidOf(stay.bssid)}: ${time(stay.from)} to ` +
                      `${time(stay.to)} (${duration(stay.to - stay.from)})`)));
  const roams = stays.slice(1).filter((stay, at) => stay.from === stays[at].to && stay.ap !== stays[at].ap).map(
    (stay) => draw('line', {class: 'roam', x1: x(stay.from), x2: x(stay.from),
                            y1: y(stays[stays.indexOf(stay) - 1].ap), y2: y(stay.ap)}));
  const marks = entries.filter(({event, ap}) => marked.includes(event) && lanes.includes(ap)).map(
    ({event, ap, at, ip}) => draw(
      'circle', {class: `happened ${event}`, cx: x(Date.parse(at)), cy: y(ap), r: 4},
      draw('title', {}, `${event}${event === 'address' && ip ? ` ${ip}` : ''}, ${time(at)}`)));
  return frame(width, height, labelOf(stays, lanes), ...ticks, ...names, ...roams, ...bars, ...marks);
}
