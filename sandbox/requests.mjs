// What every request has in common: result codes, refusals and the reading of payloads.

export const Result = {
  ok: 0,
  failed: 1,
  expired: 2,
  userNotExist: 3,
  invalid: 4,
  wrongType: 5,
  loginConflict: 7,
  userNotFound: 8,
  wrongSession: 10,
  duplicate: 13,
};

/** Thrown by a handler: the request is answered with this result code. */
export class Refusal extends Error {
  constructor(code, reason, more = {}) {
    super(reason);
    this.answer = { result: code, reason, ...more };
  }
}

export const refuse = (code, reason, more) => {
  throw new Refusal(code, reason, more);
};

const uinPattern = /^[1-9]\d{0,14}$/;

export const isUin = (text) => uinPattern.test(text);

/** Reads one payload, refusing what is missing or has the wrong JSON type. */
export class Payload {
  #members;

  constructor(value) {
    const isObject = typeof value === 'object' && value !== null && !Array.isArray(value);
    if (!isObject || ArrayBuffer.isView(value))
      refuse(Result.invalid, 'the payload must be an object');
    this.#members = new Map(Object.entries(value));
  }

  has(key) {
    return this.#members.has(key);
  }

  #read(key, fallback, fits, wanted) {
    const value = this.#members.get(key) ?? fallback;
    return fits(value) ? value : refuse(Result.invalid, `"${key}" must be ${wanted}`);
  }

  text(key, fallback, longest = 65536) {
    const fits = (value) => typeof value === 'string' && value.length <= longest;
    return this.#read(key, fallback, fits, `a text of at most ${longest} characters`);
  }

  integer(key, fallback, least = Number.MIN_SAFE_INTEGER) {
    const fits = (value) => Number.isSafeInteger(value) && value >= least;
    return this.#read(key, fallback, fits, 'an integer in range');
  }

  flag(key, fallback) {
    return this.#read(key, fallback, (value) => typeof value === 'boolean', 'true or false');
  }

  texts(key, fallback) {
    const fits = (value) =>
      Array.isArray(value) &&
      value.length <= 1000 &&
      value.every((item) => typeof item === 'string');
    return this.#read(key, fallback, fits, 'a list of at most 1000 texts');
  }

  /** The id of a conversation, call or message: some requests send a number, most send text. */
  id(key, fallback) {
    const value = this.#members.get(key);
    return Number.isSafeInteger(value) ? String(value) : this.text(key, fallback, 64);
  }

  /** A user id; empty text gives the fallback. */
  uin(key, fallback) {
    const value = this.id(key, fallback) || fallback || '';
    return isUin(value) ? value : refuse(Result.userNotExist, `"${key}" is not a user id`);
  }

  /** A list of user ids without repetition; empty texts are skipped. */
  uins(key, fallback) {
    const list = [...new Set(this.texts(key, fallback))].filter((uin) => uin !== '');
    const stranger = list.find((uin) => !isUin(uin));
    if (stranger !== undefined) refuse(Result.userNotExist, `"${key}" holds what is not a user id`);
    return list;
  }

  /** A user id that must be the sender's own. */
  ownUin(key, client) {
    const uin = this.uin(key, client.uin);
    return uin === client.uin
      ? uin
      : refuse(Result.wrongSession, `"${key}" is not the session's user`);
  }

  page() {
    const index = this.integer('pindex', 0, 0);
    const size = Math.min(this.integer('psize', 20, 1), 1000);
    return { index, size, cut: (list) => list.slice(index * size, (index + 1) * size) };
  }
}
