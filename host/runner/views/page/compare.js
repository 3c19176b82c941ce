// Draws the comparison of two runs carried in the page: the phones that changed, worse first,
// each with what was lost and a table of what changed from OLD to NEW.
(function () {
  const comparison = JSON.parse(document.getElementById('data').textContent);

  const totals = comparison.totals || {};
  const facts = el('div', 'facts');
  const fact = (value, label) => facts.append(el('div', 'fact', el('b', '', text(value)), el('span', '', label)));
  fact(totals.phones, 'phones');
  fact(totals.unchanged, 'unchanged');
  fact(totals.changed, 'changed');
  fact(totals.worse, 'worse');

  // A value may span lines (fault events, reasons): each line its own block, all as text.
  function lines(value) {
    const cell = el('div', '');
    for (const line of text(value).split('\n')) cell.append(el('div', '', line));
    return cell;
  }

  const phones = el('section', '', el('h2', '', 'Phones that changed, worse first'));
  for (const p of comparison.phones || []) {
    const worse = p.worse === true;
    const panel = el('div', 'panel', el('h3', '', text(p.phone) + ' ',
      el('span', 'badge ' + (worse ? 'bad' : 'plain'), worse ? 'worse' : 'changed')));
    if (Array.isArray(p.losses) && p.losses.length > 0) {
      panel.append(el('ul', '', ...p.losses.map(loss => el('li', '', text(loss)))));
    }
    const body = el('tbody', '');
    for (const c of p.changes || []) {
      body.append(el('tr', '', el('td', 'nowrap', text(c.what)), el('td', '', lines(c.old)), el('td', '', lines(c.new))));
    }
    panel.append(el('table', '', el('thead', '', el('tr', '', el('th', '', 'what'), el('th', '', 'OLD'),
      el('th', '', 'NEW'))), body));
    phones.append(panel, el('p', '', ''));
  }
  if (!(comparison.phones || []).length) phones.append(el('p', 'none', 'No phone changed.'));

  document.body.append(el('main', '', el('header', '', el('h1', '', 'Comparison of two runs'),
    el('p', 'sub', 'OLD: ' + text(comparison.old)), el('p', 'sub', 'NEW: ' + text(comparison.new)), facts),
    phones, el('p', 'meta', 'Unchanged phones are counted, not listed. Timings are not compared. Handed file: ' +
      text(comparison.handedDigest))));
})();
