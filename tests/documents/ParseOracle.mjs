// SPDX-License-Identifier: Apache-2.0
// Parses pages with parse5 and prints their trees, for ParseOracleTest.cpp to compare with.
// Usage: node ParseOracle.mjs CASES > TREES. A case is "<1 or 0: scripting> <bytes>\n" and that many bytes of UTF-8; so is
// a tree, without the first number.
import {readFileSync, writeSync} from 'node:fs';
import {html, Parser} from 'parse5';

const $ = html.TAG_ID;

// This release looks for an open table body beyond the template that it stands in; the standard stops there.
Object.getPrototypeOf(new Parser().openElements).hasTableBodyContextInTableScope = function() {
  for (let i = this.stackTop; i >= 0; i = this.slotBelow(i)) {
    const {tagName, namespaceURI} = this.items[i];
    if (namespaceURI !== html.NS.HTML) continue;
    if (['tbody', 'thead', 'tfoot'].includes(tagName)) return true;
    if (['table', 'template', 'html'].includes(tagName)) return false;
  }
  return false;
};

// This release still reads SELECT in insertion modes of its own. The standard has given them up: what stands in a SELECT
// is read by the rules of the body, with SELECT a boundary of scopes, and these tags ask whether one is in scope.
const kScope = new Set([$.APPLET, $.CAPTION, $.HTML, $.MARQUEE, $.OBJECT, $.SELECT, $.TABLE, $.TD, $.TEMPLATE, $.TH]);
const kMathMlScope = new Set([$.ANNOTATION_XML, $.MI, $.MN, $.MO, $.MS, $.MTEXT]);
const kSvgScope = new Set([$.DESC, $.FOREIGN_OBJECT, $.TITLE]);
function inScope(stack, tags, more = [], element = undefined) {
  for (let i = stack.stackTop; i >= 0; i = stack.slotBelow(i)) {
    const tag = stack.tagIDs[i];
    const space = stack.treeAdapter.getNamespaceURI(stack.items[i]);
    if (space === html.NS.HTML) {
      if (tags.includes(tag) && (!element || stack.items[i] === element)) return true;
      if (kScope.has(tag) || more.includes(tag)) return false;
    } else if ((space === html.NS.MATHML ? kMathMlScope : kSvgScope).has(tag)) {
      return false;
    }
  }
  return false;
}
const kModes = {inSelect: 15, inSelectInTable: 16, inTable: [8, 12, 13]};

class Oracle extends Parser {
  constructor(...options) {
    super(...options);
    let mode = this.insertionMode;
    Object.defineProperty(this, 'insertionMode', {
      get: () => mode,
      set(wanted) {
        if (wanted !== kModes.inSelect && wanted !== kModes.inSelectInTable) mode = wanted;
      },
    });
    const stack = this.openElements;
    stack.hasInScope = (tag, element) => inScope(stack, [tag], [], element);
    stack.hasInListItemScope = (tag) => inScope(stack, [tag], [$.OL, $.UL]);
    stack.hasInButtonScope = (tag) => inScope(stack, [tag], [$.BUTTON]);
    stack.hasNumberedHeaderInScope = () => inScope(stack, [$.H1, $.H2, $.H3, $.H4, $.H5, $.H6]);
  }

  _resetInsertionMode() {
    const tags = this.openElements.tagIDs;
    this.openElements.tagIDs = tags.map((tag) => tag === $.SELECT ? $.UNKNOWN : tag);
    super._resetInsertionMode();
    this.openElements.tagIDs = tags;
  }

  _startTagOutsideForeignContent(token) {
    const stack = this.openElements;
    if (stack.hasInScope($.SELECT)) {
      switch (token.tagID) {
        case $.SELECT:
          stack.popUntilTagNamePopped($.SELECT);
          return;
        case $.INPUT: {
          const hidden = token.attrs.some(({name, value}) => name === 'type' && value.toLowerCase() === 'hidden');
          if (!hidden || !kModes.inTable.includes(this.insertionMode)) stack.popUntilTagNamePopped($.SELECT);
          break;
        }
        case $.HR:
          if (stack.hasInButtonScope($.P)) this._closePElement();
          stack.generateImpliedEndTags();
          break;
        case $.OPTGROUP:
          stack.generateImpliedEndTags();
          break;
        case $.OPTION:
          stack.generateImpliedEndTagsWithExclusion($.OPTGROUP);
          break;
      }
    }
    super._startTagOutsideForeignContent(token);
  }

  _endTagOutsideForeignContent(token) {
    const stack = this.openElements;
    if (token.tagID !== $.SELECT || !stack.hasInScope($.SELECT)) return super._endTagOutsideForeignContent(token);
    stack.generateImpliedEndTags();
    stack.popUntilTagNamePopped($.SELECT);
  }
}

const kPrefixes = {[html.NS.SVG]: 'svg ', [html.NS.MATHML]: 'math '};

function print(document) {
  const lines = [];
  const work = [[document, 0]];  // an own stack, since pages nest deeper than calls may
  while (work.length > 0) {
    const [node, depth] = work.pop();
    const line = (text, more = 0) => lines.push('| ' + '  '.repeat(depth + more) + text);
    let children = node.childNodes ?? [];
    let inner = depth + 1;
    switch (node.nodeName) {
      case '#document':
      case '#document-fragment':
        inner = depth;
        break;
      case '#documentType':
        line(node.publicId || node.systemId ? `<!DOCTYPE ${node.name} "${node.publicId}" "${node.systemId}">`
                                            : `<!DOCTYPE ${node.name}>`);
        break;
      case '#text':
        line(`"${node.value}"`);
        break;
      case '#comment':
        line(`<!-- ${node.data} -->`);
        break;
      default: {
        line(`<${kPrefixes[node.namespaceURI] ?? ''}${node.tagName}>`);
        const name = (item) => item.namespace ? `${item.prefix || 'xmlns'} ${item.name}` : item.name;
        const items = node.attrs.map((item) => [Buffer.from(name(item)), item]);
        items.sort((a, b) => Buffer.compare(a[0], b[0]));
        for (const [, item] of items) line(`${name(item)}="${item.value}"`, 1);
        if (node.content) {
          line('content', 1);
          work.push(...[...children].reverse().map((child) => [child, inner]));
          children = [node.content];
          inner = depth + 2;
        }
      }
    }
    for (let i = children.length; i-- > 0;) work.push([children[i], inner]);
  }
  return lines.map((line) => line + '\n').join('');
}

const cases = readFileSync(process.argv[2]);
const decoder = new TextDecoder();
const parts = [];
for (let at = 0; at < cases.length;) {
  const end = cases.indexOf(10, at);
  const [scripting, length] = cases.toString('latin1', at, end).split(' ').map(Number);
  const page = decoder.decode(cases.subarray(end + 1, end + 1 + length));
  at = end + 1 + length;
  const tree = Buffer.from(print(Oracle.parse(page, {scriptingEnabled: scripting === 1})));
  parts.push(Buffer.from(`${tree.length}\n`), tree);
}
const all = Buffer.concat(parts);
for (let at = 0; at < all.length;) at += writeSync(1, all, at);
