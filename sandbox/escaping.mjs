// Undoes what a client does to the texts of "create_message" before it sends them.

const meanings = { '"': '"', '\\': '\\', '/': '/', b: '\b', f: '\f', n: '\n', r: '\r', t: '\t' };

/** Undoes one level of JSON string escaping; gives the text unchanged when it is not escaped so. */
export function undoEscaping(text) {
  let wellFormed = true;
  const pattern = /\\(?:(["\\/bfnrt])|u([0-9a-fA-F]{4}))|["\\\r\n\t]/g;
  const plain = text.replace(pattern, (whole, letter, hex) => {
    if (letter) return meanings[letter];
    if (hex) return String.fromCharCode(parseInt(hex, 16));
    wellFormed = false;
    return whole;
  });
  return wellFormed ? plain : text;
}

/**
 * Attachments reach us escaped by a rule of their own: a quotation mark or solidus gains one
 * backslash, an escape \n, \r or \t gains two, and then every pair of backslashes becomes three.
 * Counting backslashes run by run turns that back exactly, where undoEscaping would leave a
 * line break in a file name as a backslash and an "n".
 */
function undoClientRule(text) {
  let wellFormed = true;
  const plain = text.replace(/(\\*)(["/nrt])|\\+/g, (whole, run, letter = '') => {
    const length = (run ?? whole).length;
    const beforePairs = Math.floor(length / 3) * 2 + (length % 3);
    const isQuoteOrSolidus = letter === '"' || letter === '/';
    const isEscape = letter !== '' && !isQuoteOrSolidus && length > 0;
    const original = beforePairs - (isQuoteOrSolidus ? 1 : isEscape ? 2 : 0);
    if (length % 3 === 2 || original < (isEscape ? 1 : 0)) wellFormed = false;
    return wellFormed ? '\\'.repeat(original) + letter : whole;
  });
  return wellFormed ? plain : undefined;
}

function isJson(text) {
  try {
    JSON.parse(text);
    return true;
  } catch {
    return false;
  }
}

/** The JSON document that the sender's attachments were. */
export function undoAttachmentsEscaping(text) {
  const exact = undoClientRule(text);
  return exact !== undefined && isJson(exact) ? exact : undoEscaping(text);
}
