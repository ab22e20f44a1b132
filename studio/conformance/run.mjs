// Runs the conformance cases in the WebAssembly harness, each in a fresh instance (the
// native harness forks a child per case), and compares the report lines with the
// reference the way the shared check does: exit status, output hash and standard
// error hash per case, pass counts per family.
//   node run.mjs HARNESS.js EXPECTED_REPORT FAMILIES
import { readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { dirname, join } from 'node:path';

const SEED = 1;
const CASES = 100; // the scale the reference report was made at
const SHOW = 3;

const [harnessJs, expectedPath, families] = process.argv.slice(2);
const createHarness = createRequire(import.meta.url)(harnessJs);
const wasm = new WebAssembly.Module(readFileSync(harnessJs.replace(/\.js$/, '.wasm')));

// A fresh instance of the compiled harness; its exit() throws instead of ending node.
function instance(print) {
    return createHarness({
        instantiateWasm(imports, done) {
            const inst = new WebAssembly.Instance(wasm, imports);
            done(inst, wasm);
            return inst.exports;
        },
        quit(status, toThrow) { throw toThrow; },
        print,
        printErr: print,
    });
}

async function listCases() {
    const ids = [];
    const m = await instance((line) => ids.push(line));
    m.ccall('conf_list', null, ['string', 'number'], [families, CASES]);
    return ids;
}

const stderrOf = new Map();

async function runCase(id) {
    const m = await instance(() => {});
    let status;
    try {
        m.ccall('conf_run', null, ['string', 'number'], [id, SEED]);
        status = 0;
    } catch (e) {
        if (e && e.name === 'ExitStatus') status = (e.status & 255) << 8;
        else { status = 11; if (process.env.CONF_DEBUG) console.error(id, e); } // a trap: reported like a crash
    }
    const line = m.ccall('conf_finish', 'string', ['string', 'number'], [id, status]);
    stderrOf.set(id, m.ccall('conf_stderr', 'string', [], []));
    return line;
}

const want = new Map();
const order = [];
for (const line of readFileSync(expectedPath, 'utf8').split('\n')) {
    if (!line || line.startsWith('#')) continue;
    const f = line.split(' ');
    want.set(f[0], f.slice(1, 4).join(' '));
    order.push(f[0]);
}

const t0 = Date.now();
const ids = new Set(await listCases());
const actual = [];
const got = new Map();
for (const id of order) {
    if (!ids.has(id)) continue;
    const line = await runCase(id);
    actual.push(line);
    got.set(id, line.split(' ').slice(1, 4).join(' '));
}
writeFileSync(join(dirname(harnessJs), 'actual.txt'), actual.join('\n') + '\n');

const total = new Map();
const pass = new Map();
const failed = [];
for (const id of order) {
    if (!got.has(id)) continue;
    const fam = id.replace(/-[0-9]+$/, '');
    total.set(fam, (total.get(fam) || 0) + 1);
    if (got.get(id) === want.get(id)) pass.set(fam, (pass.get(fam) || 0) + 1);
    else failed.push(id);
}
for (const [fam, n] of total) {
    const p = pass.get(fam) || 0;
    console.log(`  ${fam.padEnd(8)} ${String(p).padStart(4)} / ${String(n).padStart(4)}${p === n ? '' : '   <- differs'}`);
}
console.log(`${failed.length} of the cases that ran differ (${((Date.now() - t0) / 1000).toFixed(1)} s under node)`);
for (const id of failed.slice(0, SHOW)) {
    console.log(`\n== ${id}\n   expected: ${want.get(id)}\n   this one: ${got.get(id)}`);
    console.log('   standard error of this one (normalised):\n' + stderrOf.get(id).replace(/^/gm, '   | '));
}
process.exit(failed.length || total.size === 0 ? 1 : 0);
