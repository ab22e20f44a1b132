// Playing the original and the processed file, switching between them at the same
// position.
import { $, studio } from './page.js';

let player = null; // { ctx, buffers: [original, processed], source, startedAt, offset, which }

function audioBuffer(ctx, pcm, channels, rate) {
    const frames = pcm.length / channels;
    const b = ctx.createBuffer(channels, frames, rate);
    for (let c = 0; c < channels; c++) {
        const d = b.getChannelData(c);
        for (let i = 0; i < frames; i++) d[i] = pcm[i * channels + c] / 32768;
    }
    return b;
}

function position() {
    return player.source ? (player.ctx.currentTime - player.startedAt + player.offset) % player.buffers[0].duration : player.offset;
}

function startSource(at) {
    const s = player.ctx.createBufferSource();
    s.buffer = player.buffers[player.which];
    s.loop = true;
    s.connect(player.ctx.destination);
    s.start(0, at);
    player.source = s;
    player.startedAt = player.ctx.currentTime;
    player.offset = at;
}

export function stopPlayback() {
    if (player && player.source) { player.source.stop(); player.source = null; }
    player = null;
    $('play').textContent = 'Play (space)';
}

export function togglePlay() {
    const a = studio.audio;
    if (!a || !a.out) return;
    if (!player) {
        const ctx = new AudioContext({ sampleRate: a.rate });
        player = { ctx, buffers: [audioBuffer(ctx, a.pcm, a.channels, a.rate), audioBuffer(ctx, a.out, a.channels, a.rate)],
                   source: null, startedAt: 0, offset: 0, which: $('ab').getAttribute('aria-pressed') === 'true' ? 1 : 0 };
    }
    if (player.source) {
        player.offset = position();
        player.source.stop();
        player.source = null;
        $('play').textContent = 'Play (space)';
    } else {
        startSource(player.offset);
        $('play').textContent = 'Pause (space)';
    }
}

// Switches original and processed at the same position.
export function toggleAB() {
    const ab = $('ab');
    const processed = ab.getAttribute('aria-pressed') !== 'true';
    ab.setAttribute('aria-pressed', String(processed));
    ab.textContent = `A/B: ${processed ? 'processed' : 'original'} (b)`;
    if (!player) return;
    player.which = processed ? 1 : 0;
    if (player.source) {
        const at = position();
        player.source.stop();
        startSource(at);
    }
}
