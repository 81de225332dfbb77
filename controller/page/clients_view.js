// All clients of the site: a table that the controller filters while the operator types.
import {address, clientCell, guestMark, placeOf} from './client_cells.js';
import {CursorRows} from './cursor_rows.js';
import {directory} from './directory.js';
import {make, name, setText} from './dom.js';
import {count, plural} from './format.js';
import {ask, withQuery} from './server.js';
import {WindowTable} from './window_table.js';

const typingPause = 100;  // ms
const refreshPause = 1000;
const countPause = 5000;

const columns = [
  {title: 'Client', kind: 'client', cell: (row) => make('span', {}, ...clientCell(row))},
  {title: 'IP address', kind: 'ip', cell: (row) => address(row.ip)},
  {title: 'Access point', kind: 'ap', cell: placeOf},
  {title: 'Network', kind: 'ssid', cell: (row) => name(row.ssid ?? row.bssid)},
  {title: 'VLAN', kind: 'vlan', cell: (row) => row.home_vlan === null ? '–' : String(row.home_vlan)},
  {title: 'Home', kind: 'home', cell: (row) => row.home_ap === row.ap ? '' : name(row.home_ap_name ?? row.home_ap)},
  {title: 'Guest', kind: 'guest', cell: (row) => guestMark(row.guest)},
];

function makeFilters(words) {
  const text = (attributes) => make('input', {type: 'search', autocomplete: 'off', spellcheck: 'false', ...attributes});
  const made = {
    mac: text({placeholder: '02:57:', maxlength: 17}),
    name: text({maxlength: 64}),
    ap: text({list: 'ap-names', placeholder: 'name or MAC', maxlength: 64}),
    ssid: make('select', {}, make('option', {value: ''}, 'any')),
    state: make('select', {}, ...[['', 'any'], ['waiting', 'waiting guests'], ['approved', 'approved guests'],
                                  ['none', 'no guests'], ['unknown', 'not known']].map(
      ([value, title]) => make('option', {value}, title))),
  };
  for (const [word, field] of Object.entries(made)) {
    field.name = word;
    field.value = words[word] ?? '';
  }
  return made;
}

// An access point that is typed half is no filter yet, but an error at the controller.
function wordsOf(filters) {
  const words = Object.fromEntries(Object.entries(filters).map(([word, field]) => [word, field.value.trim()]));
  words.mac = words.mac.replaceAll('-', ':');
  const isWhole = words.ap === '' || directory.aps.length === 0 ||
                  directory.aps.some(({ap, name: called}) => ap === words.ap || called === words.ap);
  filters.ap.setAttribute('aria-invalid', String(!isWhole));
  return isWhole ? words : {...words, ap: ''};
}

export function showClients(root, context, query) {
  const filters = makeFilters(query);
  const found = make('p', {class: 'found', 'aria-live': 'polite'});
  const wrong = make('p', {class: 'wrong', role: 'alert'});
  const apNames = make('datalist', {id: 'ap-names'});
  const rows = new CursorRows('/clients', {changed, failed});
  const table = new WindowTable({label: 'Clients', kind: 'clients', columns, rows,
                                 open: (row) => context.navigate(`/clients/${row.client}`)});
  const form = make('form', {class: 'filters', role: 'search', 'aria-label': 'Filter the clients',
                             oninput: () => typed(), onsubmit: (event) => event.preventDefault()},
                    make('label', {}, 'MAC begins with', filters.mac), make('label', {}, 'Name contains', filters.name),
                    make('label', {}, 'Access point', filters.ap), make('label', {}, 'Network', filters.ssid),
                    make('label', {}, 'Guests', filters.state), apNames);
  root.append(form, wrong, found, table.element);
  let typing = 0;
  let refreshing = 0;
  let total = null;

  function isFiltered(words) {
    return Object.values(words).some((word) => word !== '');
  }

  function filter() {
    const words = wordsOf(filters);
    wrong.textContent = '';
    rows.expected = isFiltered(words) ? null : total;
    table.element.setAttribute('aria-busy', 'true');
    rows.filter(words);
    table.toTop();
    context.navigate(withQuery('/clients', words), true);
  }

  function typed() {
    clearTimeout(typing);
    typing = setTimeout(filter, typingPause);
  }

  function changed() {
    table.element.setAttribute('aria-busy', 'false');
    const known = rows.isComplete ? rows.known : Math.max(rows.expected ?? 0, rows.known);
    setText(found, rows.isComplete || rows.expected !== null ? plural(known, 'client') :
      rows.known === 0 ? 'Searching…' : `${count(known)} clients or more`);
    table.draw();
  }

  function failed(error) {
    if (error.status === 400) {
      wrong.textContent = error.message;
      found.textContent = '';
      table.element.setAttribute('aria-busy', 'false');
    } else {
      context.report(error);
    }
  }

  async function readTotal() {
    try {
      total = (await ask('/stats')).clients ?? null;
      if (rows.expected !== null || !isFiltered(wordsOf(filters))) {
        rows.expected = total;
        changed();
      }
    } catch (error) {
      failed(error);
    }
  }

  function showNames() {
    const {value} = filters.ssid;
    const wanted = value || query.ssid || '';
    const ssids = new Set([...directory.ssids, ...(wanted ? [wanted] : [])]);
    filters.ssid.replaceChildren(make('option', {value: ''}, 'any'),
                                 ...[...ssids].map((ssid) => make('option', {value: ssid}, ssid)));
    filters.ssid.value = wanted;
    apNames.replaceChildren(...directory.aps.map(({ap, name: called}) => make('option', {value: called ?? ap})));
  }

  function shownRange() {
    const macs = [...table.body.children].map((element) => element.row?.client).filter(Boolean).sort();
    return [macs[0] ?? '', macs.at(-1) ?? 'g'];
  }

  function refreshSoon() {
    refreshing ||= setTimeout(() => {
      refreshing = 0;
      rows.refresh();
    }, refreshPause);
  }

  showNames();
  directory.addEventListener('change', showNames);
  filter();
  readTotal();
  const counting = setInterval(readTotal, countPause);
  return {
    event({data}) {
      const [first, last] = shownRange();
      if (data.client && data.client >= first && (data.client <= last || rows.isComplete)) {
        refreshSoon();
      }
    },
    refresh() {
      rows.refresh();
      readTotal();
    },
    end() {
      clearTimeout(typing);
      clearTimeout(refreshing);
      clearInterval(counting);
      directory.removeEventListener('change', showNames);
      table.end();
    },
  };
}
