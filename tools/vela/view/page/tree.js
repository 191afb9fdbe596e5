// The tree of prims, and the search in it.
import { askJson } from './api.js';

export class Tree {
  /** @param chosen is called with the path of a prim that is chosen */
  constructor(element, search, chosen) {
    this.element = element;
    this.chosen = chosen;
    this.path = null;
    this.hidden = new Set();
    element.addEventListener('click', (event) => this.click(event));
    element.addEventListener('keydown', (event) => this.key(event));
    search.addEventListener('input', () => {
      clearTimeout(this.timer);
      this.timer = setTimeout(() => this.search(search.value.trim()), 200);
    });
  }

  async open() {
    this.element.replaceChildren(...(await this.rows('/', 0)));
  }

  async rows(path, depth) {
    const { rows, all } = await askJson('tree', { path });
    const made = rows.map((row) => this.row(row, depth, row.name));
    if (all > rows.length) made.push(this.more(all - rows.length, depth));
    return made;
  }

  more(count, depth) {
    const row = document.createElement('div');
    row.textContent = `and ${count} more: search finds them`;
    row.style.paddingLeft = `${depth + 1.3}em`;
    return row;
  }

  row(prim, depth, name) {
    const row = document.createElement('div');
    row.className = 'row';
    row.setAttribute('role', 'treeitem');
    row.dataset.path = prim.path;
    row.dataset.depth = depth;
    row.style.paddingLeft = `${depth}em`;
    row.title = prim.purpose === 'default' ? prim.path : `${prim.path} (${prim.purpose})`;
    if (!prim.visible || this.hidden.has(prim.path)) row.classList.add('off');
    if (prim.children > 0) row.setAttribute('aria-expanded', 'false');
    for (const [kind, text] of [['twist', prim.children > 0 ? '▸' : ''],
      ['name', name], ['type', prim.type]]) {
      const part = document.createElement('span');
      part.className = kind;
      part.textContent = text;
      row.append(part);
    }
    row.setAttribute('aria-selected', String(prim.path === this.path));
    return row;
  }

  async toggle(row, open) {
    const isOpen = row.getAttribute('aria-expanded') === 'true';
    if (!row.hasAttribute('aria-expanded') || isOpen === open) return;
    row.setAttribute('aria-expanded', String(open));
    row.querySelector('.twist').textContent = open ? '▾' : '▸';
    const depth = Number(row.dataset.depth);
    if (open) {
      row.after(...(await this.rows(row.dataset.path, depth + 1)));
      return;
    }
    while (row.nextElementSibling && Number(row.nextElementSibling.dataset.depth ?? Infinity) > depth)
      row.nextElementSibling.remove();
  }

  async click(event) {
    const row = event.target.closest('.row');
    if (!row) return;
    if (event.target.className === 'twist') {
      await this.toggle(row, row.getAttribute('aria-expanded') !== 'true');
      return;
    }
    this.choose(row);
  }

  choose(row) {
    this.path = row.dataset.path;
    for (const other of this.element.querySelectorAll('.row'))
      other.setAttribute('aria-selected', String(other === row));
    row.scrollIntoView({ block: 'nearest' });
    this.chosen(this.path);
  }

  key(event) {
    const rows = [...this.element.querySelectorAll('.row')];
    const at = rows.findIndex((row) => row.getAttribute('aria-selected') === 'true');
    const row = rows[at];
    const step = { ArrowDown: 1, ArrowUp: -1 }[event.key];
    if (step) this.choose(rows[Math.max(0, Math.min(rows.length - 1, at + step))] ?? rows[0]);
    else if (row && event.key === 'ArrowRight') this.toggle(row, true);
    else if (row && event.key === 'ArrowLeft') this.toggle(row, false);
    else return;
    event.preventDefault();
    event.stopPropagation();
  }

  /** Shows which prims are hidden by choice. */
  setHidden(paths) {
    this.hidden = new Set(paths);
    for (const row of this.element.querySelectorAll('.row'))
      row.classList.toggle('off', this.hidden.has(row.dataset.path));
  }

  async search(text) {
    if (!text) {
      await this.open();
      return;
    }
    const { rows, all } = await askJson('search', { text });
    const made = rows.map((row) => this.row({ ...row, children: 0 }, 0, row.path));
    if (all > rows.length) made.push(this.more(all - rows.length, 0));
    if (all === 0) {
      const none = document.createElement('div');
      none.textContent = 'nothing has that in its path';
      made.push(none);
    }
    this.element.replaceChildren(...made);
  }
}
