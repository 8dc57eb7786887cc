// The live record of requests, answers and pushes, for the operator's page.

const kept = 300;
const longest = 4000;

const shorten = (text) => (text.length > longest ? `${text.slice(0, longest)}…` : text);

function print(items) {
  try {
    return items.map((item) => shorten(JSON.stringify(item) ?? String(item))).join(', ');
  } catch {
    return '(not printable)';
  }
}

export class Traffic {
  #lines = [];
  #watchers = new Set();
  #count = 0;

  /** Kinds: request, answer, push, connected, disconnected. */
  add(kind, uin, name, items) {
    const line = {
      id: ++this.#count,
      time: Date.now(),
      kind,
      uin,
      name: shorten(name),
      text: print(items),
    };
    this.#lines.push(line);
    if (this.#lines.length > kept) this.#lines.shift();
    for (const watcher of this.#watchers) watcher(line);
  }

  /** Calls back with every kept and every coming line; gives the function that ends it. */
  watch(watcher) {
    this.#lines.forEach(watcher);
    this.#watchers.add(watcher);
    return () => this.#watchers.delete(watcher);
  }
}
