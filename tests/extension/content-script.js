// Loads one of the extension's content scripts (classic scripts, not modules) as a browser does, into a
// context of its own, and hands back that context: its top-level functions, and the top-level constants
// named in `constants` (those are no properties of the context by themselves).
import { readFileSync } from 'node:fs';
import vm from 'node:vm';

export function contentScript(name, constants = []) {
  const source = readFileSync(new URL(`../../extension/${name}`, import.meta.url), 'utf8');
  const context = vm.createContext({ URL });
  const exported = constants.map((constant) => `globalThis.${constant} = ${constant};`).join('');
  vm.runInContext(`${source}\n;${exported}`, context);
  return context;
}
