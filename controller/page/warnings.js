// What an operator should look at, most urgent first: {level: "bad" or "warn", text}.
import {count, date, dayLength, duration, plural} from './format.js';

const certificateDays = 30;  // before the end
const waitingMax = 1000;     // changes that the store may have before it is said to lag
const namedMax = 5;

const lossTexts = {
  malformed: 'malformed records',
  frames_ignored: 'frames ignored',
  messages_unsent: 'messages not sent',
  tunnels_refused: 'tunnels refused',
  connections_displaced: 'connections displaced',
  accept_errors: 'connections not accepted',
  output_lines_dropped: 'lines of output dropped',
};

export const losses = (stats) => Object.entries(lossTexts).map(([key, text]) => ({key, text, number: stats[key] ?? 0}));

const called = ({name, ap}) => name ?? ap;

function list(aps) {
  const names = aps.slice(0, namedMax).map(called).join(', ');
  return aps.length > namedMax ? `${names} and ${count(aps.length - namedMax)} more` : names;
}

function ofCertificate(whose, end, now) {
  const left = Date.parse(end) - now;
  if (Number.isNaN(left) || left > certificateDays * dayLength) {
    return null;
  }
  return left <= 0 ? {level: 'bad', text: `The certificate of ${whose} ended on ${date(end)}.`} :
    {level: left < 7 * dayLength ? 'bad' : 'warn',
     text: `The certificate of ${whose} ends on ${date(end)}, in ${duration(left)}.`};
}

function ofAccessPoints(aps, now) {
  const wanted = aps.filter(({enrolment}) => enrolment !== 'revoked');
  const down = wanted.filter(({state}) => state === 'down');
  const made = down.length === 0 ? [] :
    [{level: 'bad',
      text: `${plural(down.length, 'access point has', 'access points have')} no tunnel: ${list(down)}.`}];
  return [...made, ...wanted.map((ap) => ofCertificate(called(ap), ap.certificate_expires, now)).filter(Boolean)];
}

function ofStore(store) {
  const made = [];
  if (store.fault !== '') {
    made.push({level: 'bad', text: `The store cannot be written: ${store.fault}. The controller serves from memory; ` +
                                   `${plural(store.waiting, 'change waits', 'changes wait')} to be stored.`});
  } else if (store.waiting > waitingMax) {
    made.push({level: 'warn',
               text: `The store lags: ${plural(store.waiting, 'change waits', 'changes wait')} to be stored.`});
  }
  if (store.changes_refused > 0) {
    made.push({level: 'bad', text: `${plural(store.changes_refused, 'change was', 'changes were')} refused because ` +
                                   'too many waited to be stored.'});
  }
  if (store.history_lost > 0) {
    made.push({level: 'warn', text: `${plural(store.history_lost, 'event is', 'events are')} missing in the ` +
                                    "clients' histories."});
  }
  if (!store.keeps) {
    made.push({level: 'warn', text: 'There is no store: everything is forgotten when the controller ends.'});
  } else if (!store.keeps_pmks) {
    made.push({level: 'warn', text: 'PMKs are kept in memory only: the store has no key.'});
  }
  return made;
}

export function warningsOf(aps, stats, now) {
  const lost = losses(stats).filter(({number}) => number > 0);
  const all = [
    ...ofAccessPoints(aps, now),
    ofCertificate('the controller', stats.certificate_expires, now),
    ofCertificate('this page', stats.http_certificate_expires, now),
    ...ofStore(stats.store),
    lost.length === 0 ? null :
      {level: 'warn',
       text: `Lost since the start: ${lost.map(({text, number}) => `${count(number)} ${text}`).join(', ')}.`},
  ].filter(Boolean);
  return [...all.filter(({level}) => level === 'bad'), ...all.filter(({level}) => level !== 'bad')];
}
