// Where a client was, and when, from its history.

// The stays of a history, {ap, bssid, from, to}, in the order of time. `entries` are in the order of time too; a client
// that is still `present` stays until `now` (ms).
export function staysOf(entries, present, now) {
  const stays = [];
  let open = null;
  const close = (at) => {
    if (open !== null) {
      open.to = at;
      stays.push(open);
      open = null;
    }
  };
  for (const {event, ap, bssid, at} of entries) {
    const when = Date.parse(at);
    if (event === 'left') {
      close(when);
    } else if (open === null || open.ap !== ap || open.bssid !== bssid) {
      close(when);
      open = {ap, bssid, from: when};
    }
  }
  close(present ? Math.max(now, open?.from ?? now) : entries.length > 0 ? Date.parse(entries.at(-1).at) : now);
  return stays;
}
