'use strict';
// Which elements of a page the plug-in serves, and the parameters each one hands to NPP_New, decided as an
// NPAPI browser (QtWebKit, which loads the plug-in itself) decides them. Only DOM reads: content.js applies
// these rules to the page; the unit tests run them on a small stand-in for the DOM.
//
// What QtWebKit does, as measured (docs/portal.md lists it for portal builders):
// - An <embed> or <object> is the plug-in's when its type is the plug-in's (letter case aside, anything
//   after ';' aside). An <object> without a type attribute takes the first <param name="type">. Without
//   a type, a src (<embed>) or data (<object>) whose path ends in the plug-in's suffix chooses it.
// - An <embed>'s parameters are its attributes in document order. An <object>'s are its <param> children
//   first (direct children only, in document order; one without a name, or with an empty one, is left
//   out; a missing value is ""), then its attributes in document order, less those whose name a <param>
//   already gave (letter case aside); last, when a "data" but no "src" is among them, "src" with the value
//   of the last "data".
// - Fallback content of an <object> of the plug-in's gets no instance of its own. Around an <object> of
//   another type, or one that loads nothing, the browser decides whether the fallback shows (isShown()).

const PLUGIN_TYPE = 'application/x-orvane-sslvpn';
const PLUGIN_SUFFIX = '.xvpn';

function attributeOf(element, name) {
  return element.getAttribute(name) ?? '';
}

// The direct <param> children of an <object>, in document order.
function paramChildren(element) {
  return Array.from(element.children ?? []).filter((child) => child.localName === 'param');
}

function typeOf(text) {
  return text.split(';')[0].trim().toLowerCase();
}

// The MIME type an element declares ('' when it declares none).
function declaredType(element) {
  const own = typeOf(attributeOf(element, 'type'));
  if (own || element.localName !== 'object') return own;
  const param = paramChildren(element).find((child) => attributeOf(child, 'name').toLowerCase() === 'type');
  return param ? typeOf(attributeOf(param, 'value')) : '';
}

// Whether a URL's path ends in the plug-in's suffix.
function hasPluginSuffix(url, base) {
  if (!url.trim()) return false;
  try {
    return new URL(url.trim(), base).pathname.toLowerCase().endsWith(PLUGIN_SUFFIX);
  } catch {
    return false;
  }
}

// Whether the element is an <embed> or <object> that asks for the plug-in.
function asksForPlugin(element) {
  if (element.localName !== 'embed' && element.localName !== 'object') return false;
  const type = declaredType(element);
  if (type) return type === PLUGIN_TYPE;
  const url = attributeOf(element, element.localName === 'embed' ? 'src' : 'data');
  return hasPluginSuffix(url, element.baseURI);
}

// Whether the element is fallback content of an <object> that the plug-in serves.
function insidePluginObject(element) {
  for (let at = element.parentElement; at; at = at.parentElement) {
    if (at.localName === 'object' && asksForPlugin(at)) return true;
  }
  return false;
}

// Whether the plug-in gets an instance for the element: it asks for the plug-in, is no fallback of one
// that does, and the browser lays it out (`isShown`: false for display: none or for fallback content that
// the browser does not show).
function servedElement(element, isShown) {
  return asksForPlugin(element) && !insidePluginObject(element) && isShown(element);
}

// The element's parameters, [[name, value], ...], as NPP_New receives them.
function parametersOf(element) {
  const parameters = [];
  const given = new Set();
  if (element.localName === 'object') {
    for (const param of paramChildren(element)) {
      const name = attributeOf(param, 'name');
      if (!name) continue;
      given.add(name.toLowerCase());
      parameters.push([name, attributeOf(param, 'value')]);
    }
  }
  for (const attribute of Array.from(element.attributes)) {
    if (!given.has(attribute.name.toLowerCase())) parameters.push([attribute.name, attribute.value]);
  }
  if (element.localName === 'object') {
    const named = (wanted) => parameters.filter(([name]) => name.toLowerCase() === wanted);
    const data = named('data');
    if (data.length && !named('src').length) parameters.push(['src', data[data.length - 1][1]]);
  }
  return parameters;
}
