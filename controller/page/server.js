// Requests to the controller, and who sends them.

export class Refusal extends Error {
  constructor(status, detail) {
    super(detail);
    this.status = status;
  }
}

const tokenKey = 'token';  // in the tab's storage, until the tab is closed
const roles = ['viewer', 'operator', 'admin'];

class Session {
  who = null;  // {name, role, csrf_token}

  get token() {
    return sessionStorage.getItem(tokenKey);
  }

  set token(text) {
    if (text) {
      sessionStorage.setItem(tokenKey, text);
    } else {
      sessionStorage.removeItem(tokenKey);
    }
  }

  may(role) {
    return this.who !== null && roles.indexOf(this.who.role) >= roles.indexOf(role);
  }

  // Header fields of a request.
  fields(isChange) {
    if (this.token) {
      return {Authorization: `Bearer ${this.token}`};
    }
    return isChange && this.who ? {'X-CSRF-Token': this.who.csrf_token} : {};
  }
}

export const session = new Session();

async function read(answer) {
  const isJson = (answer.headers.get('Content-Type') ?? '').includes('json');
  const content = isJson ? await answer.json() : null;
  if (!answer.ok) {
    throw new Refusal(answer.status, content?.detail ?? answer.statusText);
  }
  return content;
}

// What the path answers. Throws a Refusal, or a TypeError when there is no connection.
export async function ask(path, {method = 'GET', body = null, signal = null} = {}) {
  const headers = session.fields(method !== 'GET');
  if (body !== null) {
    headers['Content-Type'] = 'application/json';
  }
  const answer = await fetch(`/api/v1${path}`,
                             {method, headers, signal, body: body === null ? null : JSON.stringify(body)});
  return read(answer);
}

// "/clients?mac=02" without the words that are empty.
export function withQuery(path, words) {
  const given = Object.entries(words).filter(([, value]) => value !== '' && value !== null && value !== undefined);
  return given.length === 0 ? path : `${path}?${new URLSearchParams(given)}`;
}

// All items of a listing.
export async function askAll(path, signal = null) {
  const items = [];
  let cursor = null;
  do {
    const page = await ask(withQuery(path, {limit: 200, cursor}), {signal});
    items.push(...page.items);
    cursor = page.next;
  } while (cursor !== null);
  return items;
}
