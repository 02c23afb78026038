// Calls functions of the page, window[name](...args), in the page's own world in one document, as a
// javascript: URL of a browser would. Several calls go in one injection, made in order; each gets
// {value: String(v), or null for undefined} or {error}.
export async function callsInPage(tabId, documentId, frameId, calls) {
  const target = documentId ? { tabId, documentIds: [documentId] } : { tabId, frameIds: [frameId] };
  try {
    const [injection] = await chrome.scripting.executeScript({
      target, world: 'MAIN', injectImmediately: true, func: runPageFunctions, args: [calls],
    });
    const results = injection?.result;
    if (Array.isArray(results) && results.length === calls.length) return results;
    return calls.map(() => ({ error: 'the page did not answer' }));
  } catch (error) {
    return calls.map(() => ({ error: String(error?.message ?? error) }));  // the document is gone
  }
}

// Runs in the page (serialised by executeScript): nothing outside this function is in scope.
function runPageFunctions(calls) {
  return calls.map(([name, args]) => {
    try {
      const page = window[name];
      if (typeof page !== 'function') return { error: `${name} is not a function of the page` };
      const value = page(...args);
      return { value: value === undefined ? null : String(value) };
    } catch (error) {
      let text = 'the page function threw';
      try {
        text = String(error);
      } catch {}
      return { error: text };
    }
  });
}
