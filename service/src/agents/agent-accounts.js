import { randomBytes } from 'node:crypto';
import { conflict, notFound } from '../errors.js';
import { digest, newId } from '../tokens.js';

// How long a sign-in lasts.
export const LOGIN_TTL_MS = 12 * 60 * 60 * 1000;

// Agent accounts (name and password hash) and their sign-ins. A sign-in is a random token given
// to the browser as a cookie; only its SHA-256 is kept, so the data file alone opens nothing.
// Everything is written through `state` (an SqliteState) when there is one.
export class AgentAccounts {
  #byId = new Map();
  #byName = new Map(); // lower-case name -> account
  #logins = new Map(); // token hash -> { id, agentId, expiresAt }
  #state;
  #now;

  constructor({ state, now = () => new Date() } = {}) {
    this.#state = state;
    this.#now = () => now().getTime();
  }

  restore(agents = [], logins = []) {
    for (const account of agents) this.#index(account);
    for (const login of logins) this.#logins.set(login.id, login);
  }

  // Names are unique whatever their case. `passwordHash` comes from hashPassword().
  add(name, passwordHash) {
    if (this.#byName.has(name.toLowerCase())) throw conflict(`An agent named "${name}" already exists`);
    const account = { id: newId(), name, passwordHash, createdAt: new Date(this.#now()).toISOString() };
    this.#state?.save('agents', account);
    this.#index(account);
    return publicAgent(account);
  }

  knows(table, id) {
    return table === 'agents' ? this.#byId.has(id) : this.#logins.has(id);
  }

  // A change another service instance made to an account or a sign-in.
  applyRemote(table, action, value) {
    if (table === 'agents') {
      const old = this.#byId.get(action === 'save' ? value.id : value);
      if (old) this.#byName.delete(old.name.toLowerCase());
      if (action === 'save') this.#index(value);
      else this.#byId.delete(value);
    } else if (action === 'save') {
      this.#logins.set(value.id, value);
    } else {
      this.#logins.delete(value);
    }
  }

  // A new password for an existing account; its sign-ins end, so an old browser loses access.
  setPassword(id, passwordHash) {
    const account = this.#byId.get(id);
    if (!account) throw notFound('Agent not found');
    account.passwordHash = passwordHash;
    this.#state?.save('agents', account);
    for (const login of [...this.#logins.values()]) if (login.agentId === id) this.#forget(login.id);
  }

  // The account with this name (any case), with its password hash, or undefined. An account the
  // service command added to the data file while the service ran is picked up here.
  findByName(name) {
    const key = String(name).toLowerCase();
    if (!this.#byName.has(key) && this.#state) {
      for (const account of this.#state.load('agents').agents) if (!this.#byId.has(account.id)) this.#index(account);
    }
    return this.#byName.get(key);
  }

  list() {
    return [...this.#byId.values()].map(publicAgent);
  }

  // A new sign-in for the account: the token to hand to its browser.
  signIn(agentId) {
    for (const login of this.#logins.values()) {
      if (login.expiresAt <= this.#now()) this.#forget(login.id);
    }
    const token = randomBytes(32).toString('hex');
    const login = { id: digest(token), agentId, expiresAt: this.#now() + LOGIN_TTL_MS };
    this.#state?.save('logins', login);
    this.#logins.set(login.id, login);
    return token;
  }

  // The signed-in agent ({ id, name }) a token stands for, or undefined (unknown or expired).
  agentFor(token) {
    if (typeof token !== 'string' || token === '') return undefined;
    const login = this.#logins.get(digest(token));
    if (!login) return undefined;
    if (login.expiresAt <= this.#now()) {
      this.#forget(login.id);
      return undefined;
    }
    const account = this.#byId.get(login.agentId);
    return account && publicAgent(account);
  }

  signOut(token) {
    if (typeof token === 'string') this.#forget(digest(token));
  }

  #forget(id) {
    if (!this.#logins.delete(id)) return;
    this.#state?.remove('logins', id);
  }

  #index(account) {
    this.#byId.set(account.id, account);
    this.#byName.set(account.name.toLowerCase(), account);
  }
}

const publicAgent = ({ id, name }) => ({ id, name });
