'use strict';
// The page is whole without this: here the table learns to filter and to sort, and the timeline to
// answer the pointer.
(function () {
  const byId = (id) => document.getElementById(id);
  const data = JSON.parse(byId('data').textContent);
  const table = byId('table');
  const body = table.tBodies[0];
  const rows = Array.from(body.rows);
  const texts = rows.map((row) => row.textContent.toLowerCase());
  const find = byId('find');
  const result = byId('result');
  const group = byId('group');

  function addChoice(select, value, text) {
    const option = document.createElement('option');
    option.value = value;
    option.textContent = text;
    select.append(option);
  }

  // How many rows have which value of a data attribute, the most frequent first.
  function countsOf(name) {
    const counts = new Map();
    for (const row of rows) {
      const value = row.dataset[name];
      if (value) counts.set(value, (counts.get(value) || 0) + 1);
    }
    return Array.from(counts).sort((a, b) => b[1] - a[1]);
  }

  function fillChoices() {
    addChoice(result, '', 'all');
    for (const [state, count] of countsOf('state')) {
      addChoice(result, state, data.states[state] + ' (' + count + ')');
    }
    for (const [outcome, count] of countsOf('outcome')) {
      addChoice(result, '=' + outcome, '\u2013 ' + data.titles[outcome] + ' (' + count + ')');
    }
    const groups = countsOf('group');
    addChoice(group, '', 'all');
    for (const [name, count] of groups) addChoice(group, name, name + ' (' + count + ')');
    group.parentElement.hidden = groups.length < 2;
  }

  function fits(row, text) {
    const words = find.value.toLowerCase().split(/\s+/);
    const wanted = result.value;
    const fitsResult = !wanted || (wanted[0] === '=' ? '=' + row.dataset.outcome : row.dataset.state) === wanted;
    return fitsResult && (!group.value || row.dataset.group === group.value) &&
        words.every((word) => text.includes(word));
  }

  function filter() {
    let shown = 0;
    rows.forEach((row, place) => {
      row.hidden = !fits(row, texts[place]);
      if (!row.hidden) shown += 1;
    });
    byId('shown').textContent = shown === rows.length
        ? rows.length + (rows.length === 1 ? ' host' : ' hosts')
        : shown + ' of ' + rows.length + ' hosts';
  }

  const collator = new Intl.Collator('en', {numeric: true});

  function keyOf(row, column) {
    const cell = row.cells[column];
    return cell.dataset.sort === undefined ? cell.textContent.trim() : Number(cell.dataset.sort);
  }

  // What has no value comes last, whichever way it is sorted.
  function compare(a, b, sign) {
    const none = (key) => key === '' || key === -1;
    if (none(a) || none(b)) return none(a) - none(b);
    return sign * (typeof a === 'number' ? a - b : collator.compare(a, b));
  }

  function sortBy(head) {
    const down = head.getAttribute('aria-sort') === 'ascending';
    for (const other of table.tHead.rows[0].cells) other.removeAttribute('aria-sort');
    head.setAttribute('aria-sort', down ? 'descending' : 'ascending');
    const keys = new Map(rows.map((row) => [row, keyOf(row, head.cellIndex)]));
    const sorted = rows.slice().sort((a, b) => compare(keys.get(a), keys.get(b), down ? -1 : 1));
    body.append(...sorted);
  }

  function makeSortable() {
    for (const head of table.tHead.rows[0].cells) {
      if (head.classList.contains('files')) continue;
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = head.textContent;
      head.replaceChildren(button);
      button.addEventListener('click', () => sortBy(head));
    }
  }

  function offerFailures() {
    for (const item of document.querySelectorAll('.failures li')) {
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = 'Show in the table';
      button.addEventListener('click', () => {
        byId('filter').reset();
        result.value = '=' + item.dataset.outcome;
        filter();
        byId('hosts').scrollIntoView();
        result.focus({preventScroll: true});
      });
      item.append(button);
    }
  }

  // The host below the pointer; undefined: none.
  function hostAt(svg, event) {
    const box = svg.getBoundingClientRect();
    const scale = data.timeline.width / box.width;
    const x = (event.clientX - box.left) * scale;
    const y = (event.clientY - box.top) * scale - data.timeline.top;
    const column = Math.floor(x / (data.timeline.column + data.timeline.gap));
    const line = Math.floor(y / data.timeline.row);
    if (y < 0 || line >= data.timeline.lines || column >= data.timeline.columns) return undefined;
    const place = column * data.timeline.lines + line;
    return place < rows.length ? {place, column, line} : undefined;
  }

  function answerPointer() {
    const svg = document.querySelector('.timeline');
    if (!svg) return;
    const over = svg.querySelector('.over');
    const tip = document.createElement('div');
    tip.className = 'tip';
    tip.hidden = true;
    svg.parentElement.append(tip);
    const leave = () => {
      tip.hidden = true;
      over.setAttribute('height', 0);
    };
    svg.addEventListener('pointerleave', leave);
    svg.addEventListener('pointermove', (event) => {
      const host = hostAt(svg, event);
      if (!host) return leave();
      over.setAttribute('x', host.column * (data.timeline.column + data.timeline.gap));
      over.setAttribute('y', data.timeline.top + host.line * data.timeline.row);
      over.setAttribute('height', data.timeline.row);
      tip.textContent = data.hosts[host.place];
      tip.hidden = false;
      const box = svg.parentElement.getBoundingClientRect();
      const left = event.clientX - box.left + svg.parentElement.scrollLeft + 12;
      const most = svg.parentElement.scrollLeft + box.width - tip.offsetWidth - 4;
      tip.style.left = Math.max(0, Math.min(left, most)) + 'px';
      tip.style.top = event.clientY - box.top + 16 + 'px';
    });
    svg.addEventListener('click', (event) => {
      const host = hostAt(svg, event);
      if (!host) return;
      byId('filter').reset();
      filter();
      for (const row of body.querySelectorAll('.found')) row.classList.remove('found');
      rows[host.place].classList.add('found');
      rows[host.place].scrollIntoView({block: 'center'});
    });
  }

  fillChoices();
  makeSortable();
  offerFailures();
  answerPointer();
  const form = byId('filter');
  form.addEventListener('submit', (event) => event.preventDefault());
  form.addEventListener('input', filter);
  form.addEventListener('change', filter);
  form.addEventListener('reset', () => setTimeout(filter));
  form.hidden = false;
  filter();
}());
