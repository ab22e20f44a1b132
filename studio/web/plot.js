// A small line plot on a canvas: axes, grid, labelled series, vertical marks. A plot of
// a disabled stage is drawn in grey. Returns the mapping from canvas pixels to data.
const COLORS = ['#1f77b4', '#ff7f0e', '#2ca02c', '#d62728', '#9467bd', '#8c564b', '#e377c2', '#17becf', '#bcbd22', '#7f7f7f'];
const PAD = { left: 44, right: 8, top: 20, bottom: 26 };

export function drawPlot(canvas, p) {
    const dpr = window.devicePixelRatio || 1;
    const w = canvas.clientWidth, h = canvas.clientHeight;
    canvas.width = w * dpr; canvas.height = h * dpr;
    const g = canvas.getContext('2d');
    g.setTransform(dpr, 0, 0, dpr, 0, 0);
    g.clearRect(0, 0, w, h);
    g.fillStyle = p.grey ? '#eee' : '#fff';
    g.fillRect(0, 0, w, h);
    const fx = p.xlog ? Math.log10 : (v) => v;
    const [x0, x1] = p.xlim.map(fx);
    const [y0, y1] = p.ylim;
    const X = (v) => PAD.left + ((fx(v) - x0) / (x1 - x0)) * (w - PAD.left - PAD.right);
    const Y = (v) => h - PAD.bottom - ((Math.min(Math.max(v, y0), y1) - y0) / (y1 - y0)) * (h - PAD.top - PAD.bottom);
    g.font = '11px sans-serif';
    g.strokeStyle = '#ddd'; g.fillStyle = '#333'; g.lineWidth = 1;
    for (const t of p.xticks) {
        g.beginPath(); g.moveTo(X(t), PAD.top); g.lineTo(X(t), h - PAD.bottom); g.stroke();
        g.fillText(t >= 1000 ? `${t / 1000}k` : String(t), X(t) - 8, h - PAD.bottom + 13);
    }
    for (let t = Math.ceil(y0 / p.ystep) * p.ystep; t <= y1; t += p.ystep) {
        g.beginPath(); g.moveTo(PAD.left, Y(t)); g.lineTo(w - PAD.right, Y(t)); g.stroke();
        g.fillText(String(t), 4, Y(t) + 4);
    }
    g.fillStyle = p.grey ? '#888' : '#000';
    g.fillText(p.title + (p.grey ? '  (stage off)' : ''), PAD.left, 13);
    g.save();
    g.beginPath(); g.rect(PAD.left, PAD.top, w - PAD.left - PAD.right, h - PAD.top - PAD.bottom); g.clip();
    for (const m of p.marks || []) {
        g.strokeStyle = m.color || '#999'; g.setLineDash([2, 3]);
        g.beginPath(); g.moveTo(X(m.x), PAD.top); g.lineTo(X(m.x), h - PAD.bottom); g.stroke();
        g.setLineDash([]);
        g.fillStyle = m.color || '#666'; g.fillText(m.label, X(m.x) + 3, PAD.top + 12 + 12 * (m.y || 0));
    }
    p.series.forEach((s, i) => {
        g.strokeStyle = p.grey ? '#aaa' : s.color || COLORS[i % COLORS.length];
        g.lineWidth = s.width || 1.2;
        g.setLineDash(s.dash ? [5, 4] : []);
        g.beginPath();
        let pen = false;
        s.x.forEach((xv, k) => {
            const yv = s.y[k];
            if (!Number.isFinite(yv)) { pen = false; return; }
            if (pen) g.lineTo(X(xv), Y(yv)); else g.moveTo(X(xv), Y(yv));
            pen = true;
        });
        g.stroke();
    });
    for (const pt of p.points || []) {
        g.fillStyle = p.grey ? '#aaa' : '#fff';
        g.strokeStyle = p.grey ? '#888' : '#000';
        g.lineWidth = 1.5;
        g.beginPath(); g.arc(X(pt.x), Y(pt.y), 5, 0, 2 * Math.PI); g.fill(); g.stroke();
    }
    g.restore();
    g.setLineDash([]);
    let ly = PAD.top + 4;
    for (const [i, s] of p.series.entries()) {
        if (!s.label) continue;
        g.fillStyle = p.grey ? '#999' : s.color || COLORS[i % COLORS.length];
        g.fillText(s.label, w - PAD.right - 170, (ly += 12));
    }
    const fromX = p.xlog ? (v) => 10 ** v : (v) => v;
    return {
        toData: (px, py) => [fromX(x0 + ((px - PAD.left) / (w - PAD.left - PAD.right)) * (x1 - x0)),
                             y0 + ((h - PAD.bottom - py) / (h - PAD.top - PAD.bottom)) * (y1 - y0)],
        toPixel: (x, y) => [X(x), Y(y)],
    };
}
