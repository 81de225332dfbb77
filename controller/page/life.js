// A client's history, and from it where the client was, and when.

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

// The newest entries, and after them those that were read before, both the newest first. When the newest do not reach
// them there may be others between, and they are dropped.
export function joinedHistory(newest, before) {
  const oldest = newest.at(-1)?.number ?? 0;
  return before[0]?.number >= oldest ? [...newest, ...before.filter(({number}) => number < oldest)] : newest;
}
