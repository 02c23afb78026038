// The page's side without a browser. el() builds the few DOM reads the page rules make: a local name,
// attributes in order, children and a parent (el('object', {type: 'x'}, [el('param', {name: 'a', value: '1'})])).
// contentScript() loads one of the extension's content scripts (classic scripts, not modules) as a browser
// does, into a context of its own holding `globals`, and hands back that context: its top-level functions,
// and the top-level constants named in `constants` (no properties of the context by themselves).
import { readFileSync } from 'node:fs';
import vm from 'node:vm';

export function el(localName, attributes = {}, children = []) {
  const element = { localName, children, parentElement: null, baseURI: 'https://portal.example/vpn/index.html',
                    attributes: Object.entries(attributes).map(([name, value]) => ({ name, value })),
                    getAttribute: (name) => element.attributes.find((a) => a.name === name)?.value ?? null };
  for (const child of children) child.parentElement = element;
  return element;
}

export function contentScript(name, globals = {}, constants = []) {
  const context = vm.createContext({ URL, ...globals });
  const source = readFileSync(new URL(`../../extension/${name}`, import.meta.url), 'utf8');
  vm.runInContext(`${source}\n;${constants.map((c) => `globalThis.${c} = ${c};`).join('')}`, context);
  return context;
}
