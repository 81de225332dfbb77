// Signing in by password, for a session, or by a token, which the tab keeps until it is closed.
import {make} from './dom.js';
import {Refusal, ask, session} from './server.js';

function explain(error) {
  return error instanceof Refusal ? `Not signed in: ${error.message}.` : 'The controller does not answer.';
}

function form(title, fields, send) {
  const button = make('button', {type: 'submit', class: 'main'}, title);
  const wrong = make('p', {class: 'wrong', role: 'alert'});
  const made = make('form', {class: 'sign-in'}, ...fields, button, wrong);
  made.addEventListener('submit', async (event) => {
    event.preventDefault();
    button.disabled = true;
    wrong.textContent = '';
    try {
      await send();
    } catch (error) {
      wrong.textContent = explain(error);
    } finally {
      button.disabled = false;
    }
  });
  return made;
}

// Calls `open` once somebody is signed in.
export function showSignIn(root, reason, open) {
  const name = make('input', {name: 'name', autocomplete: 'username', required: true, maxlength: 32});
  const password = make('input', {name: 'password', type: 'password', autocomplete: 'current-password', required: true,
                                  maxlength: 256});
  const token = make('input', {name: 'token', type: 'password', autocomplete: 'off', required: true, maxlength: 256,
                               'aria-describedby': 'token-help'});
  root.append(
    make('p', {class: 'reason'}, reason),
    form('Sign in', [make('label', {}, 'Name', name), make('label', {}, 'Password', password)], async () => {
      session.who = await ask('/session', {method: 'POST', body: {name: name.value, password: password.value}});
      await open();
    }),
    make('details', {class: 'other-way'}, make('summary', {}, 'Use a token'),
         form('Use the token', [
           make('label', {}, 'Token', token),
           make('p', {id: 'token-help', class: 'muted'},
                'As sitectl token-add prints it. It is kept until the tab is closed.'),
         ], async () => {
           session.token = token.value.trim();
           try {
             await open();
           } catch (error) {
             session.token = null;
             throw error;
           }
         })));
  name.focus();
}
