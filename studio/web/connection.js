// Connected mode: a page served by `eqdrc serve` edits the tuning a device plays. The
// tuning comes from the server with its ETag, every change goes back with PUT and
// If-Match (throttled, the last state always sent), and the server's events bring
// writes by others, refusals, hand-overs and the player's meters.
import { $, message, page, studio } from './page.js';
import { showHandover, showMeters } from './meters.js';

const MIN_GAP_MS = 200;   // at most about five writes a second while a field is dragged or typed
const RETRY_MS = 1000;    // after a lost connection
const TOKEN_KEY = 'eqdrc-serve-token';

// The state the browser test reads.
const link = studio.connection = { state: 'offline', path: '', etag: '', writes: 0, refused: null };
let openTuning;           // app.js's: (name, bytes) -> whether it opened
let serverText = '';      // the tuning as last known on the server, as the engine writes it
let dirty = false, inFlight = false, lastSent = -Infinity, timer = null, loading = false;
let eventsEtag = '';      // the newest ETag a `tuning` event named, not one of ours
const ownEtags = new Set(); // of this page's writes, whose events may come before or after the answer

// The token comes in the page's fragment (never sent, so never logged) and is kept for
// the tab's reloads; the fragment is then taken off the address bar.
function token() {
    const m = /(?:^#|&)token=([^&]*)/.exec(location.hash);
    if (m) {
        sessionStorage.setItem(TOKEN_KEY, decodeURIComponent(m[1]));
        history.replaceState(null, '', location.pathname + location.search);
    }
    return sessionStorage.getItem(TOKEN_KEY) || '';
}

function api(path, init = {}) {
    const t = token();
    const headers = { ...(init.headers || {}), ...(t ? { Authorization: 'Bearer ' + t } : {}) };
    return fetch(path, { ...init, headers, cache: 'no-store' });
}

function showState(state, title = '') {
    link.state = state;
    const el = $('connection');
    el.hidden = false;
    el.textContent = state === 'connected' ? `connected to ${link.path}` : state;
    el.className = state;
    el.title = title;
}

// Loads the server's tuning into the editor; false when it could not be read.
async function load() {
    const r = await api('api/tuning').catch(() => null);
    if (!r) {
        showState('disconnected', 'the tuning is loaded again when the server answers');
        return false;
    }
    if (!r.ok) {
        message(`${link.path}: the server cannot give the tuning: ${(await r.json().catch(() => ({}))).error || r.statusText}`, 'error');
        return false;
    }
    const bytes = new Uint8Array(await r.arrayBuffer());
    loading = true;
    try {
        if (!openTuning(link.path.split('/').pop(), bytes)) return false;
    } finally { loading = false; }
    link.etag = r.headers.get('ETag') || '';
    eventsEtag = '';
    serverText = page.engine.jsonText();
    dirty = false;
    return true;
}

async function reloadChanged() {
    clearTimeout(timer);
    timer = null;
    if (await load()) message(`${link.path} was changed elsewhere: the device's tuning is loaded again`, 'note');
}

function changed() {
    if (loading) return;
    dirty = true;
    pump();
}

// Sends the held tuning when it differs from the server's, one request at a time and
// at least MIN_GAP_MS apart; what changes meanwhile goes out with the next one.
function pump() {
    if (!dirty || inFlight || timer) return;
    const wait = lastSent + MIN_GAP_MS - performance.now();
    if (wait > 0) {
        timer = setTimeout(() => { timer = null; pump(); }, wait);
        return;
    }
    dirty = false;
    const body = page.engine.jsonText();
    if (body !== serverText) send(body);
}

async function send(body) {
    inFlight = true;
    lastSent = performance.now();
    let r, answer;
    try {
        r = await api('api/tuning', { method: 'PUT', body, headers: { 'If-Match': link.etag, 'Content-Type': 'application/json' } });
        answer = await r.json().catch(() => ({}));
    } catch {
        inFlight = false;
        dirty = true;
        showState('disconnected', 'the change is sent again when the server answers');
        timer = setTimeout(() => { timer = null; pump(); }, RETRY_MS);
        return;
    }
    inFlight = false;
    if (link.state !== 'connected') showState('connected');
    if (r.ok) {
        link.etag = answer.etag || r.headers.get('ETag');
        ownEtags.add(link.etag);
        if (ownEtags.size > 64) ownEtags.delete(ownEtags.values().next().value);
        if (eventsEtag === link.etag) eventsEtag = '';
        link.writes++;
        serverText = body;
        if (link.refused) message(`${link.path}: the check passes again; the device plays the tuning as edited`);
        link.refused = null;
    } else if (r.status === 412) {
        await reloadChanged();
        return;
    } else if (r.status === 422) {
        link.refused = answer.errors || [];
        message(`${link.path}: the check refused the change; the device keeps playing the previous tuning\n` +
                link.refused.join('\n'), 'error');
    } else {
        message(`${link.path}: the server did not take the change (${r.status}): ${answer.error || r.statusText}`, 'error');
    }
    if (eventsEtag && eventsEtag !== link.etag && !dirty) await reloadChanged();
    else pump();
}

function listen() {
    const t = token();
    const events = new EventSource('api/events' + (t ? '?token=' + encodeURIComponent(t) : ''));
    const data = (e) => { try { return JSON.parse(e.data); } catch { return null; } };
    events.onopen = async () => {
        if (link.state === 'connected') return;
        // Back after a loss: the device may have been given another tuning meanwhile.
        showState('connected');
        const r = await api('api/status').catch(() => null);
        const s = r && r.ok ? await r.json() : null;
        if (s && s.etag !== link.etag && !inFlight) await reloadChanged();
        else pump();
    };
    events.onerror = () => {
        showState('disconnected', 'trying again');
        // A refused stream is not retried by the browser itself.
        if (events.readyState === EventSource.CLOSED) setTimeout(listen, RETRY_MS);
    };
    events.addEventListener('tuning', (e) => {
        const d = data(e);
        if (!d || d.etag === link.etag || ownEtags.has(d.etag)) return;
        eventsEtag = d.etag;
        if (!inFlight && !timer) reloadChanged();
    });
    events.addEventListener('refused', (e) => {
        const d = data(e);
        if (d && !inFlight && JSON.stringify(d.errors) !== JSON.stringify(link.refused))
            message(`${link.path}: another client's tuning was refused by the check:\n${d.errors.join('\n')}`, 'note');
    });
    events.addEventListener('handover', (e) => { const d = data(e); if (d) showHandover(d.frame, d.handovers); });
    events.addEventListener('meters', (e) => { const d = data(e); if (d) showMeters(d); });
}

// Connects when the page came from `eqdrc serve`; false (and nothing changed) otherwise.
export async function connect(open) {
    if (!/^https?:$/.test(location.protocol)) return false;
    let status;
    try {
        const r = await api('api/status');
        if (!r.ok || !(r.headers.get('Content-Type') || '').includes('json')) {
            if (r.status === 401) message('the server needs its token: open the address `eqdrc serve` printed, with its #token=...', 'error');
            return false;
        }
        status = await r.json();
    } catch { return false; }
    openTuning = open;
    link.path = status.tuning;
    showState('connected');
    if (!await load()) return true;
    if (!studio.issues.some((i) => i.severity === 'error')) message(`${link.path} opened from the device; changes are sent as you make them`);
    const local = page.changed;
    page.changed = () => { local(); changed(); };
    if (status.meters) $('meters').hidden = false;
    listen();
    return true;
}
