// The engine module (the library and the tuning code in WebAssembly) behind a few
// plain functions. Used by the page and by the processing worker alike.
import createEngine from './engine.js';


export async function loadEngine() {
    const m = await createEngine({ print: () => {}, printErr: () => {} });
    const text = (ptr) => m.UTF8ToString(ptr);
    const json = (ptr) => JSON.parse(text(ptr));
    const RECORD_WORDS = m._studio_record_words();
    const recordIndex = m._studio_record() >> 2;
    const adaptedPtr = m._studio_adapted();
    const withString = (s, fn) => {
        const n = new TextEncoder().encode(s);
        const p = m._malloc(n.length + 1);
        m.HEAPU8.set(n, p);
        m.HEAPU8[p + n.length] = 0;
        try { return fn(p); } finally { m._free(p); }
    };
    return {
        module: m,
        layoutText: () => text(m._studio_layout()),
        // The record the engine holds, as a live view (re-made: memory may grow).
        record: () => m.HEAPF32.subarray(recordIndex, recordIndex + RECORD_WORDS),
        setRecord(words) { m.HEAPF32.set(words, recordIndex); },
        // Reads a tuning file (JSON or binary) with the tool's messages; null when fine.
        read(name, bytes) {
            // In the engine's working folder, so that messages name the file as the user knows it.
            const path = name.replace(/[\/\0]/g, '_');
            m.FS.writeFile(path, bytes);
            try {
                const r = withString(path, (p) => json(m._studio_read(p)));
                return r.ok ? null : r.error;
            } finally { m.FS.unlink(path); }
        },
        jsonText: () => text(m._studio_json()),
        recordBytes() {
            const p = m._studio_bytes();
            return m.HEAPU8.slice(p, p + RECORD_WORDS * 4);
        },
        check: (frameLen) => json(m._studio_check(frameLen)),
        adapt: (rate, channels, frameLen) => json(m._studio_adapt(rate, channels, frameLen)),
        // Fits the held record's EQ to a measurement's text, as `eqdrc fit` does (options:
        // engine.cpp's studio_fit): {ok, summary, report} or {ok: false, error}.
        fit: (text, name, options) => withString(text, (t) => withString(name, (n) =>
            withString(JSON.stringify(options), (o) => json(m._studio_fit(t, n, o))))),
        adaptedPtr,
    };
}
