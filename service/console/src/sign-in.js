import { api } from './api.js';
import { $, showView } from './ui.js';

// The sign-in form. `onSignedIn(agent)` runs once the service accepted the name and password.
export function signInView({ onSignedIn }) {
  const form = $('sign-in-form');
  const name = $('sign-in-name');
  const password = $('sign-in-password');
  const error = $('sign-in-error');
  const submit = $('sign-in-submit');

  const say = (message) => {
    error.textContent = message;
    form.classList.toggle('has-error', message !== '');
  };

  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    if (name.value.trim() === '' || password.value === '') {
      say('Enter your name and password.');
      (name.value.trim() === '' ? name : password).focus();
      return;
    }
    submit.disabled = true;
    say('');
    try {
      const agent = await api.signIn(name.value.trim(), password.value);
      password.value = '';
      onSignedIn(agent);
    } catch (err) {
      if (err.status === 401) {
        say('Wrong name or password.');
        password.select();
      } else if (err.status === 429) {
        const minutes = err.retryAfterSeconds === undefined ? undefined : Math.max(1, Math.ceil(err.retryAfterSeconds / 60));
        say(`Too many failed sign-ins. Try again ${minutes ? `in ${minutes} minute${minutes === 1 ? '' : 's'}` : 'later'}.`);
      } else if (err.unreachable) {
        say('The service cannot be reached. Check that it is running, then try again.');
      } else {
        say(`Signing in failed: ${err.message}`);
      }
    } finally {
      submit.disabled = false;
    }
  });

  return {
    show(message = '') {
      showView('sign-in-view');
      say(message);
      (name.value === '' ? name : password).focus();
    },
  };
}
