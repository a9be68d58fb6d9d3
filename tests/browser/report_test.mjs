// The pages of reports in a browser. scripts/browser_tests.sh writes them and says where everything is.
import assert from 'node:assert/strict';
import { readFileSync, statSync } from 'node:fs';
import { after, before, describe, test } from 'node:test';
import { pathToFileURL } from 'node:url';
import { openBrowser, openPage, pageNames, pagePath } from './browser.mjs';

let browser;
before(async () => { browser = await openBrowser(); });
after(async () => { await browser?.close(); });

const axe = readFileSync(process.env.VORN_AXE, 'utf8');

// Opens a page, hands it over, and sees afterwards that nothing was asked for and nothing complained of.
async function visit(name, options, use) {
  const { page, context, requests, complaints } = await openPage(browser, name, options);
  try {
    await use(page);
    assert.deepEqual(requests, [], 'the page asked for something');
    assert.deepEqual(complaints, [], 'the browser complained');
  } finally {
    await context.close();
  }
}

const texts = (page, selector) => page.locator(selector).allTextContents();
const headOf = (page, table, title) => page.locator(`${table} thead th`, { hasText: title }).locator('button');

describe('every page', () => {
  for (const name of pageNames) {
    for (const theme of ['light', 'dark']) {
      test(`${name} is content with axe in the ${theme} theme`, async () => {
        await visit(name, { colorScheme: theme }, async (page) => {
          // All that can be opened is looked at, too. Of ten samples alike one is enough.
          await page.evaluate(() => {
            for (const fold of [...document.querySelectorAll('details')].slice(0, 40)) fold.open = true;
          });
          await page.evaluate(axe);
          const result = await page.evaluate(() => window.axe.run({ resultTypes: ['violations'] }));
          const found = result.violations.map((violation) =>
            `${violation.id}: ${violation.help}: ${violation.nodes.slice(0, 3).map((node) => node.html).join(' | ')}`);
          assert.deepEqual(found, []);
        });
      });
    }

    for (const width of [320, 390]) {
      test(`${name} fits a phone of ${width} points`, async () => {
        await visit(name, { viewport: { width, height: 700 } }, async (page) => {
          await page.evaluate(() => {
            for (const fold of document.querySelectorAll('details')) fold.open = true;
          });
          const wide = await page.evaluate(() => {
            const limit = document.documentElement.clientWidth;
            return document.documentElement.scrollWidth <= limit ? [] : [...document.querySelectorAll('body *')]
              .filter((one) => one.getBoundingClientRect().right > limit + 1 && !one.closest('.scroll, pre, nav'))
              .slice(0, 5).map((one) => one.outerHTML.slice(0, 120));
          });
          assert.deepEqual(wide, []);
        });
      });
    }

    for (const width of [320, 390, 700, 1100]) {
      test(`${name} has no axis at ${width} points on which texts touch`, async () => {
        await visit(name, { viewport: { width, height: 700 } }, async (page) => {
          const touching = await page.evaluate(() => {
            for (const fold of document.querySelectorAll('details')) fold.open = true;
            const found = [];
            for (const drawing of document.querySelectorAll('svg')) {
              const ticks = [...drawing.querySelectorAll(':scope > .tick:not([text-anchor="end"][x="-6"])')]
                .map((tick) => ({ text: tick.textContent, box: tick.getBoundingClientRect() }))
                .filter(({ box }) => box.width > 0);
              ticks.sort((one, other) => one.box.left - other.box.left);
              for (let i = 1; i < ticks.length; ++i) {
                if (ticks[i - 1].box.right + 2 > ticks[i].box.left) {
                  found.push(`${drawing.querySelector('title')?.textContent}: ${ticks[i - 1].text} and ${ticks[i].text}`);
                }
              }
            }
            return found;
          });
          assert.deepEqual(touching, []);
        });
      });
    }

    test(`${name} says its answer without scripts`, async () => {
      await visit(name, { javaScriptEnabled: false }, async (page) => {
        assert.ok((await page.locator('h1').innerText()).length > 0);
        assert.ok(await page.locator('main section').count() > 0);
        assert.equal(await page.locator('[data-switch]').isVisible(), false, 'a button that can do nothing');
      });
    });
  }
});

describe('without scripts', () => {
  test('the verdict, the wrong samples and the data of charts are there', async () => {
    await visit('wrong', { javaScriptEnabled: false }, async (page) => {
      const text = await page.locator('body').innerText();
      assert.match(text, /wrong in 2 of 40 samples/);
      assert.match(text, /WRONG/);
      assert.match(text, /it is the output of the sample before/);
      assert.ok(await page.locator('.fallback td', { hasText: /^wrong$/ }).count() >= 2);
      assert.ok(await page.locator('svg[role=img] title').count() > 5);
      assert.ok(await page.locator('summary', { hasText: 'Data as a table' }).count() > 3);
    });
  });
});

describe('tables', () => {
  test('are sorted by mouse', async () => {
    await visit('fleet', {}, async (page) => {
      const table = '#boards table.table';
      const samples = () => texts(page, `${table} tbody tr td:nth-child(6)`);
      const before = await samples();
      await headOf(page, table, 'median sample').click();
      assert.deepEqual(await samples(), [...before].reverse());
      assert.equal(await page.locator(`${table} th[aria-sort]`).getAttribute('aria-sort'), 'descending');
      await headOf(page, table, 'median sample').click();
      assert.deepEqual(await samples(), before);
      assert.equal(await page.locator(`${table} th[aria-sort]`).getAttribute('aria-sort'), 'ascending');
    });
  });

  test('are sorted by keyboard', async () => {
    await visit('fleet', {}, async (page) => {
      const table = '#boards table.table';
      await headOf(page, table, 'board').focus();
      await page.keyboard.press('Enter');
      await page.keyboard.press('Space');
      assert.deepEqual(await texts(page, `${table} tbody tr td:first-child`), ['board-3', 'board-2', 'board-1']);
    });
  });

  test('are filtered by words', async () => {
    await visit('wrong', {}, async (page) => {
      const field = page.locator('#findings .tools input');
      await field.fill('freed TWICE');
      assert.equal(await page.locator('#findings tbody tr:visible').count(), 1);
      assert.match(await page.locator('#findings [role=status]').innerText(), /1 of 2/);
      await field.fill('');
      assert.equal(await page.locator('#findings tbody tr:visible').count(), 2);
    });
  });

  test('of very many rows show a hundred, and sort and filter over all', async () => {
    await visit('large', {}, async (page) => {
      await page.locator('#samples summary').first().click();
      const place = page.locator('.large').first();
      const rows = () => place.locator('tbody tr').count();
      const told = () => place.locator('[role=status]').innerText();
      assert.equal(await rows(), 100);
      assert.equal(await told(), '1–100 of 10,000');
      await place.locator('button', { hasText: 'Next' }).click();
      assert.equal(await told(), '101–200 of 10,000');
      await place.locator('th button', { hasText: 'RMSE' }).click();
      const values = (await place.locator('tbody tr td:nth-child(5)').allTextContents()).map(Number);
      assert.deepEqual(values, [...values].sort((a, b) => b - a));
      await place.locator('select').selectOption({ label: 'wrong' });
      assert.equal(await told(), '1–100 of 500 (10,000 in all)');
      await place.locator('input').fill('9987');
      assert.equal(await rows(), 1);
      assert.match(await told(), /^1–1 of 1 /);
    });
  });

  test('have the same texts with scripts and without', async () => {
    const rowsOf = (page, place) => page.locator(`${place} tbody tr`)
      .evaluateAll((rows) => rows.map((row) => [...row.cells].map((cell) => cell.textContent)));
    let without = [];
    await visit('numbers', { javaScriptEnabled: false }, async (page) => {
      without = await rowsOf(page, '.fallback');
    });
    await visit('numbers', {}, async (page) => {
      const all = await rowsOf(page, '.large');
      assert.ok(without.length > 5);
      assert.deepEqual(all.slice(0, without.length), without);
      const columns = all.flat();
      for (const text of ['–', '∞', '1.235e+07', '1.234e-05', '12,345', '12345']) {
        assert.ok(columns.includes(text), `no cell says ${text}`);
      }
    });
  });

  test('of all samples are folded, behind the worst ones', async () => {
    await visit('wrong', {}, async (page) => {
      assert.equal(await page.locator('#samples .large').isVisible(), false);
      assert.ok(await page.evaluate(() => Boolean(document.querySelector('#worst')
        .compareDocumentPosition(document.querySelector('#samples')) & Node.DOCUMENT_POSITION_FOLLOWING)));
    });
  });

  test('lead to the detail of a sample and open it', async () => {
    await visit('wrong', {}, async (page) => {
      assert.equal(await page.locator('#sample-27 details').first().evaluate((fold) => {
        fold.open = false;
        return fold.open;
      }), false);
      await page.locator('#samples summary').first().click();
      await page.locator('.large a', { hasText: /^27$/ }).first().click();
      await page.waitForFunction(() => document.querySelector('#sample-27 details').open);
    });
  });
});

describe('a table that is wider than a phone', () => {
  test('says that it goes on', async () => {
    const hinted = (page) => page.locator('#outputs .scroll').first().evaluate((box) => box.hasAttribute('data-wider'));
    await visit('wrong', { viewport: { width: 390, height: 700 } }, async (page) => {
      await page.waitForFunction(() => document.querySelector('#outputs .scroll[data-wider]'));
      assert.equal(await hinted(page), true);
    });
    await visit('wrong', {}, async (page) => assert.equal(await hinted(page), false));
  });
});

describe('links within the page', () => {
  for (const [name, viewport] of [['a desktop', { width: 1100, height: 800 }], ['a phone', { width: 390, height: 700 }]]) {
    test(`lead to what the bar does not cover, on ${name}`, async () => {
      await visit('wrong', { viewport, reducedMotion: 'reduce' }, async (page) => {
        const targets = await page.evaluate(() => [...new Set([...document.querySelectorAll('main a[href^="#"], nav a')]
          .map((link) => link.getAttribute('href').slice(1)))]);
        assert.ok(targets.length > 8);
        for (const target of targets) {
          await page.evaluate((id) => { location.hash = ''; location.hash = id; }, target);
          const places = await page.evaluate(async (id) => {
            await new Promise((done) => { requestAnimationFrame(() => requestAnimationFrame(done)); });
            return {
              bar: document.querySelector('nav').getBoundingClientRect().bottom,
              top: document.getElementById(id).getBoundingClientRect().top,
            };
          }, target);
          // Where the bar does not fit it has a scroll bar of 15 points, which is hidden here.
          assert.ok(places.top >= places.bar + 15, `${target} stands at ${places.top}, and the bar ends at ${places.bar}`);
        }
      });
    });
  }
});

describe('the timeline', () => {
  const width = (page) => page.locator('.timeline').evaluate((place) => Number(place.dataset.width));

  test('zooms and moves by keyboard', async () => {
    await visit('wrong', {}, async (page) => {
      const whole = await width(page);
      await page.locator('.timeline .stage').focus();
      await page.keyboard.press('+');
      await page.keyboard.press('+');
      assert.ok(Math.abs(await width(page) - whole / 4) < whole / 100);
      const from = await page.locator('.timeline').evaluate((place) => Number(place.dataset.from));
      await page.keyboard.press('ArrowRight');
      assert.ok(await page.locator('.timeline').evaluate((place) => Number(place.dataset.from)) > from);
      await page.keyboard.press('0');
      assert.equal(await width(page), whole);
      await page.keyboard.press('n');
      assert.match(await page.locator('.timeline .told').innerText(), /^vorn_mdl_load_from_mem: 1\.7 s, at 340 ms/);
    });
  });

  test('zooms by a drag and by its buttons', async () => {
    await visit('wrong', {}, async (page) => {
      const whole = await width(page);
      await page.locator('.timeline .u-over').scrollIntoViewIfNeeded();
      const box = await page.locator('.timeline .u-over').boundingBox();
      await page.mouse.move(box.x + box.width * 0.5, box.y + 10);
      await page.mouse.down();
      await page.mouse.move(box.x + box.width * 0.75, box.y + 12, { steps: 5 });
      await page.mouse.up();
      const scale = await page.locator('.timeline').evaluate((place) => Number(place.dataset.width));
      assert.ok(scale < whole * 0.3 && scale > whole * 0.2, `${scale} of ${whole}`);
      await page.locator('.timeline button[aria-label="Show all"]').click();
      assert.equal(await width(page), whole);
      await page.locator('.timeline button[aria-label="Zoom in"]').click();
      assert.ok(await width(page) < whole);
    });
  });
});

describe('the theme', () => {
  test('is switched by keyboard', async () => {
    await visit('right', { colorScheme: 'light' }, async (page) => {
      const ground = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
      const light = await ground();
      await page.locator('[data-switch]').focus();
      await page.keyboard.press('Enter');
      assert.equal(await page.locator('[data-switch]').innerText(), 'Theme: light');
      assert.equal(await ground(), light);
      await page.keyboard.press('Enter');
      assert.equal(await page.locator('[data-switch]').innerText(), 'Theme: dark');
      assert.notEqual(await ground(), light);
    });
  });
});

describe('names of others', () => {
  test('are shown and not run', async () => {
    await visit('hostile', {}, async (page) => {
      assert.equal(await page.evaluate(() => window.broken), undefined);
      assert.match(await page.locator('h1').innerText(), /^<\/script><script>window\.broken=1/);
      assert.equal(await page.locator('img[src=x]').count(), 0);
    });
  });

  test('could not run even if they were markup', async () => {
    const { page, context } = await openPage(browser, 'right', {});
    await page.evaluate(() => {
      const script = document.createElement('script');
      script.textContent = 'window.broken = 1';
      document.body.append(script);
    });
    assert.equal(await page.evaluate(() => window.broken), undefined);
    await context.close();
  });
});

describe('in print', () => {
  test('what is folded is there, and what needs scripts is not', async () => {
    await visit('wrong', {}, async (page) => {
      await page.emulateMedia({ media: 'print' });
      assert.equal(await page.locator('nav').isVisible(), false);
      await page.evaluate(() => dispatchEvent(new Event('beforeprint')));
      assert.equal(await page.locator('details:not([open])').count(), 0);
      const pdf = await page.pdf();
      assert.ok(pdf.length > 20000);
    });
  });
});

describe('a page of ten thousand samples', () => {
  test('has three megabytes at most', () => {
    const bytes = statSync(pagePath('large')).size;
    console.log(`large: ${bytes} bytes`);
    assert.ok(bytes <= 3_000_000);
  });

  // Of a loaded machine the wall's clock tells little, the thread's own a good deal.
  test('tells how long it takes', async () => {
    const figures = { ready: [], thread: [], sorted: [] };
    const settled = () => new Promise((done) => {
      requestAnimationFrame(() => requestAnimationFrame(() => done(performance.now())));
    });
    for (let i = 0; i < 7; ++i) {
      const context = await browser.newContext({ viewport: { width: 1100, height: 800 } });
      const page = await context.newPage();
      const inside = await context.newCDPSession(page);
      await inside.send('Performance.enable', { timeDomain: 'threadTicks' });
      await page.goto(pathToFileURL(pagePath('large')).href);
      figures.ready.push(await page.evaluate(settled));
      const { metrics } = await inside.send('Performance.getMetrics');
      figures.thread.push(1000 * metrics.find((metric) => metric.name === 'TaskDuration').value);
      const start = await page.evaluate(() => {
        const now = performance.now();
        [...document.querySelectorAll('.large th button')].find((one) => one.textContent === 'RMSE').click();
        return now;
      });
      figures.sorted.push(await page.evaluate(settled) - start);
      await context.close();
    }
    const middle = (values) => [...values].sort((a, b) => a - b)[3].toFixed(0);
    console.log(`large: ready after ${middle(figures.ready)} ms (${middle(figures.thread)} ms of the page's thread), ` +
      `sorted in ${middle(figures.sorted)} ms; medians of 7`);
  });
});
