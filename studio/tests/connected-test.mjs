// The studio connected to a playing device: `eqdrc serve` over a tuning file that aplay
// plays through the ALSA plugin (reload on, meters, a file slave), at real-time pace. The
// page raises an EQ band; the file is replaced whole, the plugin takes the tuning at a
// logged frame with the exact bits on both sides of it (scripts/player_check.py), and the
// page's meters move. Then a refused change, another client's write, a drag (throttled
// writes, the last position kept), and a change made while the server is away.
//   node connected-test.mjs SITE_DIR NATIVE_BUILD WORK_DIR ARTIFACT_DIR
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { randomBytes } from 'node:crypto';
import { copyFileSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { join, resolve } from 'node:path';
import { launchChromium } from './chromium.mjs';

const [site, native, work, artifacts] = process.argv.slice(2).map((p) => resolve(p));
const here = import.meta.dirname || new URL('.', import.meta.url).pathname;
const repo = resolve(here, '../..');
const eqdrc = join(native, 'tools/eqdrc/eqdrc');
const BAND = 'eq10.channels[0].bands[1]';  // Parametric at 400 Hz, -1 dB in music.json
const SECONDS = 30;                           // of input at most; the test ends it once it has seen enough
const BYTES_PER_MS = 48 * 2 * 2;             // 48 kHz stereo 16-bit
const STEP_TIMEOUT_MS = 15000;
const TEST_TIMEOUT_MS = 60000;

let failures = 0;
function check(ok, what, detail = '') {
    console.log(`${ok ? 'ok  ' : 'FAIL'} ${what}${!ok && detail ? ': ' + detail : ''}`);
    if (!ok) failures++;
}
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
async function until(what, fn, ms = STEP_TIMEOUT_MS) {
    for (const t0 = Date.now(); Date.now() - t0 < ms; await sleep(50)) {
        const v = await fn();
        if (v) return v;
    }
    throw new Error('timed out waiting for ' + what);
}

const live = join(work, 'live.json'), before = join(work, 'before.json'), meters = join(work, 'live.meters');
copyFileSync(join(repo, 'tunings/music.json'), live);
copyFileSync(live, before);
const token = randomBytes(16).toString('hex');
writeFileSync(join(work, 'token'), token + '\n', { mode: 0o600 });
const port = await new Promise((ok) => { const s = createServer().listen(0, '127.0.0.1', () => { const p = s.address().port; s.close(() => ok(p)); }); });
const base = `http://127.0.0.1:${port}`;
const serveLog = { text: '' };
let serve;
function startServe() {
    serve = spawn(eqdrc, ['serve', '--tuning', live, '--listen', `127.0.0.1:${port}`, '--token-file', join(work, 'token'),
                          '--meters', meters, '--site', site], { stdio: ['ignore', 'ignore', 'pipe'] });
    serve.stderr.on('data', (d) => { serveLog.text += d; });
}
startServe();
const auth = { Authorization: 'Bearer ' + token };
const apiGet = (path) => fetch(base + path, { headers: auth }).catch(() => null);
const tuningOnDisk = () => { try { return JSON.parse(readFileSync(live, 'utf8')); } catch { return null; } };

// The player: music at real-time pace into aplay, which plays it through the plugin.
execFileSync('/usr/bin/python3', [join(repo, 'scripts/make_pcm.py'), join(work, 'music.raw'), String(SECONDS)]);
const input = readFileSync(join(work, 'music.raw'));
writeFileSync(join(work, 'asoundrc'), `pcm_type.eqdrc { lib "${join(native, 'plugins/alsa/libasound_module_pcm_eqdrc.so')}" }
pcm.live { type eqdrc tuning "${live}" reload on debug on meters "${meters}"
           slave.pcm { type file slave.pcm null file "${join(work, 'slave.raw')}" format raw } }\n`);
const aplay = spawn('aplay', ['-q', '-D', 'live', '-t', 'raw', '-f', 'S16_LE', '-c', '2', '-r', '48000', '-'],
                    { env: { ...process.env, ALSA_CONFIG_PATH: `/usr/share/alsa/alsa.conf:${join(work, 'asoundrc')}` },
                      stdio: ['pipe', 'ignore', 'pipe'] });
const playerLog = { text: '' };
aplay.stderr.on('data', (d) => { playerLog.text += d; });
const aplayDone = new Promise((ok) => aplay.on('exit', ok));
let fed = 0, end = input.length;
const started = Date.now();
const pacer = setInterval(() => {
    const due = Math.min(end, Math.floor(((Date.now() - started) * BYTES_PER_MS) / 4) * 4);
    if (due > fed) { aplay.stdin.write(input.subarray(fed, due)); fed = due; }
    if (fed >= end) { clearInterval(pacer); aplay.stdin.end(); }
}, 10);

// Bounded whatever hangs: the player and the server are ours to end.
setTimeout(() => {
    console.log(`FAIL the connected test ends within ${TEST_TIMEOUT_MS / 1000} s`);
    aplay.kill();
    serve.kill();
    process.exit(1);
}, TEST_TIMEOUT_MS).unref();

mkdirSync(artifacts, { recursive: true });
const { browser, close: closeBrowser } = await launchChromium();

try {
    await until('eqdrc serve', async () => (await apiGet('/api/status'))?.ok);
    const page = await browser.newPage();
    page.on('pageerror', (e) => check(false, 'no uncaught page error', e.message));
    page.setDefaultTimeout(STEP_TIMEOUT_MS);
    await page.goto(`${base}/#token=${token}`);
    await page.waitForFunction(() => window.studio && window.studio.ready);
    const boost = `#fields [data-path="${BAND}.boost"]`;
    const shown = await page.evaluate((b) => ({ status: document.getElementById('connection').textContent, url: location.href,
                                                boost: document.querySelector(b).value }), boost);
    check(shown.status === `connected to ${live}` && !shown.url.includes(token) && shown.boost === '-1',
          'the page opens the served tuning, says where it is connected, and takes the token off the address', JSON.stringify(shown));

    // Meters once the player publishes; then one edit, which the device takes at a frame.
    await page.waitForFunction(() => studio.meters.readings > 0);
    const rows = await page.$$eval('#meter-channels .meter', (els) => els.map((e) => e.firstChild.textContent));
    const channelRows = ['input peak', 'output peak', 'low', 'middle_1', 'middle_2', 'high', 'agc', 'limiter'];
    check(rows.join() === [...channelRows, ...channelRows].join(),
          'per channel: peaks in and out, the four compressor bands, the AGC and the limiter', rows.join());
    await page.click('summary[data-section="eq10"]');
    await page.click(boost, { clickCount: 3 });
    await page.type(boost, '9');
    const etag = await page.waitForFunction(() => studio.connection.writes > 0 && studio.connection.etag).then((h) => h.jsonValue());
    const onDisk = tuningOnDisk();
    check(onDisk?.eq10.channels[0].bands[1].boost === 9 && (await (await apiGet('/api/status')).json()).etag === etag,
          'the raised band is written to the tuning file, replaced whole, under the ETag the page holds');
    const took = await until('the hand-over in the player\'s log', () => /new tuning took effect at frame (\d+)/.exec(playerLog.text));
    const frame = Number(took[1]);
    await page.waitForFunction((f) => document.getElementById('handover').textContent.includes(`frame ${f} (1 `), {}, frame);
    check(true, `the page shows the hand-over at the frame the plugin logged (${frame})`);
    const readings = [];
    for (let i = 0; i < 4; i++, await sleep(300))
        readings.push(await page.$$eval('#meter-channels output', (els) => els.map((e) => e.textContent).join()));
    check(new Set(readings).size > 2, 'the meters move while the device plays', readings.join(' | '));
    await page.screenshot({ path: join(artifacts, 'connected.png') });

    // The played samples against the chain, over what was played.
    end = fed;
    await Promise.race([aplayDone, sleep(STEP_TIMEOUT_MS)]);
    writeFileSync(join(work, 'played.raw'), input.subarray(0, end));
    writeFileSync(join(work, 'player.log'), playerLog.text);
    for (const [json, bin] of [[before, 'old.bin'], [live, 'new.bin']])
        spawnSync(eqdrc, ['tuning', 'compile', json, '-o', join(work, bin), '--force']);
    const result = spawnSync('/usr/bin/python3', [join(repo, 'scripts', 'player_check.py'), 'check', join(work, 'played.raw'),
                             join(work, 'slave.raw'), join(work, 'player.log'), join(work, 'old.bin'), join(work, 'new.bin')],
                             { env: { ...process.env, PYTHONPATH: join(repo, 'python'), TQEQDRC_LIB: native }, encoding: 'utf8' });
    process.stdout.write(result.stdout + result.stderr);
    check(result.status === 0 && / 1 hand-overs, every bit the chain's/.test(result.stdout),
          `the played output is the chain's, the new tuning taken over at frame ${frame} with its state kept`);

    // A change the check refuses: its messages, the file untouched; another client's write
    // shows in the page; a drag is sent throttled, its last position included; a change
    // made while the server is away reaches it when it is back.
    const written = readFileSync(live);
    await page.$eval(`#fields [data-path="${BAND}.fc"]`, (el) => { el.value = '30000'; el.dispatchEvent(new Event('input')); });
    await page.waitForFunction(() => studio.connection.refused);
    const refusal = await page.$eval('#message', (el) => el.textContent);
    check(/keeps playing the previous tuning\nerror: eq10\.channels\[0\]\.bands\[1\]\.fc = 30000: /.test(refusal) &&
          readFileSync(live).equals(written), 'a refused change: the check\'s message, the device\'s tuning untouched', refusal);
    onDisk.eq10.channels[0].bands[1].boost = -3;
    const other = await fetch(`${base}/api/tuning`, { method: 'PUT', body: JSON.stringify(onDisk),
                                                      headers: { ...auth, 'If-Match': etag, 'Content-Type': 'application/json' } });
    check(other.status === 200, 'another client writes the tuning', String(other.status));
    await page.waitForFunction((b) => document.querySelector(b).value === '-3', {}, boost);
    check(/changed elsewhere/.test(await page.$eval('#message', (el) => el.textContent)), 'the page loads another client\'s write and says so');
    const from = await page.evaluate(() => studio.handleAt(0, 2));
    const writes = await page.evaluate(() => studio.connection.writes);
    const t0 = Date.now();
    await page.mouse.move(from.x, from.y);
    await page.mouse.down();
    for (let i = 1; i <= 20; i++, await sleep(25)) await page.mouse.move(from.x + 3 * i, from.y - 2 * i);
    await page.mouse.up();
    const ms = Date.now() - t0;
    const dragged = await page.$$eval('#fields [data-path^="eq10.channels[0].bands[2]."]', (els) =>
        Object.fromEntries(els.map((e) => [e.dataset.path.split('.').pop(), Number(e.value)])));
    const band2 = () => tuningOnDisk()?.eq10.channels[0].bands[2];
    await until('the dragged band on disk', () => band2()?.fc === dragged.fc && band2().boost === dragged.boost)
        .catch((e) => { throw new Error(`${e.message}: ${JSON.stringify(band2())} vs ${JSON.stringify(dragged)}`); });
    const sent = await page.evaluate(() => studio.connection.writes) - writes;
    check(sent >= 2 && sent <= ms / 200 + 2, `a drag over ${ms} ms: ${sent} writes, the last one its end`);
    serve.kill();
    await page.waitForFunction(() => document.getElementById('connection').textContent === 'disconnected');
    await page.$eval(boost, (el) => { el.value = '5'; el.dispatchEvent(new Event('input')); });
    await sleep(1500);
    startServe();
    await until('the change made while away on disk', () => tuningOnDisk()?.eq10.channels[0].bands[1].boost === 5);
    await page.waitForFunction((t) => document.getElementById('connection').textContent === t, {}, `connected to ${live}`);
    check(true, 'a lost server shows as disconnected; a change made meanwhile is written when it is back');
} catch (e) {
    check(false, 'the connected test ran to its end', e.stack || String(e));
    console.log('--- eqdrc serve:\n' + serveLog.text + '--- player:\n' + playerLog.text);
} finally {
    clearInterval(pacer);
    aplay.kill();
    serve.kill();
    await closeBrowser();
}
console.log(failures ? `${failures} check(s) failed` : 'all connected checks passed');
process.exit(failures ? 1 : 0);
