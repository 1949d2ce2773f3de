// The explorer: log in, send requests to /data, read names, see replies.
'use strict';

const $ = (id) => document.getElementById(id);
const state = { csrf: '', role: '', history: [] };

async function call(method, url, body, contentType) {
  const headers = {};
  if (state.csrf) headers['X-CSRF-Token'] = state.csrf;
  if (contentType) headers['Content-Type'] = contentType;
  const res = await fetch(url, { method, headers, body, credentials: 'same-origin' });
  const text = await res.text();
  return { status: res.status, ok: res.ok, text, type: res.headers.get('Content-Type') || '' };
}

function errorOf(r) {
  try { return JSON.parse(r.text).error || r.text; } catch (e) { return r.text; }
}

function show(loggedIn, who) {
  $('login-panel').hidden = loggedIn;
  $('work').hidden = !loggedIn;
  $('logout').hidden = !loggedIn;
  $('who').hidden = !loggedIn;
  $('who').textContent = loggedIn ? `${who.user} (${who.role})` : '';
  if (loggedIn) {
    state.csrf = who.csrfToken;
    state.role = who.role;
    loadScenarios();
  } else {
    state.csrf = '';
    state.role = '';
  }
}

async function login(ev) {
  ev.preventDefault();
  const body = JSON.stringify({ user: $('user').value, password: $('password').value });
  const r = await call('POST', 'login', body, 'application/json');
  $('password').value = '';
  if (r.ok) {
    $('login-error').hidden = true;
    show(true, JSON.parse(r.text));
  } else {
    $('login-error').hidden = false;
    $('login-error').textContent = `${r.status}: ${errorOf(r)}`;
  }
}

async function logout() {
  await call('POST', 'logout');
  show(false);
}

// Pretty XML of an element's children, without the status and error message.
function pretty(node, depth) {
  let out = '';
  const pad = '  '.repeat(depth);
  for (const child of node.childNodes) {
    if (child.nodeType === Node.TEXT_NODE) {
      const t = child.textContent.trim();
      if (t) out += pad + t + '\n';
      continue;
    }
    if (child.nodeType !== Node.ELEMENT_NODE) continue;
    if (depth === 0 && (child.nodeName === 'status' || child.nodeName === 'errorMsg')) continue;
    const attrs = Array.from(child.attributes).map((a) => ` ${a.name}="${a.value}"`).join('');
    const elements = Array.from(child.childNodes).filter((c) => c.nodeType === Node.ELEMENT_NODE);
    if (elements.length === 0) {
      out += `${pad}<${child.nodeName}${attrs}>${child.textContent.trim()}</${child.nodeName}>\n`;
    } else {
      out += `${pad}<${child.nodeName}${attrs}>\n${pretty(child, depth + 1)}${pad}</${child.nodeName}>\n`;
    }
  }
  return out;
}

function showReply(r) {
  $('http').textContent = `HTTP ${r.status} ${r.type.split(';')[0]}`;
  const status = $('status');
  const err = $('errorMsg');
  status.className = 'status';
  err.hidden = true;
  if (!r.ok) {
    status.textContent = 'not sent';
    status.classList.add('error');
    err.hidden = false;
    err.textContent = errorOf(r);
    $('reply').textContent = '';
    return;
  }
  const doc = new DOMParser().parseFromString(r.text, 'application/xml');
  const root = doc.documentElement;
  if (!root || doc.getElementsByTagName('parsererror').length > 0 || root.nodeName !== 'root') {
    status.textContent = r.text.startsWith('<?xml') ? 'document' : 'raw';
    $('reply').textContent = r.text;
    return;
  }
  const st = root.getElementsByTagName('status')[0];
  const msg = root.getElementsByTagName('errorMsg')[0];
  status.textContent = st ? st.textContent : '(none)';
  status.classList.add(st && st.textContent === 'ok' ? 'ok' : 'error');
  if (msg) {
    err.hidden = false;
    err.textContent = msg.textContent;
  }
  $('reply').textContent = pretty(root, 0) || '(no elements)';
}

// get= and launch documents read: GET; anything else changes: POST.
function reads(text) {
  if (/(viewer|kvm|crashCapture|bootCapture)\.jnlp/.test(text)) return true;
  if (!text.startsWith('get=')) return false;
  const at = text.indexOf('set');
  return at < 0 || text.indexOf('=', at) < 0;
}

async function send(text) {
  text = text.trim();
  if (!text) return;
  $('request').value = text;
  const r = reads(text)
    ? await call('GET', 'data?' + encodeURIComponent(text))
    : await call('POST', 'data', text, 'text/plain');
  if (r.status === 401) {
    show(false);
    $('login-error').hidden = false;
    $('login-error').textContent = 'The session ended: log in again.';
    return;
  }
  showReply(r);
  state.history.push(text);
  const li = document.createElement('li');
  const a = document.createElement('a');
  a.textContent = text;
  a.title = `HTTP ${r.status}`;
  a.addEventListener('click', () => send(text));
  li.appendChild(a);
  $('history').prepend(li);
}

async function loadNames() {
  const r = await call('GET', 'names');
  const box = $('names');
  box.textContent = '';
  if (!r.ok) {
    box.textContent = errorOf(r);
    return;
  }
  const groups = JSON.parse(r.text);
  if (groups.length === 0) box.textContent = 'No name list yet (the canned library writes it at the first request).';
  for (const g of groups) {
    const h = document.createElement('h3');
    h.textContent = `${g.agent} (${g.names.length})`;
    box.appendChild(h);
    const div = document.createElement('div');
    for (const n of g.names) {
      const a = document.createElement('a');
      a.textContent = n;
      a.dataset.name = n;
      a.addEventListener('click', () => send('get=' + n));
      div.appendChild(a);
    }
    box.appendChild(div);
  }
  filterNames();
}

function filterNames() {
  const f = $('names-filter').value.toLowerCase();
  for (const a of $('names').querySelectorAll('a')) a.hidden = f !== '' && !a.dataset.name.toLowerCase().includes(f);
}

async function loadScenarios() {
  const box = $('scenarios');
  const r = await call('GET', 'sim/scenarios');
  box.textContent = '';
  if (!r.ok) {
    box.textContent = errorOf(r);
    return;
  }
  let list = [];
  try { list = JSON.parse(r.text); } catch (e) { box.textContent = 'simctl answered no JSON'; return; }
  if (list.length === 0) box.textContent = 'No scenarios.';
  for (const s of list) {
    const row = document.createElement('div');
    row.className = 'scenario';
    const label = document.createElement('span');
    label.textContent = s.name;
    if (s.applied) {
      const on = document.createElement('span');
      on.className = 'on';
      on.textContent = ' applied';
      label.appendChild(on);
    }
    const small = document.createElement('small');
    small.textContent = s.description || '';
    label.appendChild(small);
    row.appendChild(label);
    if (state.role === 'admin') {
      const b = document.createElement('button');
      const action = s.applied ? 'clear' : 'apply';
      b.textContent = action;
      b.addEventListener('click', async () => {
        const x = await call('POST', `sim/scenarios/${encodeURIComponent(s.name)}/${action}`);
        if (!x.ok) alert(errorOf(x));
        loadScenarios();
      });
      row.appendChild(b);
    }
    box.appendChild(row);
  }
  if (state.role !== 'admin' && list.length > 0) {
    const p = document.createElement('p');
    p.className = 'hint';
    p.textContent = 'An admin session switches scenarios.';
    box.appendChild(p);
  }
}

window.addEventListener('DOMContentLoaded', async () => {
  $('login-form').addEventListener('submit', login);
  $('logout').addEventListener('click', logout);
  $('request-form').addEventListener('submit', (ev) => { ev.preventDefault(); send($('request').value); });
  $('names-panel').addEventListener('toggle', () => { if ($('names-panel').open) loadNames(); });
  $('names-filter').addEventListener('input', filterNames);
  const r = await call('GET', 'session');
  if (r.ok) show(true, JSON.parse(r.text));
});
