'use strict';
// Shared by the pages' scripts, which follow this one in the same script element. Whatever they
// add goes in as a text node: the data holds what a phone supplied.
function el(tag, className, ...children) {
  const node = document.createElement(tag);
  if (className) node.className = className;
  for (const child of children) {
    if (child !== null && child !== undefined) node.append(child);
  }
  return node;
}
function text(value) { return value === null || value === undefined ? '' : String(value); }
