// The field editor: one input per field of the layout, grouped as the tuning's JSON
// groups them, and the tool's check messages beside the fields they name.
import { $, FRAME_LEN, page, studio } from './page.js';
import { floatText, parseFloatText } from './fields.js';

export function buildEditor(fields) {
    const root = $('fields');
    root.textContent = '';
    page.byPath = new Map();
    let details, fieldset, section, group;
    for (const field of fields) {
        if (field.section !== section) {
            section = field.section;
            details = document.createElement('details');
            details.open = section === 'header';
            const s = document.createElement('summary');
            s.textContent = section;
            s.dataset.section = section;
            details.appendChild(s);
            root.appendChild(details);
            group = null;
        }
        if (field.group !== group) {
            group = field.group;
            fieldset = document.createElement('fieldset');
            const legend = document.createElement('legend');
            legend.textContent = group;
            fieldset.appendChild(legend);
            details.appendChild(fieldset);
        }
        const row = document.createElement('div');
        row.className = 'field';
        const id = 'f-' + field.path.replace(/[^a-zA-Z0-9_]/g, '-');
        const label = document.createElement('label');
        label.htmlFor = id;
        label.textContent = field.name;
        label.title = field.path + (field.doc ? ': ' + field.doc : '');
        let input;
        if (field.labels) {
            input = document.createElement('select');
            field.labels.forEach((l, i) => input.add(new Option(l, String(i))));
        } else {
            input = document.createElement('input');
            input.type = 'text';
            input.inputMode = 'decimal';
        }
        input.id = id;
        input.dataset.path = field.path;
        input.addEventListener('input', () => edit(field.path));
        const unit = document.createElement('span');
        unit.className = 'unit';
        unit.textContent = field.unit;
        const issue = document.createElement('div');
        issue.className = 'issue';
        issue.hidden = true;
        row.append(label, input, unit, issue);
        fieldset.appendChild(row);
        page.byPath.set(field.path, { field, input, issue, details });
    }
}

export function showValues() {
    const rec = page.engine.record();
    for (const { field, input } of page.byPath.values()) {
        const v = rec[field.word];
        if (field.labels) {
            const known = Number.isInteger(v) && v >= 0 && v < field.labels.length;
            for (const o of [...input.options]) if (o.dataset.raw) o.remove();
            if (!known) {
                const o = new Option(floatText(v), floatText(v));
                o.dataset.raw = '1';
                input.add(o);
            }
            input.value = known ? String(v) : floatText(v);
        } else {
            input.value = floatText(v);
        }
        input.classList.remove('bad');
    }
}

function edit(path) {
    const { field, input } = page.byPath.get(path);
    const v = field.labels && /^\d+$/.test(input.value) ? Number(input.value) : parseFloatText(input.value);
    if (v === null) {
        input.classList.add('bad');
        return;
    }
    input.classList.remove('bad');
    page.engine.record()[field.word] = v;
    page.changed();
}

export function runCheck() {
    const issues = page.engine.check(FRAME_LEN);
    studio.issues = issues;
    for (const { issue } of page.byPath.values()) { issue.hidden = true; issue.textContent = ''; }
    for (const i of issues) {
        const entry = page.byPath.get(i.path);
        if (!entry) continue;
        entry.issue.hidden = false;
        entry.issue.className = 'issue ' + i.severity;
        entry.issue.textContent += (entry.issue.textContent ? '\n' : '') + i.text;
    }
    const errors = issues.filter((i) => i.severity === 'error').length;
    const sum = $('check-summary');
    sum.className = errors ? 'error' : '';
    sum.textContent = `${page.tuningName}: ${errors} error(s), ${issues.length - errors} warning(s)` +
        (errors ? ' — the library would reject this tuning or stop' : '');
    const unplaced = issues.filter((i) => !page.byPath.has(i.path));
    if (unplaced.length) sum.textContent += '\n' + unplaced.map((i) => i.text).join('\n');
    const rec = page.engine.record();
    for (const s of document.querySelectorAll('summary[data-section]')) {
        const e = page.byPath.get('header.enable.' + s.dataset.section);
        s.classList.toggle('off', !!e && rec[e.field.word] !== 1);
    }
}

export function setField(path, v) {
    const { field, input } = page.byPath.get(path);
    page.engine.record()[field.word] = v;
    input.value = floatText(v);
}
