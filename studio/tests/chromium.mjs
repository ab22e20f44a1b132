// Debian's chromium, headless, with a profile of its own that close() removes: the one
// browser set-up of the studio's tests.
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import puppeteer from 'puppeteer-core';

export async function launchChromium() {
    const profile = mkdtempSync(join(tmpdir(), 'studio-chromium-'));
    const browser = await puppeteer.launch({
        executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
        headless: true,
        args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
               '--disable-component-update', '--disable-sync', `--user-data-dir=${profile}`, '--window-size=1280,800'],
        defaultViewport: { width: 1280, height: 800 },
    });
    return {
        browser,
        async close() {
            await browser.close();
            rmSync(profile, { recursive: true, force: true });
        },
    };
}
