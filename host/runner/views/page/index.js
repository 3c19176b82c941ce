// Draws the batch index carried in the page: one row per phone, failed phones first.
(function () {
  const index = JSON.parse(document.getElementById('data').textContent);

  const style = { 'restored': 'good', 'not restored': 'bad', 'not set up': 'warn' };
  const decisions = ['updated', 'created', 'existed', 'skipped', 'failed'];

  const phones = index.phones || [];
  const totals = index.totals || {};
  const campaign = index.campaign || {};
  const facts = el('div', 'facts');
  const fact = (value, label) => facts.append(el('div', 'fact', el('b', '', text(value)), el('span', '', label)));
  fact(totals.phones, 'phones');
  fact(totals.restored, 'restored');
  fact(totals.notRestored, 'not restored');
  fact(totals.notSetUp, 'not set up');
  const injectedPhones = phones.filter(p => p.injected === true).length;
  if (injectedPhones) fact(injectedPhones, 'with faults injected');

  const labels = ['phone', 'result', 'reason', 'account', 'users', 'left out', 'faults', 'fault events', 'time'];
  const head = el('tr', '', ...labels.map(l => el('th', l === 'left out' || l === 'time' ? 'num' : '', l)));
  const body = el('tbody', '');
  const cell = (label, className, ...children) => {
    const td = el('td', className, ...children);
    td.dataset.label = label;
    return td;
  };
  for (const p of phones) {
    // A page link is relative and names a file this batch wrote; the name is encoded, never trusted.
    const name = typeof p.page === 'string' && p.page !== ''
      ? Object.assign(el('a', 'phone', text(p.phone)), { href: 'phones/' + encodeURIComponent(p.phone) + '.html' })
      : el('span', 'phone', text(p.phone));
    const result = cell('result', '', el('span', 'badge ' + (style[p.result] || 'plain'), text(p.result)));
    if (p.problem) result.append(el('div', 'meta', text(p.problem)));
    const users = p.users || {};
    const userCounts = decisions.filter(d => users[d]).map(d => text(users[d]) + ' ' + d).join(', ');
    const events = Object.entries(p.events || {}).map(([type, count]) => type + ' \u00d7' + count).join(', ');
    const time = typeof p.timeMs === 'number' ? (p.timeMs / 1000).toFixed(2) + ' s' : '';
    body.append(el('tr', '', cell('phone', '', name), result, cell('reason', 'reason', text(p.reason)),
      cell('account', '', text(p.account)), cell('users', '', userCounts || el('span', 'none', 'none')),
      cell('left out', 'num', text(p.leftOut || 0)),
      cell('faults', '', p.injected === true ? el('span', 'badge injected', 'injected') : el('span', 'none', 'none')),
      cell('fault events', '', events || el('span', 'none', 'none')), cell('time', 'num', time)));
  }

  // Rows whose text holds what is typed in the filter box, in any case.
  const shown = el('p', 'sub', '');
  const filter = el('input', 'filter');
  Object.assign(filter, { type: 'search', placeholder: 'Filter phones: name, result, reason, code\u2026' });
  filter.setAttribute('aria-label', 'Filter phones');
  const applyFilter = () => {
    const query = filter.value.trim().toLowerCase();
    let count = 0;
    for (const row of body.rows) {
      const match = query === '' || row.textContent.toLowerCase().includes(query);
      row.hidden = !match;
      if (match) count++;
    }
    shown.textContent = query === '' ? '' : count + ' of ' + phones.length + ' phones shown';
  };
  filter.addEventListener('input', applyFilter);

  const plugins = Array.isArray(campaign.plugins) ? campaign.plugins : [];
  const builds = plugins.map(p => (p.version ? 'version ' + text(p.version) + ', ' : 'version unknown, ') +
    'SHA-256 ' + text(p.sha256)).join('; ');
  const when = el('p', 'sub campaign',
    'Started ' + (campaign.startedUtc ? text(campaign.startedUtc) + ' (UTC)' : 'at an unknown time') +
    ' with the plug-in ' + (plugins.length > 1 ? 'builds ' : 'build ') + (builds || 'unknown') +
    (plugins.length > 1 ? ' \u2014 the phones ran with different plug-in builds' : '') + '.');
  const title = 'Restore of ' + text(totals.phones) + ' phones' + (index.shard ? ' (shard ' + text(index.shard) + ')' : '');
  document.body.append(el('main', '', el('header', '', el('h1', '', title), when, facts),
    el('h2', '', 'Phones, failed first'), filter, shown, el('table', 'index', el('thead', '', head), body)));
})();
