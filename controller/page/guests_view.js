// Guests that wait for approval, and those that have one.
import {address, clientLink, placeOf} from './client_cells.js';
import {make, name, setText, showKeyed} from './dom.js';
import {plural} from './format.js';
import {PagedList} from './paged_list.js';
import {ask, session, withQuery} from './server.js';

const refreshPause = 300;  // ms
const kinds = ['waiting', 'approved', 'left', 'roamed', 'address', 'associated', 'found'];

export function showGuests(root, context, query) {
  const state = make('select', {onchange: () => choose()}, make('option', {value: 'waiting'}, 'waiting'),
                     make('option', {value: 'approved'}, 'approved'));
  state.value = query.state === 'approved' ? 'approved' : 'waiting';
  const mac = make('input', {type: 'search', autocomplete: 'off', spellcheck: 'false', maxlength: 17,
                             value: query.mac ?? ''});
  const found = make('p', {class: 'found', 'aria-live': 'polite'});
  const wrong = make('p', {class: 'wrong', role: 'alert'});
  const items = make('ul', {class: 'cards', 'aria-label': 'Guests'});
  const list = new PagedList(show, (error) => {
    if (error.status === 400) {
      wrong.textContent = error.message;
    } else {
      context.report(error);
    }
  });
  root.append(make('form', {class: 'filters', oninput: () => choose(), onsubmit: (event) => event.preventDefault()},
                   make('label', {}, 'Guests', state), make('label', {}, 'MAC begins with', mac)),
              wrong, found, items, list.more);
  let refreshing = 0;

  function show(rows, isAll) {
    setText(found, rows.length === 0 ? `No guest is ${state.value}.` :
      `${plural(rows.length, 'guest')}${isAll ? '' : ' or more'}`);
    showKeyed(items, rows, ({client, guest}) => `${client} ${guest}`, create, update);
  }

  function create({client, guest}) {
    const isWaiting = guest === 'waiting';
    const button = make('button', {type: 'button', class: isWaiting ? 'main' : '',
                                   'aria-label': `${isWaiting ? 'Approve' : 'Revoke'} ${client}`,
                                   onclick: () => decide(client, isWaiting, button)},
                        isWaiting ? 'Approve' : 'Revoke');
    return make('li', {}, make('div', {}, clientLink(client), make('span', {class: 'called'}),
                               make('span', {class: 'muted'})),
                session.may('operator') ? button : null);
  }

  function update(element, row) {
    element.querySelector('.called').replaceChildren(row.name === null ? '' : name(row.name));
    element.querySelector('.muted').replaceChildren(placeOf(row), ', ', name(row.ssid ?? row.bssid), ', ',
                                                    address(row.ip));
  }

  // The focus goes to the next guest, since this one's button is about to go.
  function focusNext(element) {
    const next = element.nextElementSibling ?? element.previousElementSibling;
    (next?.querySelector('button') ?? root.querySelector('h1')).focus();
  }

  async function decide(client, isWaiting, button) {
    button.disabled = true;
    const done = await context.attempt(() => ask(`/guests/${client}/approval`, {method: isWaiting ? 'PUT' : 'DELETE'}));
    button.disabled = false;
    if (done) {
      context.say(isWaiting ? `${client} is approved.` : `The approval of ${client} is revoked.`);
      focusNext(button.closest('li'));
    }
    list.read();
  }

  function choose() {
    wrong.textContent = '';
    const words = {state: state.value, mac: mac.value.trim().replaceAll('-', ':')};
    context.navigate(withQuery('/guests', words), true);
    list.use(withQuery('/guests', words));
  }

  choose();
  return {
    event({kind}) {
      if (kinds.includes(kind)) {
        refreshing ||= setTimeout(() => {
          refreshing = 0;
          list.read();
        }, refreshPause);
      }
    },
    refresh: () => list.read(),
    end() {
      clearTimeout(refreshing);
      list.end();
    },
  };
}
