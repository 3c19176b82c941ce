// Draws the run record carried in the page. Everything from the record goes in as text nodes
// or checked attributes: the record holds what a phone supplied.
(function () {
  const record = JSON.parse(document.getElementById('data').textContent);

  function ms(value) { return (Number(value) || 0).toFixed(1) + ' ms'; }
  function hex(value) { return '0x' + (Number(value) >>> 0).toString(16).toUpperCase(); }
  function pairs(list) {
    const dl = el('dl', 'pairs');
    for (const [label, value] of list) dl.append(el('dt', '', label), el('dd', '', value));
    return dl;
  }
  function section(title, ...children) {
    return el('section', '', el('h2', '', title), ...children);
  }
  function table(headers, rows, className) {
    const head = el('tr', '');
    for (const h of headers) head.append(el('th', h.className || '', h.label));
    const body = el('tbody', '');
    for (const row of rows) {
      const tr = el('tr', '');
      row.forEach((cell, i) => {
        const td = el('td', headers[i].className || '', cell);
        td.dataset.label = headers[i].label;
        tr.append(td);
      });
      body.append(tr);
    }
    return el('table', className || '', el('thead', '', head), body);
  }
  // Only image data: URIs become a source; anything else a record could hold is never loaded.
  function photo(uri, alt) {
    if (typeof uri === 'string' && /^data:image\/(png|jpeg|gif|webp);base64,[A-Za-z0-9+\/=]+$/.test(uri)) {
      const img = el('img', 'photo');
      img.alt = alt;
      img.src = uri;
      return img;
    }
    return el('div', 'nophoto', 'no photo');
  }

  function folded(title, ...children) {
    return el('details', 'fold', el('summary', '', title), ...children);
  }

  const outcomeStyle = { updated: 'good', created: 'good', existed: 'plain', skipped: 'plain', failed: 'bad',
    'not reached': 'bad' };
  const accountsAfter = new Map((record.osAccountsAfter || []).map(a => [a.localId, a]));
  // Failed users first, then those never reached; otherwise in the plug-in's order.
  const rank = u => (u.decision === 'failed' ? 0 : u.decision === 'not reached' ? 1 : 2);
  const users = (record.users || []).map((u, i) => [u, i]).sort((a, b) => rank(a[0]) - rank(b[0]) || a[1] - b[1])
    .map(pair => pair[0]);
  const context = record.context || {};
  const faults = Array.isArray(context.faults) ? context.faults : [];
  const events = record.events || [];

  function header() {
    const restored = record.result === true;
    const counts = {};
    for (const u of users) counts[u.decision] = (counts[u.decision] || 0) + 1;
    const facts = el('div', 'facts');
    const fact = (value, label) => facts.append(el('div', 'fact', el('b', '', text(value)), el('span', '', label)));
    fact(users.length, 'source users');
    for (const d of ['updated', 'created', 'existed', 'skipped', 'failed', 'not reached']) {
      if (counts[d]) fact(counts[d], d);
    }
    fact(events.length, 'fault events');
    fact(ms(record.elapsedMs && record.elapsedMs.total), 'in all');
    const secrets = record.secrets === 'shown'
      ? el('span', 'badge warn', 'secrets shown in clear')
      : el('span', 'badge plain', 'auth token masked');
    const verdict = record.verdict || {};
    const banner = el('div', 'verdict ' + (restored ? 'good' : 'bad'),
      el('p', 'sentence', text(verdict.sentence || (restored ? 'Restored' : 'Not restored'))));
    if (faults.length) {
      banner.append(el('p', 'injected-note', el('span', 'badge injected', 'faults injected'),
        ' ' + faults.length + (faults.length === 1 ? ' fault was' : ' faults were') +
        ' injected on purpose into this run: see Run context.'));
    }
    banner.append(el('div', 'actions', copyButton(), saveButton()));
    return el('header', '', banner,
      el('h1', '', 'Restore of ', text(record.snapshot), ' ',
        el('span', 'badge ' + (restored ? 'good' : 'bad'), restored ? 'restored' : 'not restored')),
      el('p', 'sub', 'RestoreData returned ' + (restored ? 'true' : 'false') + ' \u00b7 data root: ' +
        text(record.snapshotRoot) + ' \u00b7 plug-in ' + text(record.plugin) + ' \u00b7 work tree ' +
        (record.workTreeRemoved ? 'removed' : 'still present') + ' \u00b7 ', secrets),
      facts);
  }

  // The record exactly as the page carries it.
  const recordText = () => document.getElementById('data').textContent;
  function copyButton() {
    const button = el('button', 'action', 'Copy the JSON record');
    button.type = 'button';
    button.addEventListener('click', () => {
      const done = ok => { button.textContent = ok ? 'Copied' : 'Copy failed: save it instead'; };
      if (navigator.clipboard && navigator.clipboard.writeText) {
        navigator.clipboard.writeText(recordText()).then(() => done(true), () => done(fallbackCopy()));
      } else {
        done(fallbackCopy());
      }
    });
    return button;
  }
  function fallbackCopy() {
    const area = el('textarea', 'offscreen');
    area.value = recordText();
    document.body.append(area);
    area.select();
    let ok = false;
    try { ok = document.execCommand('copy'); } catch (e) { ok = false; }
    area.remove();
    return ok;
  }
  function saveButton() {
    const button = el('button', 'action', 'Save the JSON record');
    button.type = 'button';
    button.addEventListener('click', () => {
      const url = URL.createObjectURL(new Blob([recordText()], { type: 'application/json' }));
      const base = text(record.snapshot).split('/').filter(Boolean).pop() || 'restore';
      const link = Object.assign(el('a', ''), { href: url, download: base + '.report.json' });
      document.body.append(link);
      link.click();
      link.remove();
      setTimeout(() => URL.revokeObjectURL(url), 1000);
    });
    return button;
  }

  function contextSection() {
    const c = context;
    const plugin = c.plugin || {};
    const snap = c.snapshot || {};
    const runner = c.runner || {};
    const state = c.deviceState || {};
    const build = plugin.builtWithRunner ? text(plugin.version) + ' (' + text(plugin.revision) + ')' : 'unknown';
    const parts = [pairs([
      ['Started (UTC)', text(c.startedUtc)], ['Host', text(c.host)],
      ['Runner', text(runner.version) + ' (' + text(runner.revision) + ')'],
      ['Plug-in', el('span', 'mono', text(plugin.path))], ['Plug-in build', build + ' \u2014 ' + text(plugin.note)],
      ['Plug-in SHA-256', el('span', 'mono', text(plugin.sha256))],
      ['Snapshot', el('span', 'mono', text(snap.name))],
      ['Snapshot size', text(snap.bytes) + ' bytes (' + text(snap.kind) + ')'],
      ['Snapshot SHA-256', el('span', 'mono', text(snap.sha256))], ['Digest of', text(snap.digestOf)],
      ['Laid files SHA-256', el('span', 'mono', text(snap.laidSha256))],
      ['Device state', state.file ? el('span', 'mono', text(state.file)) : 'the typical device'],
      ['Device state SHA-256', state.file ? el('span', 'mono', text(state.sha256)) : el('span', 'none', 'none')]])];
    if (faults.length) {
      parts.push(table([{ label: '' }, { label: 'injected into' }, { label: 'fault' }],
        faults.map(f => [el('span', 'badge injected', 'injected'), text(f.injectedInto), text(f.sentence)]), 'faults'));
    } else {
      parts.push(el('p', 'none', 'No fault injected.'));
    }
    return section('Run context', el('div', 'panel', ...parts));
  }

  function codesSection() {
    const codes = record.codes || [];
    if (!codes.length) return section('Codes', el('p', 'none', 'No code met.'));
    return section('Codes', table([{ label: 'hex', className: 'mono' }, { label: 'name', className: 'mono' },
      { label: 'meaning' }, { label: 'from' }],
    codes.map(c => [text(c.hex), text(c.name), text(c.meaning), text(c.from)]), 'codes'));
  }

  function account() {
    const a = record.account;
    if (!a) return section('Account handed over', el('p', 'panel none', text(record.accountNote)));
    if (!a.isJson) {
      return section('Account handed over', el('div', 'panel', el('p', 'none', 'The handed file holds no JSON.'),
        pairs([['Handed to', text(a.path)], ['Owner', text(a.uid)], ['Group', text(a.gid)], ['Mode', text(a.mode)]])));
    }
    const extras = Array.isArray(a.extras) ? a.extras : [];
    const panel = el('div', 'panel', pairs([
      ['Name', text(a.name)], ['Type', text(a.type)], ['Locale', a.locale ? text(a.locale) : el('span', 'none', 'none')],
      ['Account id', text(a.id)], ['Extras', String(extras.length)], ['Auth token', el('span', 'mono', text(a.authToken))],
      ['Handed to', el('span', 'mono', text(a.path))], ['Owner', text(a.uid)], ['Group', text(a.gid)],
      ['Mode', text(a.mode)]]));
    if (extras.length) {
      panel.append(el('details', '', el('summary', '', 'The ' + extras.length + ' extras'),
        table([{ label: 'key' }, { label: 'value' }], extras.map(x => [text(x.key), text(x.value)]), 'extras')));
    }
    return section('Account handed over', panel);
  }

  function userCard(u) {
    const source = u.source || {};
    const os = u.localId >= 0 ? accountsAfter.get(u.localId) : undefined;
    const picture = os && os.photo ? os.photo : u.phonePhoto;
    const name = typeof source.name === 'string' && source.name !== ''
      ? el('div', 'user-name', source.name)
      : el('div', 'user-name unnamed', '(no name)');
    const type = source.type === null || source.type === undefined
      ? (source.problem ? 'unknown' : 'no type attribute') : text(source.type);
    const flags = typeof source.flags === 'number' ? source.flagNames + ' (' + hex(source.flags) + ')' : 'unknown';
    const meta = el('div', 'meta', 'source user ' + text(u.sourceId) + (source.form ? ', ' + source.form : ''));
    const typeLine = el('div', 'meta', type);
    const flagLine = el('div', 'meta', 'flags ' + flags.split('|').join('|\u200b'));
    const became = el('div', 'became', el('span', 'badge ' + (outcomeStyle[u.decision] || 'warn'), text(u.decision)));
    if (u.localId >= 0) {
      became.append(' \u2192 OS account ' + text(u.localId));
      if (os) {
        became.append(' ');
        became.append(os.localName ? el('q', 'os-name', os.localName) : el('span', 'unnamed', '(no name)'));
        became.append(' (' + text(os.type) + ')');
      }
    }
    const body = el('div', 'body', name, meta, typeLine, flagLine, became);
    const card = el('article', 'user ' + (outcomeStyle[u.decision] || 'plain'),
      photo(picture, 'photo of source user ' + text(u.sourceId)), body,
      el('p', 'explanation wide', text(u.explanation)));
    if (source.problem) card.append(el('p', 'meta wide', 'The runner could not read its file: ' + text(source.problem) + '.'));
    if (Array.isArray(u.pluginLines) && u.pluginLines.length) {
      const lines = el('ul', 'lines');
      for (const line of u.pluginLines) lines.append(el('li', '', text(line)));
      const details = el('details', '', el('summary', '', 'The plug-in\u2019s own lines (' + u.pluginLines.length + ')'), lines);
      details.open = u.decision === 'failed';
      card.append(details);
    }
    return card;
  }

  function usersSection() {
    const parts = [];
    if (record.userRestore && record.userRestore.note) parts.push(el('p', 'panel', text(record.userRestore.note)));
    if (users.length) {
      parts.push(el('div', 'users', ...users.map(userCard)));
    } else {
      parts.push(el('p', 'none', 'No source user.'));
    }
    return section('Users', ...parts);
  }

  function eventsSection() {
    if (!events.length) return section('Fault events', el('p', 'none', 'None.'));
    const p = e => (e.params || {});
    return section('Fault events', table(
      [{ label: 'type' }, { label: 'code', className: 'num' }, { label: 'task' }, { label: 'message' }],
      events.map(e => [text(p(e).ERROR_TYPE), text(p(e).ERROR_CODE) + ' (' + hex(p(e).ERROR_CODE) + ')',
        text(p(e).TASK_ID), text(p(e).ERROR_MESSAGE)])));
  }

  function timelineSection() {
    const journal = record.migrateJournal || [];
    if (!journal.length) return section('Migrate service requests', el('p', 'none', 'No request journalled.'));
    const failed = journal.filter(j => j.outcome !== 'served').length;
    const start = Math.min(...journal.map(j => Number(j.timeMs) || 0));
    const end = Math.max(...journal.map(j => (Number(j.timeMs) || 0) + (Number(j.durationUs) || 0) / 1000));
    const span = Math.max(end - start, 1);
    const rows = journal.map(j => {
      const offset = (Number(j.timeMs) || 0) - start;
      const track = el('div', 'track');
      const bar = el('i', j.outcome === 'served' ? '' : 'bad');
      bar.style.left = (100 * offset / span).toFixed(2) + '%';
      bar.style.width = (100 * ((Number(j.durationUs) || 0) / 1000) / span).toFixed(2) + '%';
      track.append(bar);
      const paths = text(j.src) + (j.dst && j.dst !== j.src ? ' \u2192 ' + text(j.dst) : '');
      const answer = text(j.outcome) + ', result ' + text(j.result) + (j.errCode ? ', errno ' + text(j.errCode) : '') +
        (j.note ? ' (' + text(j.note) + ')' : '');
      return ['+' + offset.toFixed(0) + ' ms', text(j.operation), paths, answer,
        ((Number(j.durationUs) || 0) / 1000).toFixed(2) + ' ms', track];
    });
    return section('Migrate service requests', folded(journal.length + ' requests' +
      (failed ? ', ' + failed + ' not served' : ', all served'), table(
      [{ label: 'at', className: 'num' }, { label: 'request', className: 'nowrap' }, { label: 'paths', className: 'mono' }, { label: 'answer', className: 'answer' },
        { label: 'took', className: 'num' }, { label: 'timeline', className: 'bar' }], rows, 'timeline')));
  }

  function timingsSection() {
    const t = record.elapsedMs || {};
    const total = Math.max(Number(t.total) || 0, 0.001);
    const row = (label, value, from) => {
      const track = el('div', 'track');
      const bar = el('i', '');
      bar.style.left = (100 * (from || 0) / total).toFixed(2) + '%';
      bar.style.width = (100 * (Number(value) || 0) / total).toFixed(2) + '%';
      track.append(bar);
      return [label, ms(value), track];
    };
    return section('Timings', folded('In all ' + ms(t.total), table([{ label: 'step' }, { label: 'took', className: 'num' }, { label: '', className: 'bar' }], [
      row('set-up (sandbox, snapshot, migrate service)', t.setup, 0),
      row('of which starting the migrate service', t.serviceStart, 0),
      row('RestoreData', t.restoreData, Number(t.setup) || 0),
      row('in all', t.total, 0)], 'timeline')));
  }

  function snapshotSection() {
    const leftOut = record.leftOut || [];
    const parts = [el('p', '', String((record.laidFiles || []).length) + ' files laid into the work tree' +
      (record.userList && record.userList.form ? '; the user files are ' + text(record.userList.form) : '') + '.')];
    if (leftOut.length) {
      parts.push(table([{ label: 'left out' }, { label: 'why' }], leftOut.map(e => [text(e.path), text(e.reason)])));
    }
    const logs = record.logs || [];
    const lines = el('ul', 'lines');
    for (const l of logs) {
      lines.append(el('li', '', text(l.level) + ' ' + (l.file ? text(l.file) + '(' + text(l.line) + ') ' : '') + text(l.message)));
    }
    parts.push(folded('Every log line of the call (' + logs.length + ')', lines));
    return section('Snapshot and log', el('div', 'panel', ...parts));
  }

  document.body.append(el('main', '', header(), account(), usersSection(), eventsSection(), codesSection(),
    contextSection(), timelineSection(), timingsSection(), snapshotSection()));
  window.addEventListener('beforeprint', () => {
    for (const d of document.querySelectorAll('details')) d.open = true;
  });
})();
