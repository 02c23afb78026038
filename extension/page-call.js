// Calls functions of the page, window[name](arg), in the page's own world in one document, as a javascript:
// URL of a browser would. Several calls go in one injection, made in order.
//
// The page's world is not trusted: its script may have replaced any built-in the injected function could
// use, and whatever comes back from it is read here as untrusted data. Each call gets exactly {value: text}
// (the function returned a string or a number), {value: null} (it returned nothing) or {error: text}.

const MAX_VALUE_LENGTH = 1 << 20;  // a page function's text, in UTF-16 units: far more than any reply

export async function callsInPage(tabId, documentId, frameId, origin, calls) {
  const target = documentId ? { tabId, documentIds: [documentId] } : { tabId, frameIds: [frameId] };
  let answers;
  try {
    const [injection] = await chrome.scripting.executeScript({
      target, world: 'MAIN', injectImmediately: true, func: runPageFunctions, args: [calls, origin],
    });
    answers = injection?.result;
  } catch (error) {
    return calls.map(() => ({ error: String(error?.message ?? error) }));  // the document is gone
  }
  return calls.map((_, index) => readAnswer(answers, index));
}

// One call's answer from what the page's world returned: only a string, a finite number or nothing is a
// value; anything else, or anything malformed, is an error.
export function readAnswer(answers, index) {
  const answer = answers !== null && typeof answers === 'object' ? answers[index] : undefined;
  if (answer === null || typeof answer !== 'object') return { error: 'the page did not answer' };
  const { kind, value } = answer;
  if (kind === 'missing') return { error: 'no such function in the page' };
  if (kind === 'threw') return { error: 'the page function threw' };
  if (kind === 'left') return { error: 'the frame left the page the call was meant for' };
  if (kind === 'undefined' || kind === 'null') return { value: null };
  if (kind === 'string' && typeof value === 'string') {
    return value.length <= MAX_VALUE_LENGTH ? { value } : { error: 'the page function returned too long a text' };
  }
  if (kind === 'number' && typeof value === 'number') {
    return Number.isFinite(value) ? { value: String(value) } : { error: 'the page function returned a number that is not finite' };
  }
  return { error: `the page function returned ${typeof kind === 'string' ? `a ${kind.slice(0, 20)}` : 'something else'}` };
}

// Runs in the page (serialised by executeScript): nothing outside this function is in scope, and nothing of
// the page's own built-ins is used: object literals and `typeof` only, so that what comes back is our shape
// (a page that replaced its built-ins can only spoil its own calls, which the reader above checks).
export function runPageFunctions(calls, origin) {
  const answers = { __proto__: null };
  // `location` and its `origin` cannot be redefined by the page's script.
  const here = location.origin === origin;
  for (let index = 0; index < calls.length; ++index) {
    if (!here) {
      answers[index] = { kind: 'left' };
      continue;
    }
    const name = calls[index][0];
    const args = calls[index][1];
    try {
      const page = window[name];
      if (typeof page !== 'function') {
        answers[index] = { kind: 'missing' };
        continue;
      }
      const value = args.length === 0 ? page() : page(args[0]);
      const kind = value === null ? 'null' : typeof value;
      answers[index] = kind === 'string' || kind === 'number' ? { kind, value } : { kind };
    } catch {
      answers[index] = { kind: 'threw' };
    }
  }
  return answers;
}
