// How many clients roamed in each of the last minutes.
import {make} from './dom.js';
import {count, hourTime, plural} from './format.js';
import {Picture} from './picture.js';
import {drawRoams} from './roam_picture.js';
import {ask} from './server.js';

const pause = 5000;  // ms
const spans = [[60, 'the last hour'], [360, 'the last 6 hours'], [1440, 'the last day']];

export function showRoams(root, context, query) {
  const span = make('select', {onchange: () => {
    context.navigate(`/roams?minutes=${span.value}`, true);
    read();
  }}, ...spans.map(([minutes, title]) => make('option', {value: minutes}, title)));
  span.value = spans.some(([minutes]) => String(minutes) === query.minutes) ? query.minutes : 60;
  const picture = new Picture(drawRoams);
  const summary = make('p', {class: 'found'});
  const body = make('tbody');
  root.append(make('form', {class: 'filters'}, make('label', {}, 'Show', span)), summary, picture.element,
              make('details', {}, make('summary', {}, 'As a table'), make(
                'table', {class: 'plain'}, make('thead', {}, make(
                  'tr', {}, make('th', {scope: 'col'}, 'Minute'), make('th', {scope: 'col'}, 'Roams'))), body)));
  let timer = 0;
  let ended = false;

  function show(minutes) {
    const all = minutes.map(({roams}) => roams);
    const sum = all.reduce((one, other) => one + other, 0);
    summary.textContent = `${plural(sum, 'roam')} in ${plural(all.length, 'minute')}, ` +
      `at most ${count(Math.max(0, ...all))} in one.`;
    picture.show(minutes);
    body.replaceChildren(...minutes.toReversed().map(({start, roams}) => make(
      'tr', {}, make('td', {}, hourTime(start)), make('td', {class: 'number'}, count(roams)))));
  }

  async function read() {
    clearTimeout(timer);
    try {
      const {items} = await ask(`/roams?minutes=${span.value}`);
      if (!ended) {
        show(items);
      }
    } catch (error) {
      context.report(error);
    }
    if (!ended) {
      clearTimeout(timer);
      timer = setTimeout(read, pause);
    }
  }

  read();
  return {
    refresh: read,
    end() {
      ended = true;
      clearTimeout(timer);
      picture.end();
    },
  };
}
