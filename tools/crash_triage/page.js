'use strict';
// The page without this script shows everything but the lists of crashes. With it: those, filters,
// keys. What comes from a crash reaches the page through textContent and setAttribute alone.
(() => {
  const data = JSON.parse(document.getElementById('data').textContent);
  const [TIME, VERSION, USER, SYSTEM, DOCUMENT, DUMP, TEXT] = [0, 1, 2, 3, 4, 5, 6];
  const ROWS = 25;  // crashes of a group that are shown at first
  const main = document.getElementById('groups');
  const field = (id) => document.getElementById(id);
  const groups = data.groups.map(({id, crashes}) => {
    const element = document.getElementById(id);
    return {id, crashes, element, summary: element.querySelector('summary'), shown: crashes,
            rows: [...element.querySelectorAll('.versions [data-version]')],
            stacks: [...element.querySelectorAll('.callstack [data-version]')],
            place: element.querySelector('.died-at').textContent,
            text: [...element.querySelectorAll('summary .what, .stack')]
              .map((part) => part.textContent.toLowerCase()).join(' ')};
  });
  if (!groups.length) return;

  const distinct = (crashes, column) => new Set(crashes.map((crash) => crash[column])).size;
  const unit = (number, one, many) => (number === 1 ? one : many);

  // ---- Filter ------------------------------------------------------------------------------------

  const matches = (crash, filter, words) =>
    (filter.version === '' || crash[VERSION] === Number(filter.version)) &&
    (!filter.from || crash[TIME].slice(0, 10) >= filter.from) &&
    (!filter.to || crash[TIME].slice(0, 10) <= filter.to) &&
    words.every((word) => crash[TEXT].toLowerCase().includes(word) ||
      data.users[crash[USER]].toLowerCase().includes(word) ||
      data.systems[crash[SYSTEM]].toLowerCase().includes(word));

  function applyFilter() {
    const filter = {version: field('version').value, from: field('from').value,
                    to: field('to').value};
    const words = field('text').value.toLowerCase().split(/\s+/).filter(Boolean);
    for (const group of groups) {
      // A word that stands in the signature or the stack holds for all crashes of the group.
      const open = words.filter((word) => !group.text.includes(word));
      group.shown = group.crashes.filter((crash) => matches(crash, filter, open));
      group.users = distinct(group.shown, USER);
      show(group);
      showVersion(group, filter.version);
    }
    const visible = groups.filter((group) => group.shown.length);
    visible.sort((a, b) => b.users - a.users || b.shown.length - a.shown.length ||
      (a.id < b.id ? -1 : 1));
    main.prepend(...visible.map((group) => group.element));
    const all = visible.flatMap((group) => group.shown);
    total('total-users', distinct(all, USER));
    total('total-crashes', all.length);
    total('total-groups', visible.length);
    total('total-versions', distinct(all, VERSION));
    drawBars(document.querySelector('.overview'), all);
    field('nothing').hidden = visible.length > 0;
    const filtered = filter.version !== '' || filter.from || filter.to || words.length;
    field('matches').textContent = filtered
      ? `${visible.length} of ${groups.length} groups, ${all.length} of ` +
        `${data.crashes} crashes` : '';
  }

  function total(id, number) {
    const name = field(id).previousElementSibling;
    field(id).textContent = number;
    name.textContent = unit(number, name.dataset.one, name.dataset.many);
  }

  function show(group) {
    group.element.hidden = group.shown.length === 0;
    if (group.element.hidden) return;
    const text = (selector, value) => {
      group.summary.querySelector(selector).textContent = value;
    };
    text('.users', group.users);
    text('.people .unit', unit(group.users, 'person', 'people'));
    text('.crashes', group.shown.length);
    text('.number .unit', unit(group.shown.length, 'crash', 'crashes'));
    drawBars(group.summary.querySelector('.spark'), group.shown);
    if (group.element.open) list(group, ROWS);
  }

  // What a group shows of one version: where it died there, and its call stack.
  function showVersion(group, version) {
    const of = (elements) => elements.find((part) => part.dataset.version === version);
    const row = of(group.rows);
    const stack = of(group.stacks) || group.stacks[0];
    group.rows.forEach((each) => { each.hidden = version !== '' && each !== row; });
    group.stacks.forEach((each) => { each.hidden = each !== stack; });
    group.summary.querySelector('.died-at').textContent =
      row ? row.querySelector('.place').textContent : group.place;
  }

  // The bins are those that the page was made with.
  function drawBars(svg, crashes) {
    const bars = [...svg.children];
    const counts = bars.map(() => 0);
    for (const crash of crashes) {
      counts[Math.floor(((Date.parse(crash[TIME]) || 0) - data.start) / data.step)] += 1;
    }
    const most = Math.max(1, ...counts);
    bars.forEach((bar, index) => {
      const height = Math.max(1, (26 * counts[index]) / most);
      bar.setAttribute('y', 28 - height);
      bar.setAttribute('height', height);
      bar.setAttribute('class', counts[index] ? '' : 'none');
    });
  }

  // ---- The list of a group's crashes ----------------------------------------------------------------

  function element(name, text, attributes = {}) {
    const made = document.createElement(name);
    made.textContent = text;
    Object.entries(attributes).forEach(([key, value]) => made.setAttribute(key, value));
    return made;
  }

  function row(crash) {
    const made = document.createElement('tr');
    const time = document.createElement('td');
    time.append(element('time', crash[TIME].slice(0, 19).replace('T', ' '),
                        {datetime: crash[TIME]}));
    const files = document.createElement('td');
    for (const [name, what] of [[crash[DUMP], 'dump'], [crash[DOCUMENT], 'document']]) {
      if (name) files.append(element('a', what, {href: data.store + encodeURIComponent(name)}));
    }
    made.append(time, element('td', data.users[crash[USER]]),
                element('td', data.versions[crash[VERSION]]),
                element('td', data.systems[crash[SYSTEM]]), element('td', crash[TEXT]), files);
    return made;
  }

  function list(group, count) {
    const newest = group.shown.slice().reverse();
    group.element.querySelector('.list tbody')
      .replaceChildren(...newest.slice(0, count).map(row));
    const more = group.element.querySelector('.more');
    more.hidden = newest.length <= count;
    more.textContent = `Show all ${newest.length}`;
    more.onclick = () => list(group, newest.length);
  }

  // ---- Addresses and keys -----------------------------------------------------------------------------

  function openAddressed() {
    const group = groups.find(({id}) => `#${id}` === location.hash);
    if (!group) return;
    if (group.element.hidden) { field('filters').reset(); applyFilter(); }
    group.element.open = true;
    group.element.scrollIntoView();
    group.summary.focus({preventScroll: true});
  }

  function move(step) {
    const visible = [...main.querySelectorAll('.group:not([hidden]) > summary')];
    const now = visible.indexOf(document.activeElement);
    const next = visible[now < 0 ? 0 : Math.max(0, Math.min(visible.length - 1, now + step))];
    if (next) next.focus();
  }

  const clear = () => { field('filters').reset(); applyFilter(); };
  const KEYS = {
    j: () => move(1),
    k: () => move(-1),
    '/': () => field('text').focus(),
    '?': () => field('help').showModal(),
    Escape: clear,
  };

  document.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey || field('help').open) return;
    const typing = event.target.closest('input, select');
    if (typing && event.key !== 'Escape') return;
    const act = KEYS[event.key];
    if (!act) return;
    event.preventDefault();
    if (typing) typing.blur();
    act();
  });
  for (const group of groups) {
    group.element.addEventListener('toggle', () => {
      if (!group.element.open) return;
      list(group, ROWS);
      history.replaceState(null, '', `#${group.id}`);
    });
  }
  field('filters').addEventListener('input', applyFilter);
  field('filters').addEventListener('submit', (event) => event.preventDefault());
  field('filters').addEventListener('reset', () => setTimeout(applyFilter));
  field('keys').addEventListener('click', KEYS['?']);
  window.addEventListener('hashchange', openAddressed);
  openAddressed();
})();
