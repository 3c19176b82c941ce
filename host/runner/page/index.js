// Draws the batch index carried in the page: one row per phone, failed phones first.
(function () {
  const index = JSON.parse(document.getElementById('data').textContent);

  const style = { 'restored': 'good', 'not restored': 'bad', 'not set up': 'warn' };
  const decisions = ['updated', 'created', 'existed', 'skipped', 'failed'];

  const phones = index.phones || [];
  const totals = index.totals || {};
  const facts = el('div', 'facts');
  const fact = (value, label) => facts.append(el('div', 'fact', el('b', '', text(value)), el('span', '', label)));
  fact(totals.phones, 'phones');
  fact(totals.restored, 'restored');
  fact(totals.notRestored, 'not restored');
  fact(totals.notSetUp, 'not set up');

  const head = el('tr', '', el('th', '', 'phone'), el('th', '', 'result'),
    ...decisions.map(d => el('th', 'num', d)), el('th', '', 'fault events'), el('th', 'num', 'time'));
  const body = el('tbody', '');
  for (const p of phones) {
    // A page link is relative and names a file this batch wrote; the name is encoded, never trusted.
    const name = typeof p.page === 'string' && p.page !== ''
      ? Object.assign(el('a', 'phone', text(p.phone)), { href: 'phones/' + encodeURIComponent(p.phone) + '.html' })
      : el('span', 'phone', text(p.phone));
    const result = el('td', '', el('span', 'badge ' + (style[p.result] || 'plain'), text(p.result)));
    if (p.problem) result.append(el('div', 'meta', text(p.problem)));
    const users = p.users || {};
    const events = Object.entries(p.events || {}).map(([type, count]) => type + ' \u00d7' + count).join(', ');
    const time = typeof p.timeMs === 'number' ? (p.timeMs / 1000).toFixed(2) + ' s' : '';
    body.append(el('tr', '', el('td', '', name), result, ...decisions.map(d => el('td', 'num', text(users[d] || 0))),
      el('td', '', events || el('span', 'none', 'none')), el('td', 'num', time)));
  }
  const title = 'Restore of ' + text(totals.phones) + ' phones' + (index.shard ? ' (shard ' + text(index.shard) + ')' : '');
  document.body.append(el('main', '', el('header', '', el('h1', '', title), facts),
    el('h2', '', 'Phones, failed first'), el('table', 'index', el('thead', '', head), body)));
})();
