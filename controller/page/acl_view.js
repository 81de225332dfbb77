// MAC access lists: what each does with clients in general, and with single ones.
import {code, make, showKeyed} from './dom.js';
import {PagedList} from './paged_list.js';
import {ask, session, withQuery} from './server.js';

const verdictField = (attributes = {}) => make('select', attributes, make('option', {value: 'allow'}, 'allow'),
                                               make('option', {value: 'deny'}, 'deny'));

const nameOf = ({mac_acl_index: index, client}) =>
  client ?? (index === null ? 'VAPs without a list' : 'every other client');

function makeAddForm(add) {
  const index = make('input', {type: 'number', min: 0, max: 4294967295, required: true, name: 'index'});
  const mac = make('input', {required: true, autocomplete: 'off', spellcheck: 'false', name: 'mac', maxlength: 17,
                             pattern: '([0-9A-Fa-f]{2}[:\\-]){5}[0-9A-Fa-f]{2}', placeholder: '02:00:00:00:00:01',
                             title: 'a MAC address such as 02:00:00:00:00:01'});
  const verdict = verdictField({name: 'verdict'});
  return make('form', {class: 'filters', 'aria-label': 'Add a client to a list', onsubmit: async (event) => {
    event.preventDefault();
    if (await add(index.value, mac.value.toLowerCase().replaceAll('-', ':'), verdict.value)) {
      mac.value = '';
      mac.focus();
    }
  }}, make('label', {}, 'List', index), make('label', {}, 'Client', mac), make('label', {}, 'Verdict', verdict),
              make('button', {type: 'submit', class: 'main'}, 'Set'));
}

export function showAcl(root, context, query) {
  const mayChange = session.may('operator');
  const index = make('input', {type: 'number', min: 0, max: 4294967295, value: query.index ?? ''});
  const mac = make('input', {type: 'search', autocomplete: 'off', spellcheck: 'false', maxlength: 17,
                             value: query.mac ?? ''});
  const wrong = make('p', {class: 'wrong', role: 'alert'});
  const lists = make('div', {class: 'lists'});
  const list = new PagedList(show, (error) => {
    if (error.status === 400) {
      wrong.textContent = error.message;
    } else {
      context.report(error);
    }
  });
  root.append(...(mayChange ? [make('h2', {}, 'Set a verdict'), makeAddForm(add)] : []),
              make('h2', {}, 'Lists'),
              make('form', {class: 'filters', role: 'search', 'aria-label': 'Filter the lists',
                            oninput: () => choose(), onsubmit: (event) => event.preventDefault()},
                   make('label', {}, 'List', index), make('label', {}, 'MAC begins with', mac)),
              wrong, lists, list.more);

  function show(rows) {
    const byList = Map.groupBy(rows, (row) => row.mac_acl_index);
    showKeyed(lists, [...byList], ([number]) => number, createList, (section, [, ofList]) => {
      showKeyed(section.querySelector('ul'), ofList, ({client}) => client, createRow, updateRow);
    });
  }

  function createList([number]) {
    const title = number === null ? 'Without a list' : `List ${number}`;
    return make('section', {'aria-label': title}, make('h3', {}, title), make('ul', {class: 'cards'}));
  }

  function createRow(row) {
    const canSet = mayChange && row.mac_acl_index !== null;
    const called = nameOf(row);
    const where = `of list ${row.mac_acl_index}`;
    const verdict = canSet ? verdictField({'aria-label': `Verdict on ${called} ${where}`,
                                           onchange: () => set(row, verdict.value)}) : make('span', {class: 'mark'});
    verdict.classList.add('verdict');
    return make('li', {}, make('div', {}, row.client === null ? called : code(called)), verdict,
                canSet && row.client !== null ?
                  make('button', {type: 'button', 'aria-label': `Remove ${called} ${where}`,
                                  onclick: () => remove(row)}, 'Remove') : null);
  }

  function updateRow(element, {verdict}) {
    const field = element.querySelector('.verdict');
    if (field.localName !== 'select') {
      field.textContent = verdict;
    } else if (document.activeElement !== field || field.value !== verdict) {
      field.value = verdict;
    }
    element.classList.toggle('denied', verdict === 'deny');
  }

  const pathOf = (row) => `/acl/${row.mac_acl_index}/${row.client === null ? 'default' : `clients/${row.client}`}`;

  async function change(path, method, body, done) {
    const made = await context.attempt(() => ask(path, {method, body}));
    if (made) {
      context.say(done);
    }
    await list.read();
    return made;
  }

  const set = (row, verdict) => change(pathOf(row), 'PUT', {verdict},
                                       `List ${row.mac_acl_index}: ${verdict} ${nameOf(row)}.`);

  function add(number, client, verdict) {
    return set({mac_acl_index: Number(number), client}, verdict);
  }

  async function remove(row) {
    await change(pathOf(row), 'DELETE', null, `${row.client} is no longer in list ${row.mac_acl_index}.`);
    (lists.querySelector('button, select') ?? root.querySelector('h1')).focus();
  }

  function choose() {
    wrong.textContent = '';
    const words = {index: index.value, mac: mac.value.trim().replaceAll('-', ':')};
    context.navigate(withQuery('/acl', words), true);
    list.use(withQuery('/acl', words));
  }

  choose();
  return {refresh: () => list.read(), end: () => list.end()};
}
