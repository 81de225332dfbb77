// The site at a glance: what needs attention, numbers, access points.
import {directory} from './directory.js';
import {code, make, name, showKeyed} from './dom.js';
import {bytes, count, date} from './format.js';
import {Picture} from './picture.js';
import {drawRoams} from './roam_picture.js';
import {ask} from './server.js';
import {losses, warningsOf} from './warnings.js';
import {ArrayRows, WindowTable} from './window_table.js';

const pageRows = 200;    // access points that one request brings
const pause = 5000;      // ms between readings, for each such request

const stateMark = (state) => make('span', {class: `mark state-${state}`}, state);

// Records a second since the reading before, by access point.
class Rates {
  #before = new Map();
  #rates = new Map();

  take(aps, now) {
    for (const {ap, records} of aps) {
      const before = this.#before.get(ap);
      if (records !== null) {
        const passed = before ? (now - before.now) / 1000 : 0;
        this.#rates.set(ap, passed > 0 && records >= before.records ? (records - before.records) / passed : null);
        this.#before.set(ap, {now, records});
      }
    }
  }

  of(ap) {
    const rate = this.#rates.get(ap);
    return rate === null || rate === undefined ? '–' : rate < 10 ? rate.toFixed(1) : count(Math.round(rate));
  }
}

const apColumns = (rates) => [
  {title: 'Access point', kind: 'ap', cell: (row) => make('span', {}, name(row.name ?? '–'), code(row.ap))},
  {title: 'State', kind: 'state', cell: (row) => stateMark(row.enrolment === 'revoked' ? 'revoked' : row.state)},
  {title: 'Clients', kind: 'number', cell: (row) => make(
    'a', {href: `#/clients?ap=${encodeURIComponent(row.ap)}`, tabindex: -1}, count(row.stations))},
  {title: 'Records/s', kind: 'number rate', cell: (row) => rates.of(row.ap)},
  {title: 'Lost', kind: 'number lost', cell: (row) => count(Object.values(row.lost).reduce((a, b) => a + b))},
  {title: 'Networks', kind: 'ssid', cell: (row) => make('span', {}, ...row.vaps.flatMap(({ssid, bssid, vlan}, at) => [
    at > 0 ? ', ' : '', name(ssid ?? bssid), make('span', {class: 'muted'}, ` VLAN ${vlan}`)]))},
  {title: 'Address', kind: 'ip', cell: (row) => row.address ?? '–'},
  {title: 'Certificate ends', kind: 'end', cell: (row) => /^\d/.test(row.certificate_expires ?? '') ?
    date(row.certificate_expires) : '–'},
];

function numbersOf(stats, aps) {
  const wanted = aps.filter(({enrolment}) => enrolment !== 'revoked');
  const up = wanted.filter(({state}) => state === 'up').length;
  return [
    ['Access points', `${count(up)} of ${count(wanted.length)}`, 'up'],
    ['Clients', count(stats.clients ?? 0), 'on the site'],
    ['Guests waiting', count(stats.guests_waiting ?? 0), `${count(stats.guests_approved ?? 0)} approved`],
    ['Records', count(stats.records_per_second), 'a second'],
    ['Roams', count(stats.roams ?? 0), 'since the start'],
    ['Store', stats.store.fault !== '' ? 'fault' : stats.store.keeps ? bytes(stats.store.bytes) : 'none',
     `${count(stats.store.waiting)} waiting`],
  ];
}

function numberTile([title]) {
  return make('div', {class: 'tile'}, make('dt', {}, title), make('dd', {}, make('b'), make('span', {class: 'muted'})));
}

function fillTile(tile, [, value, unit]) {
  tile.querySelector('b').textContent = value;
  tile.querySelector('span').textContent = unit;
}

export function showSite(root, context) {
  const rates = new Rates();
  const rows = new ArrayRows();
  const warnings = make('ul', {class: 'warnings', 'aria-label': 'Warnings'});
  const numbers = make('dl', {class: 'tiles'});
  const roams = new Picture(drawRoams);
  const lost = make('dl', {class: 'losses'});
  const table = new WindowTable({label: 'Access points', kind: 'aps', columns: apColumns(rates), rows,
                                 open: (row) => context.navigate(`/clients?ap=${encodeURIComponent(row.ap)}`)});
  root.append(warnings, numbers, make('h2', {}, 'Access points'), table.element,
              make('div', {class: 'beside'},
                   make('section', {}, make('h2', {}, 'Roams per minute'), roams.element),
                   make('section', {}, make('h2', {}, 'Losses since the start'), lost)));
  let timer = 0;
  let isSoon = false;
  let ended = false;

  function show(stats, minutes) {
    const aps = directory.aps;
    rows.all = aps;
    showKeyed(numbers, numbersOf(stats, aps), ([title]) => title, numberTile, fillTile);
    const all = warningsOf(aps, stats, Date.now());
    showKeyed(warnings, all.length > 0 ? all : [{level: 'good', text: 'All is well.'}], ({text}) => text,
              ({level, text}) => make('li', {class: level}, text), () => {});
    roams.show(minutes);
    showKeyed(lost, losses(stats), ({key}) => key, ({text}) => make('div', {}, make('dt', {}, text), make('dd')),
              (element, {number}) => {
                element.lastChild.textContent = count(number);
                element.classList.toggle('some', number > 0);
              });
    table.draw();
  }

  async function read() {
    clearTimeout(timer);
    isSoon = false;
    try {
      const [stats, {items}] = await Promise.all([ask('/stats'), ask('/roams?minutes=60'), directory.load()]);
      if (!ended) {
        rates.take(directory.aps, performance.now());
        show(stats, items);
      }
    } catch (error) {
      context.report(error);
    }
    if (!ended && !isSoon) {
      clearTimeout(timer);
      timer = setTimeout(read, pause * Math.max(1, Math.ceil(rows.count / pageRows)));
    }
  }

  read();
  return {
    event({kind}) {
      if (kind.startsWith('access-point-') && !isSoon) {
        isSoon = true;
        clearTimeout(timer);
        timer = setTimeout(read, 300);
      }
    },
    refresh: read,
    end() {
      ended = true;
      clearTimeout(timer);
      table.end();
      roams.end();
    },
  };
}
