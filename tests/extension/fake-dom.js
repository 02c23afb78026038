// A stand-in for the few DOM reads the extension's page rules make: elements with a local name, attributes
// in order, children and a parent. el('object', {type: 'x'}, [el('param', {name: 'a', value: '1'})]).

class FakeElement {
  constructor(localName, attributes = {}, children = []) {
    this.localName = localName;
    this.attributes = Object.entries(attributes).map(([name, value]) => ({ name, value }));
    this.children = children;
    this.parentElement = null;
    this.baseURI = 'https://portal.example/vpn/index.html';
    for (const child of children) child.parentElement = this;
  }

  getAttribute(name) {
    return this.attributes.find((attribute) => attribute.name === name)?.value ?? null;
  }

  hasAttribute(name) {
    return this.getAttribute(name) !== null;
  }
}

export const el = (...args) => new FakeElement(...args);
