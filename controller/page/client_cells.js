// How a client is shown in tables.
import {code, make, name} from './dom.js';

export const clientLink = (mac, attributes = {}) => make('a', {href: `#/clients/${mac}`, ...attributes}, code(mac));

export const clientCell = (row) => [clientLink(row.client, {tabindex: -1}), row.name === null ? '' : name(row.name)];

export const address = (ip) => (ip === '0.0.0.0' || ip === null ? '–' : ip);

export const placeOf = (row) => make('span', {}, name(row.ap_name ?? row.ap));

const guestTexts = {none: '', waiting: 'waiting', approved: 'approved', unknown: 'not known'};

export function guestMark(state) {
  return guestTexts[state] === '' ? '' : make('span', {class: `mark guest-${state}`}, guestTexts[state]);
}
