// Calls a function of the page, window[name](...args), in the page's own world in one document, as a
// javascript: URL of a browser would, and returns {value: String(v), or null for undefined} or {error}.
export async function callInPage(tabId, documentId, frameId, name, args) {
  const target = documentId ? { tabId, documentIds: [documentId] } : { tabId, frameIds: [frameId] };
  try {
    const [injection] = await chrome.scripting.executeScript({
      target, world: 'MAIN', injectImmediately: true, func: runPageFunction, args: [name, args],
    });
    return injection?.result ?? { error: 'the page did not answer' };
  } catch (error) {
    return { error: String(error?.message ?? error) };  // the document is gone
  }
}

// Runs in the page (serialised by executeScript): nothing outside this function is in scope.
function runPageFunction(name, args) {
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
}
