// The timeline: spans in lanes, drawn by uPlot's axes, scales and selection. The wheel, a drag, the keys
// and the buttons zoom; a table would be the wrong thing for twenty thousand calls, so what is under the
// cursor is told in words, and by keyboard the spans are gone through one by one.
(() => {
  'use strict';
  const make = (tag, attributes = {}, ...children) => {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
    element.append(...children);
    return element;
  };
  const timeText = (ns) => {
    const [unit, factor] = ns >= 1e9 ? ['s', 1e9] : ns >= 1e6 ? ['ms', 1e6] : ns >= 1e3 ? ['µs', 1e3] : ['ns', 1];
    return Number((ns / factor).toPrecision(4)) + ' ' + unit;
  };
  // As many digits as tell ticks apart that are `step` from each other.
  const tickText = (ns, step) => {
    if (ns === 0) return '0';
    const [unit, factor] = ns >= 1e9 ? ['s', 1e9] : ns >= 1e6 ? ['ms', 1e6] : ns >= 1e3 ? ['µs', 1e3] : ['ns', 1];
    const digits = step > 0 ? Math.min(Math.max(Math.ceil(-Math.log10(step / factor) - 1e-9), 0), 9) : 0;
    return (ns / factor).toFixed(digits) + ' ' + unit;
  };
  // As many hues as there are common operations; far apart, and light or dark with the theme.
  const hues = [212, 28, 160, 285, 0, 50, 190, 330, 95, 250];

  const draw = (place) => {
    const data = JSON.parse(document.getElementById(place.dataset.data).textContent);
    const count = data.later.length;
    const begin = new Float64Array(count);
    for (let i = 0, at = 0; i < count; ++i) begin[i] = at += data.later[i];
    const first = data.fromNs;
    const last = Math.max(data.toNs, count ? begin[count - 1] + data.duration[count - 1] : 0, first + 1);
    const lanes = Math.max(data.lanes.length, 1);
    const kLane = 34;
    // Of each lane its spans, by begin.
    const spans = Array.from({ length: lanes }, () => []);
    for (let i = 0; i < count; ++i) spans[Math.min(data.lane[i], lanes - 1)].push(i);

    let dark = false;
    const isDark = () => {
      const theme = document.documentElement.dataset.theme;
      return theme ? theme === 'dark' : matchMedia('(prefers-color-scheme: dark)').matches;
    };
    const css = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
    const colour = (name) => `hsl(${hues[name % hues.length]} ${name < hues.length ? 65 : 25}% ${dark ? 62 : 45}%)`;

    const told = make('p', { class: 'told', role: 'status' });
    const tell = (i) => {
      const name = data.names[data.name[i]] + (data.calls[i] > 1 ? ` (${data.calls[i]} calls)` : '');
      told.textContent = `${name}: ${timeText(data.duration[i])}, at ${timeText(begin[i])}` +
        (lanes > 1 ? `, ${data.lanes[data.lane[i]]}` : '') + (data.bad[i] ? ', failed' : '');
    };

    // Spans of a pixel's width are drawn once.
    let chosen = -1;
    const drawSpans = (plot) => {
      const { ctx, bbox } = plot;
      const { min, max } = plot.scales.x;
      const scale = bbox.width / (max - min);
      ctx.save();
      ctx.beginPath();
      ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
      ctx.clip();
      const height = bbox.height / lanes;
      spans.forEach((lane, l) => {
        const top = bbox.top + l * height + height * 0.15;
        let last = -Infinity;
        for (const i of lane) {
          if (begin[i] > max) break;
          const end = begin[i] + data.duration[i];
          if (end < min) continue;
          const from = bbox.left + (begin[i] - min) * scale;
          const to = Math.max(bbox.left + (end - min) * scale, from + 1);
          if (to <= last && !data.bad[i]) continue;
          ctx.fillStyle = data.bad[i] ? css('--bad') : colour(data.name[i]);
          ctx.fillRect(from, top, to - from, height * 0.7);
          last = to;
          if (i === chosen) {
            ctx.lineWidth = 3 * devicePixelRatio;
            ctx.strokeStyle = css('--text');
            ctx.strokeRect(from, top - 2, Math.max(to - from, 3), height * 0.7 + 4);
          }
        }
      });
      ctx.restore();
    };
    const spanAt = (plot, left, top) => {
      const at = plot.posToVal(left, 'x');
      const pixel = (plot.scales.x.max - plot.scales.x.min) / Math.max(plot.over.clientWidth, 1);
      const lane = spans[Math.floor(top / plot.over.clientHeight * lanes)] || [];
      let low = 0;
      let high = lane.length;
      while (low < high) {
        const middle = (low + high) >> 1;
        if (begin[lane[middle]] <= at + 2 * pixel) low = middle + 1; else high = middle;
      }
      const i = low ? lane[low - 1] : -1;
      return i >= 0 && begin[i] + data.duration[i] >= at - 2 * pixel ? i : -1;
    };

    const stage = make('div', { class: 'stage', tabindex: '0', role: 'application',
      'aria-label': 'Timeline of calls. Arrow keys move, plus and minus zoom, zero shows all, N and P go to the next and the previous call.' });
    const options = {
      width: 600,
      height: lanes * kLane + 34,
      legend: { show: false },
      cursor: { y: false, points: { show: false }, drag: { x: true, y: false, dist: 4 } },
      scales: { x: { time: false, min: first, max: last }, y: { range: [0, 1] } },
      axes: [
        { stroke: () => css('--quiet'), grid: { stroke: () => css('--line') }, ticks: { stroke: () => css('--line') },
          values: (_, values) => values.map((v, i) => tickText(v, values[i ? i : 1] - values[i ? i - 1 : 0])), space: 90, size: 28 },
        // Names of threads where there are several.
        { show: lanes > 1, stroke: () => css('--quiet'), grid: { show: false }, ticks: { show: false }, size: 92,
          splits: () => spans.map((_, l) => 1 - (l + 0.5) / lanes), values: () => data.lanes },
      ],
      series: [{}, { show: true, paths: () => null, points: { show: false } }],
      hooks: {
        draw: [drawSpans],
        // However it came about: what is shown stands in the element, for who looks at it from outside.
        setScale: [(shown, scale) => {
          if (scale !== 'x') return;
          const { min, max } = shown.scales.x;
          place.dataset.from = String(Math.round(min));
          place.dataset.width = String(Math.round(max - min));
        }],
        setCursor: [(plot) => {
          if (plot.cursor.left == null || plot.cursor.left < 0) return;
          const i = spanAt(plot, plot.cursor.left, plot.cursor.top);
          if (i >= 0) tell(i);
        }],
      },
    };
    const plot = new uPlot(options, [[first, last], [0, 1]], stage);
    const show = (min, max) => {
      const width = Math.min(Math.max(max - min, 100), last - first);
      const from = Math.min(Math.max(min, first), last - width);
      plot.setScale('x', { min: from, max: from + width });
    };
    const zoom = (factor, at) => {
      const { min, max } = plot.scales.x;
      const middle = at === undefined ? (min + max) / 2 : at;
      show(middle - (middle - min) * factor, middle + (max - middle) * factor);
    };
    const move = (share) => {
      const { min, max } = plot.scales.x;
      show(min + (max - min) * share, max + (max - min) * share);
    };
    const step = (by) => {
      if (!count) return;
      chosen = chosen < 0 ? (by > 0 ? 0 : count - 1) : Math.min(Math.max(chosen + by, 0), count - 1);
      tell(chosen);
      const { min, max } = plot.scales.x;
      const middle = begin[chosen] + data.duration[chosen] / 2;
      if (middle < min || middle > max) show(middle - (max - min) / 2, middle + (max - min) / 2);
      else plot.redraw();
    };
    const keys = {
      '+': () => zoom(0.5), '=': () => zoom(0.5), '-': () => zoom(2), 0: () => show(first, last),
      ArrowLeft: () => move(-0.2), ArrowRight: () => move(0.2), Home: () => move(-1e9), End: () => move(1e9),
      n: () => step(1), p: () => step(-1),
    };
    stage.addEventListener('keydown', (event) => {
      const act = event.ctrlKey || event.metaKey || event.altKey ? undefined : keys[event.key];
      if (!act) return;
      event.preventDefault();
      act();
    });
    // The wheel alone scrolls the page, as everywhere.
    plot.over.addEventListener('wheel', (event) => {
      if (!event.ctrlKey && !event.shiftKey) return;
      event.preventDefault();
      zoom((event.deltaY || event.deltaX) < 0 ? 0.7 : 1 / 0.7, plot.posToVal(event.offsetX, 'x'));
    }, { passive: false });
    plot.over.addEventListener('dblclick', () => show(first, last));

    const button = (text, label, act) => {
      const element = make('button', { type: 'button', class: 'button', 'aria-label': label }, text);
      element.addEventListener('click', act);
      return element;
    };
    const tools = make('div', { class: 'tools' },
      button('+', 'Zoom in', () => zoom(0.5)), button('−', 'Zoom out', () => zoom(2)),
      button('◀', 'Earlier', () => move(-0.5)), button('▶', 'Later', () => move(0.5)),
      button('All', 'Show all', () => show(first, last)),
      make('span', {}, 'Drag to zoom in; with Ctrl or Shift the wheel zooms.'));
    const key = make('ul', { class: 'key' });
    const paint = () => {
      dark = isDark();
      key.replaceChildren(...data.names.slice(0, 12).map((name, i) => {
        const sign = make('i');
        sign.style.background = colour(i);
        return make('li', {}, sign, ' ' + name);
      }));
      if (data.bad.includes(1)) {
        const sign = make('i');
        sign.style.background = css('--bad');
        key.append(make('li', {}, sign, ' failed'));
      }
      plot.redraw();
    };
    stage.append(make('div', { class: 'axis x' }, data.axis));
    place.querySelector('.fallback').replaceWith(tools, key, stage, told);
    const fit = () => plot.setSize({ width: Math.max(stage.clientWidth - 14, 200), height: options.height });
    new ResizeObserver(fit).observe(stage);
    document.addEventListener('themechange', paint);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', paint);
    fit();
    paint();
    show(first, last);
  };
  for (const place of document.querySelectorAll('.timeline')) draw(place);
})();
