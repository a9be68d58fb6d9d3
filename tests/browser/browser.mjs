// A browser, and pages in it that are watched.
import { existsSync, readdirSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const wanted = (name) => {
  const value = process.env[name];
  if (!value || !existsSync(value)) throw new Error(`${name} names '${value}', which is not there; scripts/browser_tests.sh sets it`);
  return value;
};
const folder = wanted('VORN_PAGES');
const { chromium } = createRequire(import.meta.url)(wanted('VORN_DRIVER'));

export const pageNames = readdirSync(folder).filter((name) => name.endsWith('.html')).map((name) => name.slice(0, -5)).sort();
export const pagePath = (name) => join(folder, `${name}.html`);

export const openBrowser = () => chromium.launch({
  executablePath: wanted('VORN_BROWSER'),
  // Its sandbox wants a user of its own, which a container's root is not.
  args: process.getuid() === 0 ? ['--no-sandbox'] : [],
});

// Opens a page from its file. Whatever it asks for beside itself is noted and refused; so is noted what
// the browser says of it.
export async function openPage(browser, name, options) {
  const context = await browser.newContext({ viewport: { width: 1100, height: 800 }, reducedMotion: 'reduce', ...options });
  const page = await context.newPage();
  const address = pathToFileURL(pagePath(name)).href;
  const requests = [];
  const complaints = [];
  await context.route('**', (route) => {
    const url = route.request().url();
    if (url.split('#')[0] === address || url.startsWith('data:')) return route.continue();
    requests.push(url);
    return route.abort();
  });
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) complaints.push(message.text());
  });
  page.on('pageerror', (error) => complaints.push(String(error)));
  await page.goto(address);
  return { page, context, requests, complaints };
}
