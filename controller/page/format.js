// Times and numbers for people, in the reader's time zone.

const number = new Intl.NumberFormat('en');
const clock = new Intl.DateTimeFormat('en-GB', {hour: '2-digit', minute: '2-digit', second: '2-digit'});
const hour = new Intl.DateTimeFormat('en-GB', {hour: '2-digit', minute: '2-digit'});
const day = new Intl.DateTimeFormat('en-GB', {day: 'numeric', month: 'short', year: 'numeric'});

export const minute = 60_000;  // ms
export const dayLength = 24 * 60 * minute;

export const count = (value) => number.format(value);
export const clockTime = (at) => clock.format(new Date(at));
export const hourTime = (at) => hour.format(new Date(at));
export const date = (at) => day.format(new Date(at));

// "15:04:05", and the date when it is not today's.
export function time(at) {
  const when = new Date(at);
  const today = when.toDateString() === new Date().toDateString();
  return today ? clockTime(when) : `${date(when)} ${clockTime(when)}`;
}

export function duration(ms) {
  if (ms < minute) {
    return `${Math.round(ms / 1000)} s`;
  }
  if (ms < 60 * minute) {
    return `${Math.round(ms / minute)} min`;
  }
  const hours = Math.floor(ms / (60 * minute));
  return hours < 48 ? `${hours} h ${Math.round(ms / minute) % 60} min` : `${Math.floor(ms / dayLength)} days`;
}

export function bytes(size) {
  const units = ['B', 'KiB', 'MiB', 'GiB', 'TiB'];
  let unit = 0;
  while (size >= 1024 && unit + 1 < units.length) {
    size /= 1024;
    unit++;
  }
  return `${unit === 0 || size >= 100 ? Math.round(size) : size.toFixed(1)} ${units[unit]}`;
}

export const plural = (value, one, many = `${one}s`) => `${count(value)} ${value === 1 ? one : many}`;
