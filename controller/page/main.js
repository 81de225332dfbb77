// The frame around the views: who is signed in, which view is shown, and whether there is a connection.
import {showAcl} from './acl_view.js';
import {showClient} from './client_view.js';
import {showClients} from './clients_view.js';
import {directory} from './directory.js';
import {make} from './dom.js';
import {missed, remember, showEvents} from './events_view.js';
import {Feed} from './feed.js';
import {clockTime} from './format.js';
import {showGuests} from './guests_view.js';
import {showRoams} from './roams_view.js';
import {Refusal, ask, session} from './server.js';
import {showSignIn} from './sign_in_view.js';
import {showSite} from './site_view.js';

// A view's function fills its element and returns what it is told of: event(event), refresh() and end(), all optional.
const views = [
  {path: '/', title: 'Site', show: showSite},
  {path: '/clients', title: 'Clients', show: showClients},
  {path: '/guests', title: 'Guests', show: showGuests},
  {path: '/acl', title: 'Access lists', show: showAcl},
  {path: '/events', title: 'Events', show: showEvents},
  {path: '/roams', title: 'Roams', show: showRoams},
];
const clientPath = /^\/clients\/((?:[0-9a-f]{2}:){5}[0-9a-f]{2})$/;

const main = document.getElementById('main');
const bar = document.getElementById('bar');
const connection = document.getElementById('connection');
let present = {};  // what the view that is shown is told of
let wasShown = false;
let wasLost = false;
let sayTimer = 0;

// Says what has happened, for everybody to read or hear.
function say(text, isBad = false) {
  const said = document.getElementById('said');
  said.textContent = text;
  said.classList.toggle('bad', isBad);
  clearTimeout(sayTimer);
  sayTimer = setTimeout(() => { said.textContent = ''; }, isBad ? 12_000 : 6_000);
}

function showConnection(text) {
  connection.textContent = text;
  connection.hidden = text === '';
}

// Runs `work`, and says why when it was refused. False then.
async function attempt(work) {
  try {
    await work();
    return true;
  } catch (error) {
    report(error);
    return false;
  }
}

function report(error) {
  if (error.name === 'AbortError') {
    return;
  }
  if (error instanceof Refusal && error.status === 401) {
    signIn('The session has ended. Sign in again.');
  } else {
    say(error instanceof Refusal ? `Refused: ${error.message}` : 'The controller does not answer.', true);
  }
}

const feed = new Feed({
  event(event) {
    if (event.kind === 'start') {
      return;
    }
    const happened = event.kind === 'reset' ? missed() : event;
    remember(happened);
    directory.event(happened);
    present.event?.(happened);
    if (event.kind === 'reset') {
      directory.load().catch(report);
      present.refresh?.();
    }
  },
  connected() {
    showConnection('');
    if (wasLost) {
      wasLost = false;
      say('The connection is back.');
      present.refresh?.();
    }
  },
  lost(reason) {
    wasLost = true;
    showConnection(reason !== '' ? `The controller sends no events: ${reason}. Trying again…` :
      `No connection to the controller since ${clockTime(Date.now())}. What is shown is as of then. Trying again…`);
  },
  refused() {
    signIn('The session has ended. Sign in again.');
  },
});

const context = {say, attempt, report, navigate};

function readPlace() {
  const [path, query = ''] = location.hash.replace(/^#/, '').split('?');
  return {path: path || '/', query: Object.fromEntries(new URLSearchParams(query))};
}

// Goes to a place; `replace` changes the address of the present view only.
function navigate(place, replace = false) {
  if (replace) {
    history.replaceState(null, '', `#${place}`);
  } else {
    location.hash = place;
  }
}

function showView() {
  const {path, query} = readPlace();
  const ofClient = clientPath.exec(path);
  const found = views.find((view) => view.path === path);
  const title = ofClient ? ofClient[1] : found?.title ?? 'Not found';
  replaceView(title);
  if (ofClient) {
    present = showClient(main, context, ofClient[1]);
  } else if (found) {
    present = found.show(main, context, query);
  } else {
    main.append(make('p', {}, 'There is no such view.'));
  }
  for (const link of document.querySelectorAll('#views a')) {
    const isPresent = link.hash === `#${ofClient ? '/clients' : path}`;
    isPresent ? link.setAttribute('aria-current', 'page') : link.removeAttribute('aria-current');
  }
}

// The heading of each view but the first gets the focus, so that the next key continues from there and screen readers
// read it.
function replaceView(title) {
  present.end?.();
  present = {};
  document.title = `${title} – Site controller`;
  const heading = make('h1', {tabindex: '-1'}, title);
  main.replaceChildren(heading);
  if (wasShown) {
    heading.focus({preventScroll: true});
    window.scrollTo(0, 0);
  }
  wasShown = true;
}

function signIn(reason = '') {
  feed.stop();
  session.who = null;
  session.token = null;
  bar.hidden = true;
  showConnection('');
  replaceView('Sign in');
  showSignIn(main, reason, open);
}

// Shows the page for who is signed in.
async function open() {
  session.who = await ask('/session');
  document.getElementById('who').replaceChildren(make('bdi', {}, session.who.name), ` (${session.who.role})`);
  bar.hidden = false;
  directory.load().catch(report);
  showView();
  feed.start();
}

async function signOut() {
  if (!session.token && !await attempt(() => ask('/session', {method: 'DELETE'}))) {
    return;
  }
  signIn('You are signed out.');
}

// A link may bring a token, "#token=ID.SECRET". It does not stay in the address.
function takeTokenOfLink() {
  const found = /^#token=([\w.-]+)$/.exec(location.hash);
  if (found) {
    session.token = found[1];
    navigate('/', true);
  }
  return found !== null;
}

async function start() {
  document.getElementById('views').append(
    ...views.map((view) => make('a', {href: `#${view.path}`}, view.title)));
  document.getElementById('sign-out').addEventListener('click', signOut);
  document.getElementById('skip').addEventListener('click', (event) => {
    event.preventDefault();
    (main.querySelector('h1') ?? main).focus();
  });
  window.addEventListener('hashchange', () => {
    if (takeTokenOfLink()) {
      location.reload();
    } else if (session.who) {
      showView();
    }
  });
  takeTokenOfLink();
  try {
    await open();
  } catch (error) {
    if (error instanceof Refusal && error.status === 401) {
      signIn();
    } else {
      signIn('The controller does not answer.');
    }
  }
}

start();
