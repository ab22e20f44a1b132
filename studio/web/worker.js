// Runs the chain over a whole file off the page's thread, frame by frame as
// `eqdrc process` does (the record made to fit the stream, the last frame padded with
// silence and trimmed), and measures short-term loudness before and after.
import { loadEngine } from './engine-api.js';
import { shortTermLoudness } from './loudness.js';

const enginePromise = loadEngine();

function fail(message, extra = {}) {
    postMessage({ type: 'error', message, ...extra });
}

onmessage = async (e) => {
    const { record, pcm, rate, channels, frameLen, name, tuningName } = e.data;
    let engine;
    try {
        engine = await enginePromise;
    } catch (err) {
        return fail('the engine did not load: ' + err);
    }
    const m = engine.module;
    if (channels < 1 || channels > 2) return fail(`${name}: ${channels} channels; the chain takes mono or stereo`);
    engine.setRecord(record);
    const fit = engine.adapt(rate, channels, frameLen);
    if (fit.errors) {
        return fail(`${tuningName}: ${fit.errors} error(s) above; the library would reject it or stop`,
                    { notes: fit.notes, issues: fit.issues });
    }
    const frameSamples = frameLen * channels;
    const buf = m._malloc(frameSamples * 2);
    let chain = 0;
    try {
        chain = m._AudioPost_Init(engine.adaptedPtr, frameLen);
        if (!chain) return fail(`${tuningName}: the library rejected the tuning`, { notes: fit.notes, issues: fit.issues });
        const out = new Int16Array(pcm.length);
        const frames = pcm.length / channels;
        let lastReport = 0;
        for (let pos = 0; pos < frames; pos += frameLen) {
            const got = Math.min(frameLen, frames - pos);
            const heap = m.HEAP16.subarray(buf >> 1, (buf >> 1) + frameSamples);
            heap.fill(0);
            heap.set(pcm.subarray(pos * channels, (pos + got) * channels));
            m._AudioPost_Process(chain, buf, buf, channels, frameLen);
            out.set(m.HEAP16.subarray(buf >> 1, (buf >> 1) + got * channels), pos * channels);
            if (pos - lastReport >= rate / 2) {
                lastReport = pos;
                postMessage({ type: 'progress', done: pos + got, total: frames });
            }
        }
        postMessage({ type: 'progress', done: frames, total: frames });
        const loudness = {
            input: shortTermLoudness(m, pcm, rate, channels),
            output: shortTermLoudness(m, out, rate, channels),
        };
        postMessage({ type: 'done', out, notes: fit.notes, issues: fit.issues, loudness }, [out.buffer]);
    } catch (err) {
        const why = err && err.name === 'ExitStatus' ? `the library stopped the process (exit ${err.status})` : String(err);
        fail(`${name}: ${why}`, { notes: fit.notes, issues: fit.issues });
    } finally {
        if (chain) m._AudioPost_Destroy(chain);
        m._free(buf);
    }
};
