// WAV files: 16-bit PCM read exactly, and written the way the command-line tool writes
// its output (RIFF, a 16-byte fmt chunk, data).
export function parseWav(buf) {
    const v = new DataView(buf);
    const tag = (o) => String.fromCharCode(v.getUint8(o), v.getUint8(o + 1), v.getUint8(o + 2), v.getUint8(o + 3));
    if (buf.byteLength < 12 || tag(0) !== 'RIFF' || tag(8) !== 'WAVE') return null;
    let fmt = null;
    for (let o = 12; o + 8 <= buf.byteLength;) {
        const id = tag(o);
        const size = v.getUint32(o + 4, true);
        if (id === 'fmt ') {
            fmt = { format: v.getUint16(o + 8, true), channels: v.getUint16(o + 10, true),
                    rate: v.getUint32(o + 12, true), bits: v.getUint16(o + 22, true) };
        } else if (id === 'data' && fmt) {
            if ((fmt.format !== 1 && fmt.format !== 0xfffe) || fmt.bits !== 16) return { unsupported: fmt };
            const bytes = Math.min(size, buf.byteLength - o - 8) & ~(2 * fmt.channels - 1);
            const pcm = new Int16Array(bytes / 2);
            for (let i = 0; i < pcm.length; i++) pcm[i] = v.getInt16(o + 8 + 2 * i, true);
            return { rate: fmt.rate, channels: fmt.channels, pcm };
        }
        o += 8 + size + (size & 1);
    }
    return null;
}

export function writeWav(pcm, rate, channels) {
    const data = pcm.length * 2;
    const buf = new ArrayBuffer(44 + data);
    const v = new DataView(buf);
    const tag = (o, s) => { for (let i = 0; i < 4; i++) v.setUint8(o + i, s.charCodeAt(i)); };
    tag(0, 'RIFF'); v.setUint32(4, 36 + data, true); tag(8, 'WAVE');
    tag(12, 'fmt '); v.setUint32(16, 16, true); v.setUint16(20, 1, true); v.setUint16(22, channels, true);
    v.setUint32(24, rate, true); v.setUint32(28, rate * channels * 2, true);
    v.setUint16(32, channels * 2, true); v.setUint16(34, 16, true);
    tag(36, 'data'); v.setUint32(40, data, true);
    for (let i = 0; i < pcm.length; i++) v.setInt16(44 + 2 * i, pcm[i], true);
    return new Uint8Array(buf);
}
