// Elements. Text from outside, such as an SSID, becomes a text node or an attribute's value, never markup.

const pictures = 'http://www.w3.org/2000/svg';

// A "on..." attribute is a listener; null and false leave an attribute out.
function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith('on')) {
      element.addEventListener(name.slice(2), value);
    } else if (value !== null && value !== undefined && value !== false) {
      element.setAttribute(name, value === true ? '' : value);
    }
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

export const make = (tag, attributes = {}, ...children) => fill(document.createElement(tag), attributes, children);

export const draw = (tag, attributes = {}, ...children) =>
  fill(document.createElementNS(pictures, tag), attributes, children);

// A name that somebody chose: its direction of writing must not affect its surroundings.
export const name = (text) => make('bdi', {}, text);

export const code = (text) => make('code', {}, text);

// Screen readers read a text again when it is set again.
export function setText(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

// Shows `items` below `parent`, one element each. An element stays the same while its key does, so that it keeps the
// focus. `update(element, item)` fills one that `create(item)` made.
export function showKeyed(parent, items, keyOf, create, update) {
  const former = new Map([...parent.children].map((element) => [element.dataset.key, element]));
  let at = parent.firstElementChild;
  for (const item of items) {
    const key = String(keyOf(item));
    const element = former.get(key) ?? create(item);
    former.delete(key);
    element.dataset.key = key;
    update(element, item);
    if (element === at) {
      at = at.nextElementSibling;
    } else {
      parent.insertBefore(element, at);
    }
  }
  for (const gone of former.values()) {
    gone.remove();
  }
}
