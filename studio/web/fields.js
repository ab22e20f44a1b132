// The editable fields, from the record layout the engine was built with
// (tuning_layout.json): each field's path, word, kind, enum labels, unit and doc, in
// layout order, grouped as the tuning's JSON groups them.
export function layoutFields(layout) {
    const fields = [];
    const walk = (nodes, base, path, section) => {
        for (const n of nodes) {
            const kids = n.fields || (n.template && layout.templates[n.template]);
            const count = n.count || 0;
            for (let k = 0; k < (count || 1); k++) {
                const word = base + (n.word || 0) + k * (n.stride || 0);
                const p = (path ? path + '.' : '') + n.name + (count ? `[${k}]` : '');
                if (kids) walk(kids, word, p, section || n.name);
                else fields.push({ path: p, word, kind: n.kind, labels: n.kind === 'enum' ? layout.enums[n.enum] : null,
                                   unit: n.unit || '', doc: n.doc || '', section: section || n.name,
                                   group: p.includes('.') ? p.slice(0, p.lastIndexOf('.')) : p, name: p.slice(p.lastIndexOf('.') + 1) });
            }
        }
    };
    walk(layout.sections, 0, '', '');
    return fields;
}

const f32 = new Float32Array(1);
const u32 = new Uint32Array(f32.buffer);

export function floatBits(v) { f32[0] = v; return u32[0]; }

// The shortest text that reads back as the same float32; values a JSON number cannot
// carry (NaN, infinities, negative zero) as the hex of their bits, as the tool writes them.
export function floatText(v) {
    if (!Number.isFinite(v) || Object.is(v, -0)) return '0x' + floatBits(v).toString(16).padStart(8, '0');
    for (let d = 1; d <= 9; d++) {
        const s = String(Number(v.toPrecision(d)));
        if (Math.fround(Number(s)) === v) return s;
    }
    return String(v);
}

// The float32 a field's text stands for, or null when it is not a number.
export function parseFloatText(s) {
    const t = s.trim();
    if (/^0x[0-9a-f]{1,8}$/i.test(t)) { u32[0] = parseInt(t, 16); return f32[0]; }
    if (t === '' || !Number.isFinite(Number(t))) return null;
    return Math.fround(Number(t));
}
