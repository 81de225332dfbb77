// What happens on the site, as it comes.
import {clientLink} from './client_cells.js';
import {directory} from './directory.js';
import {make, name} from './dom.js';
import {count, plural, time} from './format.js';

const shownMax = 500;
const drawPause = 250;       // ms
const announcePause = 3000;
const kinds = ['associated', 'roamed', 'address', 'waiting', 'approved', 'left', 'found', 'access-point-up',
               'access-point-down'];

const recent = [];  // the newest last, also of the time before the view was opened

export function remember(event) {
  recent.push(event);
  if (recent.length > 2 * shownMax) {
    recent.splice(0, shownMax);
  }
}

// Marks that events are missing.
export const missed = () => ({kind: 'missed', data: {at: new Date().toISOString()}});

const texts = {
  missed: () => ['Events are missing here.'],
  associated: ({client, ap}) => [client, ' associated with ', ap],
  roamed: ({client, ap}) => [client, ' roamed to ', ap],
  address: ({client, ap, data}) => [client, ` has the address ${data.ip ?? '–'} at `, ap],
  waiting: ({client, ap}) => [client, ' waits for approval at ', ap],
  approved: ({client, ap}) => [client, ' is approved at ', ap],
  left: ({client, ap}) => [client, ' left ', ap],
  found: ({client, ap}) => [client, ' was found at ', ap],
  'access-point-up': ({peer}) => [peer, ' is connected'],
  'access-point-down': ({peer, data}) => [peer, ` is disconnected: ${data.reason}`],
};

function partsOf({kind, data}) {
  return (texts[kind] ?? (() => [kind]))({
    data,
    client: data.client ? clientLink(data.client) : '',
    ap: data.ap ? name(directory.nameOf(data.ap)) : '',
    peer: data.peer ? name(data.peer) : '',
  });
}

const rowOf = (event) => make('li', {class: `event ${event.kind}`},
                              make('time', {datetime: event.data.at}, time(event.data.at)),
                              make('span', {}, ...partsOf(event)));

export function showEvents(root, context, query) {
  const kind = make('select', {}, make('option', {value: ''}, 'all'),
                    ...kinds.map((each) => make('option', {value: each}, each.replaceAll('-', ' '))));
  const mac = make('input', {type: 'search', autocomplete: 'off', spellcheck: 'false', maxlength: 17});
  kind.value = kinds.includes(query.kind) ? query.kind : '';
  mac.value = query.mac ?? '';
  const pause = make('button', {type: 'button', 'aria-pressed': 'false', onclick: () => setPaused(!isPaused)}, 'Pause');
  const state = make('p', {class: 'found'});
  const announced = make('p', {class: 'unseen', role: 'log', 'aria-live': 'polite', 'aria-label': 'Latest event'});
  const list = make('ol', {class: 'events', 'aria-label': 'Events, the newest first'});
  root.append(make('form', {class: 'filters', oninput: () => redraw(), onsubmit: (event) => event.preventDefault()},
                   make('label', {}, 'Kind', kind), make('label', {}, 'MAC begins with', mac), pause),
              state, announced, list);
  let kept = recent.toReversed().slice(0, shownMax);  // the newest first
  let fresh = [];    // that are not shown yet, the oldest first
  let unsaid = [];
  let isPaused = false;
  let drawing = 0;
  let announcing = 0;

  const isWanted = (event) => event.kind === 'missed' || (kind.value === '' || event.kind === kind.value) &&
    (event.data.client ?? event.data.ap ?? '').startsWith(
      mac.value.trim().toLowerCase().replaceAll('-', ':'));

  function showState() {
    state.textContent = isPaused ? `Paused; ${plural(fresh.length, 'event')} since.` :
      kept.length === 0 ? 'Events appear here as they come.' : `${plural(list.childElementCount, 'event')} shown.`;
  }

  function drawFresh() {
    drawing = 0;
    if (!isPaused) {
      kept = [...fresh.toReversed(), ...kept].slice(0, shownMax);
      list.prepend(...fresh.slice(-shownMax).filter(isWanted).map(rowOf).toReversed());
      while (list.childElementCount > shownMax) {
        list.lastElementChild.remove();
      }
      fresh = [];
    }
    showState();
  }

  function redraw() {
    const words = new URLSearchParams({...(kind.value && {kind: kind.value}), ...(mac.value && {mac: mac.value})});
    context.navigate(`/events${words.size > 0 ? `?${words}` : ''}`, true);
    list.replaceChildren(...kept.filter(isWanted).map(rowOf));
    showState();
  }

  function setPaused(to) {
    isPaused = to;
    pause.setAttribute('aria-pressed', String(to));
    pause.textContent = to ? 'Go on' : 'Pause';
    drawFresh();
  }

  // One event is read out; of many at a time, how many.
  function announce() {
    announcing = 0;
    announced.textContent = unsaid.length === 1 ? rowOf(unsaid[0]).textContent : `${count(unsaid.length)} events`;
    unsaid = [];
  }

  redraw();
  return {
    event(event) {
      fresh.push(event);
      if (fresh.length > shownMax) {
        fresh.shift();
      }
      if (!isPaused && isWanted(event)) {
        unsaid.push(event);
        announcing ||= setTimeout(announce, announcePause);
      }
      drawing ||= setTimeout(drawFresh, drawPause);
    },
    end() {
      clearTimeout(drawing);
      clearTimeout(announcing);
    },
  };
}
