// What the page does beyond what it says: the theme is switched, folds open where a link leads into them,
// and tables are sorted and filtered. All of it works by keyboard; nothing is fetched or kept but the
// theme, where the browser lets a page keep something.
(() => {
  'use strict';
  const all = (selector, root = document) => [...root.querySelectorAll(selector)];
  const make = (tag, attributes = {}, ...children) => {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
    element.append(...children);
    return element;
  };

  // ---- Theme
  const themes = ['auto', 'light', 'dark'];
  const remember = (theme) => {
    try { localStorage.setItem('vorn-theme', theme); } catch { /* a page from a file may keep nothing */ }
  };
  const remembered = () => {
    try { return localStorage.getItem('vorn-theme'); } catch { return null; }
  };
  const root = document.documentElement;
  const button = document.querySelector('[data-switch]');
  const show = (theme) => {
    if (theme === 'auto') root.removeAttribute('data-theme');
    else root.setAttribute('data-theme', theme);
    button.textContent = 'Theme: ' + theme;
    button.dataset.switch = theme;
    document.dispatchEvent(new Event('themechange'));
  };
  if (button) {
    button.hidden = false;
    show(themes.includes(remembered()) ? remembered() : 'auto');
    button.addEventListener('click', () => {
      const next = themes[(themes.indexOf(button.dataset.switch) + 1) % themes.length];
      show(next);
      remember(next);
    });
  }

  // ---- Tables that are wider than their place
  const wider = new ResizeObserver((entries) => {
    for (const { target } of entries) {
      const box = target.closest('.scroll');
      box.toggleAttribute('data-wider', box.scrollWidth > box.clientWidth + 1);
    }
  });
  const watch = (box) => {
    wider.observe(box);
    for (const table of box.children) wider.observe(table);
  };
  all('.scroll').forEach(watch);

  // ---- Folds
  const openTo = (element) => {
    for (let at = element; at; at = at.parentElement) if (at.tagName === 'DETAILS') at.open = true;
    const own = element.querySelector(':scope > details');
    if (own) own.open = true;
  };
  const follow = () => {
    let id = '';
    try { id = decodeURIComponent(location.hash.slice(1)); } catch { return; }
    const target = id && document.getElementById(id);
    if (!target) return;
    openTo(target);
    target.scrollIntoView();
  };
  addEventListener('hashchange', follow);
  let folded = [];
  addEventListener('beforeprint', () => {
    folded = all('details:not([open])');
    for (const fold of folded) fold.open = true;
  });
  addEventListener('afterprint', () => {
    for (const fold of folded) fold.open = false;
  });

  // ---- Sorting
  // Numbers by value, what is no number behind all others whichever way; texts as people order them.
  const words = new Intl.Collator('en', { numeric: true });
  const compare = (a, b, sign) => {
    if (typeof a !== 'number' || typeof b !== 'number') return sign * words.compare(String(a), String(b));
    if (Number.isNaN(a) || Number.isNaN(b)) return Number.isNaN(a) - Number.isNaN(b);
    return sign * ((a > b) - (a < b));
  };
  // Makes buttons of the heads. `sort(column, sign)` puts the rows in order; what a column begins with
  // is what one looks for in it: the greatest number, the first text.
  const makeSortable = (heads, isNumber, sort) => {
    heads.forEach((head, column) => {
      const press = make('button', { type: 'button' }, ...head.childNodes);
      head.replaceChildren(press);
      press.addEventListener('click', () => {
        const was = head.getAttribute('aria-sort');
        const first = isNumber(column) ? 'descending' : 'ascending';
        const other = isNumber(column) ? 'ascending' : 'descending';
        const now = was === first ? other : first;
        for (const each of heads) each.removeAttribute('aria-sort');
        head.setAttribute('aria-sort', now);
        sort(column, now === 'ascending' ? 1 : -1);
      });
    });
  };

  const valueOf = (cell) => {
    if (!cell) return '';
    return cell.dataset.by === undefined ? cell.textContent : Number(cell.dataset.by);
  };
  for (const table of all('table.sortable')) {
    const body = table.tBodies[0];
    const heads = all('thead th', table);
    makeSortable(heads, (column) => heads[column].classList.contains('n'), (column, sign) => {
      const rows = [...body.rows].map((row) => [valueOf(row.cells[column]), row]);
      rows.sort((a, b) => compare(a[0], b[0], sign));
      body.append(...rows.map(([, row]) => row));
    });
  }

  // ---- Filtering
  const wordsOf = (input) => input.value.toLowerCase().split(/\s+/).filter(Boolean);
  const field = (label, told) => {
    const input = make('input', { type: 'search', autocomplete: 'off' });
    return [input, make('div', { class: 'tools' }, make('label', {}, label, input), told)];
  };
  for (const table of all('table.filterable')) {
    const told = make('span', { role: 'status' });
    const [input, tools] = field('Filter ', told);
    const rows = [...table.tBodies[0].rows];
    const texts = rows.map((row) => row.textContent.toLowerCase());
    input.addEventListener('input', () => {
      const wanted = wordsOf(input);
      let count = 0;
      rows.forEach((row, i) => {
        row.hidden = !wanted.every((word) => texts[i].includes(word));
        count += row.hidden ? 0 : 1;
      });
      told.textContent = wanted.length ? `${count} of ${rows.length}` : '';
    });
    (table.closest('.scroll') || table).before(tools);
  }

  // ---- Very many rows: columns of data, of which a hundred rows stand on the page
  const kShown = 100;
  const count = (n) => n.toLocaleString('en-US');
  // As the rest of the page writes them: kit/page/number_text.cpp.
  const numberText = (value) => {
    if (value === 'NaN') return '–';
    if (typeof value === 'string') return value.replace('-', '−').replace('Infinity', '∞');
    const size = Math.abs(value);
    if (size === 0 || (size >= 1e-4 && size < 1e7)) return String(value);
    return value.toExponential().replace(/e([+-])(\d)$/, 'e$10$2');
  };
  const large = (place) => {
    const data = JSON.parse(document.getElementById(place.dataset.from).textContent);
    const columns = data.columns.map((column) => {
      const isNumber = ['number', 'count', 'sample'].includes(column.kind);
      const linked = new Set(column.linked || []);
      const beginning = column.beginning || '';
      const text = (row) => {
        const value = column.values[row];
        if (column.kind === 'choice') return column.words[value];
        if (column.kind === 'text') return beginning + value;
        if (column.kind === 'count') return count(value);
        if (column.kind === 'sample') return String(value);
        return numberText(value);
      };
      const key = isNumber ? (row) => Number(column.values[row])
        : column.kind === 'choice' ? (row) => column.values[row] : text;
      return { ...column, isNumber, linked, text, key };
    });
    const total = columns.length ? columns[0].values.length : 0;
    let order = Uint32Array.from({ length: total }, (_, i) => i);
    let shown = order;
    let page = 0;
    const choices = new Map();

    const body = make('tbody');
    const told = make('span', { role: 'status' });
    const fill = () => {
      const pages = Math.max(1, Math.ceil(shown.length / kShown));
      page = Math.min(Math.max(page, 0), pages - 1);
      const rows = [];
      for (const row of shown.subarray(page * kShown, (page + 1) * kShown)) {
        const tr = make('tr');
        for (const column of columns) {
          const td = make('td', column.isNumber ? { class: 'n' } : {});
          const text = column.text(row);
          if (column.kind === 'sample' && column.linked.has(column.values[row])) {
            td.append(make('a', { href: '#' + data.linkBase + column.values[row] }, text));
          } else {
            td.textContent = text;
          }
          tr.append(td);
        }
        rows.push(tr);
      }
      body.replaceChildren(...rows);
      const from = shown.length ? page * kShown + 1 : 0;
      const to = Math.min((page + 1) * kShown, shown.length);
      told.textContent = `${count(from)}–${count(to)} of ${count(shown.length)}` +
        (shown.length < total ? ` (${count(total)} in all)` : '');
      back.disabled = page === 0;
      next.disabled = page === pages - 1;
    };
    const choose = () => {
      const wanted = wordsOf(input);
      shown = order.filter((row) => {
        for (const [column, value] of choices) if (column.values[row] !== value) return false;
        if (!wanted.length) return true;
        const text = columns.map((column) => column.text(row)).join(' ').toLowerCase();
        return wanted.every((word) => text.includes(word));
      });
      page = 0;
      fill();
    };

    const back = make('button', { type: 'button', class: 'button' }, 'Back');
    const next = make('button', { type: 'button', class: 'button' }, 'Next');
    back.addEventListener('click', () => { page -= 1; fill(); });
    next.addEventListener('click', () => { page += 1; fill(); });
    const [input, tools] = field('Filter ', told);
    input.addEventListener('input', choose);
    for (const column of columns) {
      if (column.kind !== 'choice') continue;
      const select = make('select', {}, make('option', { value: '' }, 'all'),
        ...column.words.map((word, i) => make('option', { value: String(i) }, word)));
      select.addEventListener('change', () => {
        if (select.value === '') choices.delete(column);
        else choices.set(column, Number(select.value));
        choose();
      });
      tools.insertBefore(make('label', {}, column.title + ' ', select), told);
    }
    tools.append(back, next);

    const heads = columns.map((column) =>
      make('th', column.isNumber ? { scope: 'col', class: 'n' } : { scope: 'col' }, column.title));
    makeSortable(heads, (column) => ['number', 'count'].includes(columns[column].kind), (column, sign) => {
      const keys = Array.from({ length: total }, (_, row) => columns[column].key(row));
      order = order.slice().sort((a, b) => compare(keys[a], keys[b], sign) || a - b);
      choose();
    });
    const table = make('table', { class: 'table' },
      make('caption', { class: 'unseen' }, data.caption), make('thead', {}, make('tr', {}, ...heads)), body);
    const scroll = make('div', { class: 'scroll', tabindex: '0', role: 'group', 'aria-label': data.caption }, table);
    fill();
    place.replaceChildren(tools, scroll);
    watch(scroll);
  };
  for (const place of all('.large')) large(place);
  // Behind all that makes the page longer or shorter.
  if (location.hash) follow();
  document.documentElement.dataset.ready = 'yes';
})();
