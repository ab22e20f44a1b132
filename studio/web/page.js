// What the page's modules share: the engine, the fields by path, the open tuning's
// name, the message line, downloads, and window.studio, the state the browser test reads.
export const FRAME_LEN = 768; // the frame `eqdrc tuning check` and `eqdrc process` assume

export const $ = (id) => document.getElementById(id);
export const studio = { ready: false, plots: {}, issues: [], audio: null, messages: [] };
window.studio = studio;

// engine: engine-api.js; byPath: field path -> { field, input, issue }; changed(): after
// an edit of the record (set by app.js).
export const page = { engine: null, byPath: null, tuningName: '', changed: () => {} };

export function message(text, kind = '') {
    const el = $('message');
    el.textContent = text;
    el.className = kind;
    studio.messages.push({ text, kind });
}

export function download(name, bytes, type) {
    const url = URL.createObjectURL(new Blob([bytes], { type }));
    const a = document.createElement('a');
    a.href = url; a.download = name;
    document.body.appendChild(a); a.click(); a.remove();
    setTimeout(() => URL.revokeObjectURL(url), 10000);
}

// Reads record words by field path, as the curves want them.
export function reader() {
    const rec = page.engine.record();
    const f = (path) => rec[page.byPath.get(path).field.word];
    f.i = (path) => { const v = f(path); return Number.isFinite(v) ? Math.trunc(v) : 0; };
    return f;
}
