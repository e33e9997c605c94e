// Opens a timeline in speedscope, in headless Chromium, and prints what the viewer shows of it as JSON:
// the names of its profiles (one for each thread) and, for each of them, those of its slices. With
// --screenshot, a picture of the profile of this number.
// Usage: node timeline_viewer.mjs MODULES CHROMIUM TIMELINE.json [--screenshot PICTURE.png NUMBER]
import { createServer } from 'node:http';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { extname, join, normalize } from 'node:path';

const [modules, browserPath, timeline, , picture, pictured] = process.argv.slice(2);
const { chromium } = createRequire(join(modules, 'node_modules', 'x.js'))('playwright-core');
const viewer = join(modules, 'node_modules/speedscope/dist/release');
const types = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css',
    '.json': 'application/json', '.woff2': 'font/woff2', '.wasm': 'application/wasm' };

const server = createServer((request, response) => {
    const path = decodeURIComponent(new URL(request.url, 'http://localhost').pathname);
    const file = path === '/timeline.json' ? timeline : join(viewer, normalize(path));
    try {
        const body = readFileSync(file);
        response.writeHead(200, { 'content-type': types[extname(file)] ?? 'application/octet-stream' });
        response.end(body);
    } catch {
        response.writeHead(404).end();
    }
});
await new Promise((ready) => server.listen(0, '127.0.0.1', ready));
const root = `http://127.0.0.1:${server.address().port}`;

const browser = await chromium.launch({ executablePath: browserPath, args: [
    '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--use-gl=swiftshader',
    '--enable-unsafe-swiftshader', '--disable-background-networking', '--disable-component-update',
    '--disable-sync'] });
try {
    const page = await browser.newPage({ viewport: { width: 1200, height: 420 } });
    page.setDefaultTimeout(30000);
    const errors = [];
    page.on('dialog', (dialog) => { errors.push(dialog.message()); dialog.dismiss(); });
    page.on('pageerror', (error) => errors.push(String(error)));
    await page.goto(`${root}/index.html#profileURL=${encodeURIComponent(`${root}/timeline.json`)}`);
    await page.waitForFunction(() => document.title !== 'speedscope', null, { timeout: 30000 });
    const name = () => page.evaluate(() => document.body.innerText.split('\n')
        .find((line) => /\(tid \d+\)/.test(line)) ?? '');
    await page.waitForFunction(() => /\(tid \d+\)/.test(document.body.innerText));
    // Tall, because the table makes only the rows that can be seen.
    await page.setViewportSize({ width: 1200, height: 4000 });
    const profiles = {};
    for (let shown = await name(); !(shown in profiles); shown = await name()) {
        if (picture && Object.keys(profiles).length === Number(pictured)) {
            await page.setViewportSize({ width: 1200, height: 420 });
            await page.keyboard.press('1');
            await page.waitForTimeout(500);
            await page.screenshot({ path: picture });
            await page.setViewportSize({ width: 1200, height: 4000 });
        }
        await page.keyboard.press('3');
        profiles[shown] = await (await page.waitForFunction(() => {
            // The other table is the list of profiles.
            const heads = [...document.querySelectorAll('th')];
            const symbols = heads.find((head) => head.innerText.trim() === 'Symbol Name');
            const rows = [...symbols?.closest('div').parentElement.querySelectorAll('td') ?? []];
            const names = rows.filter((cell) => !cell.nextElementSibling && cell.innerText.trim());
            return names.length > 0 && names.map((cell) => cell.innerText.trim());
        })).jsonValue();
        await page.keyboard.press('1');
        await page.keyboard.press('n');
        await page.waitForTimeout(200);
    }
    console.log(JSON.stringify({ errors, profiles }));
} finally {
    await browser.close();
    server.close();
}
