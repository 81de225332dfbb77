// One client: where it is, where it was, and what an operator can do about it.
import {address, guestMark} from './client_cells.js';
import {directory} from './directory.js';
import {make, name, setText, showKeyed} from './dom.js';
import {dayLength, minute, time} from './format.js';
import {joinedHistory, staysOf} from './life.js';
import {drawLife, legend} from './life_picture.js';
import {Picture} from './picture.js';
import {Refusal, ask, session, withQuery} from './server.js';

const refreshPause = 300;   // ms
const drawPause = 10_000;
const pageEntries = 200;
const spans = [['', 'all that is read'], [60 * minute, 'the last hour'], [dayLength, 'the last day'],
               [7 * dayLength, 'the last week']];

const placeText = (ap, bssid) => make('span', {}, name(directory.nameOf(ap)), ', ', name(directory.ssidOf(bssid)));

function factsOf(row) {
  return [
    ['Served by', placeText(row.ap, row.bssid)],
    ['Home', row.home_ap === row.ap && row.home_bssid === row.bssid ? 'the same' :
      placeText(row.home_ap, row.home_bssid)],
    ['VLAN', row.home_vlan === null ? '–' : String(row.home_vlan)],
    ['IP address', address(row.ip)],
    ['Guest', guestMark(row.guest) || 'no'],
    ['PMK', row.pmk ? 'is kept' : 'none'],
    ['Name', row.name === null ? '–' : name(row.name)],
  ];
}

function historyRow(entry) {
  return make('tr', {}, make('td', {}, time(entry.at)), make('td', {}, entry.event),
              make('td', {}, name(entry.ap_name ?? entry.ap)), make('td', {}, name(entry.ssid ?? entry.bssid)),
              make('td', {}, address(entry.ip)));
}

export function showClient(root, context, mac) {
  const facts = make('dl', {class: 'facts'});
  const actions = make('div', {class: 'actions'});
  const picture = new Picture(drawLife);
  const span = make('select', {onchange: () => drawAll()},
                    ...spans.map(([ms, title]) => make('option', {value: ms}, title)));
  const older = make('button', {type: 'button', onclick: () => readOlder(), hidden: true}, 'Read older entries');
  const body = make('tbody');
  const state = make('p', {class: 'found', 'aria-live': 'polite'});
  root.append(make('p', {}, make('a', {href: '#/clients'}, 'All clients')), state, facts, actions,
              make('h2', {}, 'Life'), make('form', {class: 'filters'}, make('label', {}, 'Show', span)),
              picture.element, legend(), make('h2', {}, 'History'),
              make('div', {class: 'wide', tabindex: 0, role: 'region', 'aria-label': 'History'},
                   make('table', {class: 'plain'}, make('thead', {}, make(
                     'tr', {}, ...['Time', 'Event', 'Access point', 'Network', 'IP address'].map(
                       (title) => make('th', {scope: 'col'}, title)))), body)), older);
  let row = null;
  let entries = [];  // the newest first
  let refreshing = 0;
  let ended = false;

  const act = (path, method, done) => context.attempt(async () => {
    await ask(path, {method});
    context.say(done);
    await read();
  });

  function actionsOf() {
    if (row === null || !session.may('operator')) {
      return [];
    }
    const approval = `/guests/${mac}/approval`;
    return [
      row.guest !== 'waiting' ? null :
        {title: 'Approve', kind: 'main', run: () => act(approval, 'PUT', `${mac} is approved.`)},
      row.guest !== 'approved' ? null :
        {title: 'Revoke the approval', kind: '',
         run: () => act(approval, 'DELETE', `The approval of ${mac} is revoked.`)},
      {title: 'Remove from the site', kind: 'danger', run: () => confirm(`Remove ${mac} from every access point?`) &&
        act(`/clients/${mac}`, 'DELETE', `${mac} is removed.`)},
    ].filter(Boolean);
  }

  function showRow() {
    setText(state, row === null ? 'The client is not on the site now.' : '');
    showKeyed(facts, row === null ? [] : factsOf(row), ([title]) => title,
              ([title]) => make('div', {}, make('dt', {}, title), make('dd')),
              (element, [, value]) => element.lastChild.replaceChildren(value));
    showKeyed(actions, actionsOf(), ({title}) => title,
              ({title, kind, run}) => make('button', {type: 'button', class: kind, onclick: run}, title), () => {});
  }

  function drawAll() {
    const now = Date.now();
    const inOrder = entries.toReversed();
    const stays = staysOf(inOrder, row !== null, now);
    const first = stays[0]?.from ?? now - 60 * minute;
    const to = row !== null ? now : stays.at(-1)?.to ?? now;
    const from = span.value === '' ? Math.min(first, to - minute) : now - Number(span.value);
    picture.show({stays: stays.filter((stay) => stay.to >= from),
                  entries: inOrder.filter(({at}) => Date.parse(at) >= from), from, to: Math.max(to, from + minute)});
  }

  function showAll() {
    showRow();
    showKeyed(body, entries, ({number}) => number, historyRow, () => {});
    drawAll();
  }

  async function readRow() {
    try {
      return await ask(`/clients/${mac}`);
    } catch (error) {
      if (error instanceof Refusal && error.status === 404) {
        return null;
      }
      throw error;
    }
  }

  const readHistory = (cursor) => ask(withQuery(`/clients/${mac}/history`, {limit: pageEntries, cursor}));

  async function read() {
    try {
      const [found, page] = await Promise.all([readRow(), readHistory(null)]);
      if (ended) {
        return;
      }
      row = found;
      const joined = joinedHistory(page.items, entries);
      older.hidden = joined.length === page.items.length ? page.next === null : older.hidden;
      entries = joined;
      showAll();
    } catch (error) {
      context.report(error);
    }
  }

  const readOlder = () => context.attempt(async () => {
    const page = await readHistory(entries.at(-1).number);
    entries = [...entries, ...page.items];
    older.hidden = page.next === null;
    showAll();
  });

  directory.addEventListener('change', showAll);
  read();
  const drawing = setInterval(drawAll, drawPause);
  return {
    event({data}) {
      if (data.client === mac) {
        refreshing ||= setTimeout(() => {
          refreshing = 0;
          read();
        }, refreshPause);
      }
    },
    refresh: read,
    end() {
      ended = true;
      clearTimeout(refreshing);
      clearInterval(drawing);
      directory.removeEventListener('change', showAll);
      picture.end();
    },
  };
}
