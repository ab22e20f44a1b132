// The tuning studio in Debian's chromium (headless), driven by puppeteer-core: open a
// tuning, edit a band and see the check message and the curve change, process a WAV and
// compare with `eqdrc process`, save JSON and binary and compare with the tool, fit the
// EQ to a measurement and compare with `eqdrc fit`, and refuse bad files with a message. Writes a screenshot into the artifact folder.
//   node browser-test.mjs SITE_DIR EQDRC WORK_DIR ARTIFACT_DIR
import { execFileSync } from 'node:child_process';
import { existsSync, mkdirSync, readFileSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { extname, join, resolve } from 'node:path';
import { launchChromium } from './chromium.mjs';

const [site, eqdrc, work, artifacts] = process.argv.slice(2).map((p) => resolve(p));
const repo = resolve(import.meta.dirname || new URL('.', import.meta.url).pathname, '../..');
const TUNING = join(repo, 'tunings/music.json');
const BAND = 'eq10.channels[0].bands[1]'; // Parametric at 400 Hz in music.json
const STEP_TIMEOUT_MS = 30000;
const TYPES = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.json': 'application/json',
                '.wasm': 'application/wasm', '.bin': 'application/octet-stream' };

let failures = 0;
function check(ok, what, detail = '') {
    console.log(`${ok ? 'ok  ' : 'FAIL'} ${what}${!ok && detail ? ': ' + detail : ''}`);
    if (!ok) failures++;
}

// The site's files over HTTP on a free local port (module workers need an origin).
const server = createServer((req, res) => {
    const path = join(site, decodeURIComponent(new URL(req.url, 'http://x').pathname));
    if (!path.startsWith(site) || !existsSync(path) || path.endsWith('/')) {
        res.writeHead(404).end();
        return;
    }
    res.writeHead(200, { 'Content-Type': TYPES[extname(path)] || 'application/octet-stream' });
    res.end(readFileSync(path));
});
await new Promise((ok) => server.listen(0, '127.0.0.1', ok));
const url = `http://127.0.0.1:${server.address().port}/index.html`;

const downloads = join(work, 'downloads');
mkdirSync(downloads, { recursive: true });
mkdirSync(artifacts, { recursive: true });
const { browser, close: closeBrowser } = await launchChromium();

async function downloaded(page, click, name) {
    const path = join(downloads, name);
    rmSync(path, { force: true });
    await page.click(click);
    const t0 = Date.now();
    while (!existsSync(path) && Date.now() - t0 < STEP_TIMEOUT_MS) await new Promise((r) => setTimeout(r, 50));
    await new Promise((r) => setTimeout(r, 100));
    return existsSync(path) ? readFileSync(path) : null;
}

// A speaker's response as a measurement tool exports it: a falling tilt with a bass
// hump, a dip and a tweeter peak (resonances in log frequency), two columns.
function speakerText() {
    const bump = (f, hz, db, octaves) => db * Math.exp(-0.5 * (Math.log2(f / hz) / octaves) ** 2);
    const lines = ['Freq(Hz) SPL(dB)'];
    for (let i = 0; i < 400; i++) {
        const f = 20 * 1000 ** (i / 399);
        const db = 86 - 0.6 * Math.log2(f / 1000) + bump(f, 140, 5, 0.35) + bump(f, 1200, -4, 0.5) + bump(f, 6000, 3.5, 0.25);
        lines.push(`${f.toFixed(3)} ${db.toFixed(3)}`);
    }
    return lines.join('\n') + '\n';
}

const same = (a, b) => a && b && Buffer.compare(a, b) === 0;
const lastMessage = (page) => page.evaluate(() => studio.messages.at(-1) || { text: '', kind: '' });

try {
    const page = await browser.newPage();
    page.on('pageerror', (e) => check(false, 'no uncaught page error', e.message));
    page.setDefaultTimeout(STEP_TIMEOUT_MS);
    const cdp = await page.createCDPSession();
    await cdp.send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: downloads });
    await page.goto(url);
    await page.waitForFunction(() => window.studio && window.studio.ready);

    // A tuning from the file picker: every field, the curves, no check error.
    await (await page.$('#tuning-file')).uploadFile(TUNING);
    await page.waitForFunction(() => studio.plots.eq0);
    const fieldCount = await page.$$eval('#fields [data-path]', (els) => els.length);
    const leaves = (v) => (v !== null && typeof v === 'object' ? Object.values(v).reduce((n, x) => n + leaves(x), 0) : 1);
    const { format, raw, ...sections } = JSON.parse(execFileSync(eqdrc, ['tuning', 'decompile', TUNING], { encoding: 'utf8' }));
    check(fieldCount === leaves(sections), 'every field of the tool\'s JSON is editable', `${fieldCount} vs ${leaves(sections)}`);
    const before = await page.evaluate(() => ({ total: studio.plots.eq0.total, freqs: studio.plots.eq0.freqs, redraws: studio.redraws }));

    // A band's gain beyond what the designer takes: the tool's message beside it, the curve moves.
    const boost = `#fields [data-path="${BAND}.boost"]`;
    await page.click('summary[data-section="eq10"]');
    await page.click(boost, { clickCount: 3 });
    await page.type(boost, '25');
    await page.waitForFunction((n) => studio.redraws > n, {}, before.redraws);
    const issue = await page.$eval(boost, (el) => el.parentElement.querySelector('.issue').textContent);
    const edited = await downloaded(page, '#save-json', 'music.json');
    writeFileSync(join(work, 'edited.json'), edited || '');
    let toolSays = '';
    try {
        toolSays = execFileSync(eqdrc, ['tuning', 'check', join(work, 'edited.json')], { encoding: 'utf8' });
    } catch (e) { toolSays = e.stdout; }
    const expectIssue = toolSays.split('\n').find((l) => l.includes(`${BAND}.boost`)) || '(none)';
    check(issue !== '' && expectIssue.endsWith(': ' + issue), 'the check message beside the field is the tool\'s',
          `page "${issue}", tool "${expectIssue}"`);
    const after = await page.evaluate(() => studio.plots.eq0.total);
    const at400 = before.freqs.reduce((best, f, i) => (Math.abs(f - 400) < Math.abs(before.freqs[best] - 400) ? i : best), 0);
    check(after[at400] - before.total[at400] > 15, 'the EQ sum rises at the band by the new gain',
          `${before.total[at400].toFixed(2)} -> ${after[at400].toFixed(2)} dB at 400 Hz`);
    await page.screenshot({ path: join(artifacts, 'studio-edited.png') });

    // Dragging the band's handle on the EQ plot moves its fc and boost, and the curve.
    const from = await page.evaluate((b) => studio.handleAt(0, b), 2);
    const fcBefore = await page.$eval(`#fields [data-path="eq10.channels[0].bands[2].fc"]`, (el) => el.value);
    const drawn = await page.evaluate(() => studio.redraws);
    await page.mouse.move(from.x, from.y);
    await page.mouse.down();
    await page.mouse.move(from.x + 40, from.y - 30, { steps: 5 });
    await page.mouse.up();
    await page.waitForFunction((n) => studio.redraws > n, {}, drawn);
    const fcAfter = await page.$eval(`#fields [data-path="eq10.channels[0].bands[2].fc"]`, (el) => el.value);
    const boostAfter = await page.$eval(`#fields [data-path="eq10.channels[0].bands[2].boost"]`, (el) => Number(el.value));
    check(Number(fcAfter) > Number(fcBefore) && boostAfter > 1, 'dragging a band moves its fc and boost',
          `fc ${fcBefore} -> ${fcAfter}, boost -> ${boostAfter}`);

    // Saved as the tool writes it.
    await (await page.$('#tuning-file')).uploadFile(TUNING);
    await page.waitForFunction(() => studio.messages.at(-1).text.endsWith('opened'));
    const json = await downloaded(page, '#save-json', 'music.json');
    const bin = await downloaded(page, '#save-bin', 'music.bin');
    execFileSync(eqdrc, ['tuning', 'compile', TUNING, '-o', join(work, 'tool.bin')]);
    const toolJson = execFileSync(eqdrc, ['tuning', 'decompile', TUNING]);
    check(same(bin, readFileSync(join(work, 'tool.bin'))), 'the saved record is `eqdrc tuning compile`\'s, byte for byte');
    check(same(json, toolJson), 'the saved JSON is `eqdrc tuning decompile`\'s, byte for byte');

    // A 5-second WAV through the chain in the worker, as `eqdrc process` writes it.
    execFileSync(eqdrc, ['process', join(work, 'tone.wav'), join(work, 'tool-out.wav'), '--tuning', TUNING], { stdio: 'ignore' });
    await (await page.$('#audio-file')).uploadFile(join(work, 'tone.wav'));
    await page.waitForFunction(() => studio.audio && studio.audio.state !== 'processing');
    const state = await page.evaluate(() => studio.audio.state);
    check(state === 'done', 'the WAV is processed in the page', (await lastMessage(page)).text);
    const out = await downloaded(page, '#save-audio', 'tone-processed.wav');
    check(same(out, readFileSync(join(work, 'tool-out.wav'))), 'the processed WAV is `eqdrc process`\'s, byte for byte');
    const loud = await page.evaluate(() => studio.audio.loudness);
    check(loud && loud.input.values.length === 10 && loud.output.values.length === 10, 'short-term loudness every 0.5 s, input and output');
    await page.keyboard.press('b');
    check(await page.$eval('#ab', (el) => el.getAttribute('aria-pressed')) === 'true', 'the b key switches A/B');

    // Values no tuning should hold: marked beside the field, the page keeps drawing.
    await page.click('summary[data-section="multiband_drc"]');
    const corner = '#fields [data-path="multiband_drc.channels[0].low.freq_end"]';
    const redrawn = await page.evaluate(() => studio.redraws);
    await page.click(corner, { clickCount: 3 });
    await page.type(corner, '0x7fc00000'); // NaN
    await page.waitForFunction((n) => studio.redraws > n, {}, redrawn);
    const nanIssue = await page.$eval(corner, (el) => el.parentElement.querySelector('.issue').textContent);
    check(/^error: multiband_drc\.channels\[0\]\.low\.freq_end = /.test(nanIssue) && await page.evaluate(() => !!studio.plots.eq0),
          'a NaN crossover corner: an error beside it, the curves still drawn', nanIssue);

    // Bad files: a clear message each, and the page still answers.
    writeFileSync(join(work, 'notes.json'), 'these are my notes, not a tuning\n');
    await (await page.$('#tuning-file')).uploadFile(join(work, 'notes.json'));
    await page.waitForFunction(() => studio.messages.at(-1).kind === 'error');
    let m = await lastMessage(page);
    let toolError = '';
    try {
        execFileSync(eqdrc, ['tuning', 'check', 'notes.json'], { cwd: work, encoding: 'utf8', stdio: 'pipe' });
    } catch (e) { toolError = e.stderr.trim().replace(/^eqdrc: /, ''); }
    check(toolError !== '' && m.text === toolError, 'not a tuning: the tool\'s message', `page "${m.text}", tool "${toolError}"`);

    const rejected = Buffer.from(readFileSync(join(work, 'tool.bin')));
    rejected.writeFloatLE(3.0, 4 * 4); // header.tool_version
    writeFileSync(join(work, 'rejected.bin'), rejected);
    await (await page.$('#tuning-file')).uploadFile(join(work, 'rejected.bin'));
    await page.waitForFunction(() => studio.messages.at(-1).text.startsWith('rejected.bin'));
    m = await lastMessage(page);
    const versionIssue = await page.$eval('#fields [data-path="header.tool_version"]', (el) => el.parentElement.querySelector('.issue').textContent);
    check(m.kind === 'error' && /would reject/.test(m.text) && /rejects the record/.test(versionIssue),
          'a record the library rejects: named, the field marked', `${m.text} / ${versionIssue}`);

    await (await page.$('#tuning-file')).uploadFile(TUNING);
    await page.waitForFunction(() => studio.messages.at(-1).text.endsWith('opened'));
    await (await page.$('#audio-file')).uploadFile(join(work, 'tone-8k.wav'));
    await page.waitForFunction(() => studio.audio && studio.audio.state !== 'processing');
    m = await lastMessage(page);
    check(/48000 Hz.*8000 Hz/.test(m.text) && m.kind !== '', 'an 8 kHz WAV with a 48 kHz tuning: a clear message', m.text);

    // A measurement fitted in the Measurement panel with the tool's options: the EQ fields
    // fill in, the saved tuning and the report are `eqdrc fit`'s, the predicted curve
    // follows a hand edit, and a bad measurement gets the tool's message.
    writeFileSync(join(work, 'speaker.txt'), speakerText());
    const OPTIONS = { '#fit-tilt': '-0.5', '#fit-range': '60-18000', '#fit-smooth': '1/12', '#fit-bands': '8', '#fit-max-boost': '5' };
    execFileSync(eqdrc, ['fit', 'speaker.txt', '--base', TUNING, '--target', 'tilt:-0.5', '--range', '60-18000', '--smooth', '1/12',
                         '--bands', '8', '--max-boost', '5', '-o', 'tool-fit.json', '--report', 'tool-report.json'], { cwd: work, stdio: 'pipe' });
    const eqFields = () => page.$$eval('#fields [data-path^="eq10.channels"]', (els) => els.map((e) => e.value).join());
    const eqBefore = await eqFields();
    await page.select('#fit-target', 'tilt');
    for (const [sel, v] of Object.entries(OPTIONS)) { await page.click(sel, { clickCount: 3 }); await page.type(sel, v); }
    await (await page.$('#measurement-file')).uploadFile(join(work, 'speaker.txt'));
    await page.waitForFunction(() => !document.getElementById('fit').disabled);
    await page.click('#fit');
    await page.waitForFunction(() => studio.fit && studio.plots.eq1 && studio.plots.eq1.fit);
    const fit = await page.evaluate(() => ({ ms: studio.fit.ms, report: studio.fit.report, curves: [studio.plots.eq0.fit, studio.plots.eq1.fit] }));
    console.log(`     (the fit took ${fit.ms.toFixed(0)} ms in the page)`);
    check(await eqFields() !== eqBefore && fit.ms < 5000, 'Fit fills in the EQ fields, in under 5 s', `${fit.ms} ms`);
    const fitted = await downloaded(page, '#save-json', 'music.json');
    writeFileSync(join(work, 'page-fit.json'), fitted || '');
    let checked = true;
    try { execFileSync(eqdrc, ['tuning', 'check', join(work, 'page-fit.json')], { stdio: 'pipe' }); } catch { checked = false; }
    check(checked, '`eqdrc tuning check` accepts the fitted tuning');
    check(same(fitted, readFileSync(join(work, 'tool-fit.json'))), 'the fitted tuning is `eqdrc fit`\'s, byte for byte');
    const toolReport = JSON.parse(readFileSync(join(work, 'tool-report.json'), 'utf8'));
    check(JSON.stringify(fit.report) === JSON.stringify(toolReport), 'the fit\'s report is `eqdrc fit --report`\'s');
    const gap = (a, b) => Math.max(...a.map((v, i) => Math.abs(v - b[i])));
    const off = fit.curves.map((c) => gap(c.predicted.map((v, i) => v - c.measured[i]), toolReport.curves.eq_dB));
    check(Math.max(...off) < 0.002, 'both channels\' plots show the predicted result of the fitted EQ', off.join(', '));
    const b0 = 'eq10.channels[0].bands[0]';
    const [fc0, boost0] = await page.evaluate((p) => [p + '.fc', p + '.boost'].map((k) => Number(document.querySelector(`#fields [data-path="${k}"]`).value)), b0);
    const redrawsBefore = await page.evaluate(() => studio.redraws);
    await page.click(`#fields [data-path="${b0}.boost"]`, { clickCount: 3 });
    await page.type(`#fields [data-path="${b0}.boost"]`, String(boost0 + 3));
    await page.waitForFunction((n) => studio.redraws > n, {}, redrawsBefore);
    const live = await page.evaluate(() => studio.plots.eq0.fit.predicted);
    const atFc = toolReport.curves.hz.reduce((best, f, i, hz) => (Math.abs(Math.log(f / fc0)) < Math.abs(Math.log(hz[best] / fc0)) ? i : best), 0);
    const rise = live[atFc] - fit.curves[0].predicted[atFc];
    check(rise > 1 && rise < 3.01, 'the predicted curve follows a band edited by hand', `${rise.toFixed(3)} dB at ${fc0} Hz after +3 dB`);
    await page.screenshot({ path: join(artifacts, 'studio-fit.png') });

    writeFileSync(join(work, 'bad.txt'), speakerText().replace(/\n20\.[0-9]+ /, '\n25000 '));
    let fitError = '';
    try {
        execFileSync(eqdrc, ['fit', 'bad.txt', '-o', 'bad.json'], { cwd: work, encoding: 'utf8', stdio: 'pipe' });
    } catch (e) { fitError = e.stderr.trim().replace(/^eqdrc: /, ''); }
    await (await page.$('#measurement-file')).uploadFile(join(work, 'bad.txt'));
    await page.waitForFunction(() => document.getElementById('measurement-name').textContent === 'bad.txt');
    await page.click('#fit');
    await page.waitForFunction(() => studio.messages.at(-1).kind === 'error');
    m = await lastMessage(page);
    check(fitError !== '' && m.text === fitError, 'a bad measurement: the tool\'s message', `page "${m.text}", tool "${fitError}"`);
    check(await page.evaluate(() => 1 + 1) === 2, 'the page still answers');
    await page.screenshot({ path: join(artifacts, 'studio-last.png') });
} catch (e) {
    check(false, 'the browser test ran to its end', e.stack || String(e));
} finally {
    await closeBrowser();
    server.close();
}
console.log(failures ? `${failures} check(s) failed` : 'all browser checks passed');
process.exit(failures ? 1 : 0);
