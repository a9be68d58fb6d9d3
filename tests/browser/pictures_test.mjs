// Pictures of the pages for docs/, where VORN_PICTURES names a folder.
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { test } from 'node:test';
import { openBrowser, openPage } from './browser.mjs';

const folder = process.env.VORN_PICTURES;

// What to show: a page, a theme, where to scroll to, and how large a window.
const pictures = [
  { file: 'report-light', page: 'wrong', colorScheme: 'light', width: 1000, height: 760 },
  { file: 'report-dark', page: 'wrong', colorScheme: 'dark', width: 1000, height: 760, to: '#times' },
  { file: 'report-sample', page: 'wrong', colorScheme: 'light', width: 1000, height: 1100, to: '#sample-7' },
  { file: 'report-comparison', page: 'comparison', colorScheme: 'light', width: 1000, height: 800 },
  { file: 'report-phone', page: 'wrong', colorScheme: 'dark', width: 390, height: 780 },
];

test('pictures', { skip: folder ? false : 'only with --pictures' }, async () => {
  mkdirSync(folder, { recursive: true });
  const browser = await openBrowser();
  for (const picture of pictures) {
    const { page, context } = await openPage(browser, picture.page, {
      colorScheme: picture.colorScheme,
      viewport: { width: picture.width, height: picture.height },
    });
    if (picture.to) await page.evaluate((to) => document.querySelector(to).scrollIntoView(), picture.to);
    await page.screenshot({ path: join(folder, `${picture.file}.png`) });
    await context.close();
  }
  await browser.close();
});
