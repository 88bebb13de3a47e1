// The page of `thermokit view`. It asks the server for each frame's levels
// (binary), for the palettes and each film's level table (once), and for the
// figures of a region; it colours the levels itself through a look-up table
// built exactly as the library's CLut24 builds it, and reads levels and
// temperatures under the pointer from its own copy, so that palette, range
// and isotherm changes redraw at once without a request.
'use strict';
(() => {
  const token = new URLSearchParams(location.search).get('token') || '';
  const $ = (id) => document.getElementById(id);

  // ---- Requests --------------------------------------------------------
  async function get(path, as) {
    let reply;
    try {
      reply = await fetch(path, { headers: { 'X-Thermokit-Token': token }, cache: 'no-store' });
    } catch (e) {
      throw new Error('the viewer does not answer (was thermokit view stopped?)');
    }
    if (!reply.ok) {
      const text = (await reply.text()).trim();
      const e = new Error(text || reply.statusText);
      e.status = reply.status;
      throw e;
    }
    if (as === 'json') return reply.json();
    return reply.arrayBuffer();
  }

  function say(text, error) {
    const s = $('status');
    s.textContent = text;
    s.className = error ? 'error' : '';
  }

  function failed(e) {
    if (e.status === 403) say('refused by the server: it was stopped or restarted; open the address it printed', true);
    else if (e.status === 429) say('the server asks for fewer frames a second', true);
    else say(e.message || String(e), true);
  }

  // ---- Numbers as the tool prints them (printf "%.Nf") -----------------
  // toFixed rounds an exact half away from zero, printf to the even digit;
  // everything else is the same, since both work on the exact binary value.
  function fixed(x, digits) {
    if (x === null || x === undefined || Number.isNaN(x)) return 'nan';
    if (!Number.isFinite(x)) return x > 0 ? 'inf' : '-inf';
    const negative = x < 0 || Object.is(x, -0);
    const m = Math.abs(x);
    let text = m.toFixed(digits);
    if (m < 1e21) {
      const exact = m.toFixed(100);
      const dot = exact.indexOf('.');
      if (/^50*$/.test(exact.slice(dot + 1 + digits))) {
        const kept = digits > 0 ? exact.slice(0, dot + 1 + digits) : exact.slice(0, dot);
        if (Number(kept[kept.length - 1]) % 2 === 0) text = kept;
      }
    }
    return (negative ? '-' : '') + text;
  }

  // ---- State ------------------------------------------------------------
  let session = null;
  const palettes = [];        // {number, name, colours: Uint32Array of canvas pixels}
  const tabs = [];            // one per film
  let tab = null;             // the tab shown
  const timings = [];         // frame changes: {frame, drawnMs, shownMs}
  const player = { playing: false, t0: 0, start: 0, shown: 0, skipped: 0, last: -1, startedAt: 0 };

  function pixel(r, g, b) { return ((255 << 24) | (b << 16) | (g << 8) | r) >>> 0; }

  function newTab(film) {
    return {
      film, index: film.index,
      frame: null,                  // the frame shown: {n, time, levels, ...}
      wanted: 0,                    // the frame asked for last
      table: null,                  // Float32Array, level -> value
      tableQuery: '',               // the table's request parameters (object parameters will go here)
      cache: new Map(),             // frame key -> {promise, frame}
      seq: 0,
      palette: 2, reversed: false,
      rangeMode: 'auto', rangeLow: null, rangeHigh: null, filmRange: null,
      iso: { on: false, low: null, high: null, colour: '#ffff00' },
      nuc: false, bad: false,
      zoom: 'fit', fps: null,
      region: null,                 // {shape, x, y, w, h}
      line: null,                   // {x0, y0, x1, y1}
      stats: null, statsSeq: 0, statsAt: 0,
      lut: new Uint32Array(film.max_level + 1), lutKey: '',
      image: null, firstTime: null,
    };
  }

  // ---- Frames -------------------------------------------------------------
  function frameKey(t, n) { return n + (t.nuc ? 'n' : '') + (t.bad ? 'b' : ''); }

  // Frames are packed for a page on another machine; on this one the bytes cost less than packing them.
  const packFrames = !['127.0.0.1', 'localhost', '[::1]'].includes(location.hostname) ? 1 : 0;

  function decodeFrame(buffer) {
    const v = new DataView(buffer);
    if (buffer.byteLength < 32 || v.getUint32(0, true) !== 0x52464b54 || v.getUint8(4) !== 1)
      throw new Error('the server sent something that is not a frame');
    const f = {
      encoding: v.getUint8(5), flags: v.getUint16(6, true), point: v.getUint16(8, true), line: v.getUint16(10, true),
      n: v.getUint32(12, true), time: v.getFloat64(16, true), autoMin: v.getUint16(24, true),
      autoMax: v.getUint16(26, true), min: v.getUint16(28, true), max: v.getUint16(30, true),
    };
    const count = f.point * f.line;
    if (buffer.byteLength !== 32 + 2 * count) throw new Error('a frame of the wrong size');
    if (f.encoding === 0) {
      f.levels = new Uint16Array(buffer, 32, count);
    } else if (f.encoding === 1) {
      // Differences along each line, low bytes then high bytes.
      const lo = new Uint8Array(buffer, 32, count), hi = new Uint8Array(buffer, 32 + count, count);
      const levels = new Uint16Array(count);
      for (let y = 0, i = 0; y < f.line; y++) {
        let level = 0;
        for (let x = 0; x < f.point; x++, i++) {
          level = (level + (lo[i] | (hi[i] << 8))) & 0xffff;
          levels[i] = level;
        }
      }
      f.levels = levels;
    } else {
      throw new Error('a frame in an unknown encoding');
    }
    return f;
  }

  function loadFrame(t, n) {
    const key = frameKey(t, n);
    let entry = t.cache.get(key);
    if (!entry) {
      entry = { frame: null, promise: null };
      entry.promise = get(`/api/film/${t.index}/frame/${n}?nuc=${t.nuc ? 1 : 0}&bad=${t.bad ? 1 : 0}&deflate=${packFrames}`)
        .then((buffer) => (entry.frame = decodeFrame(buffer)))
        .catch((e) => {
          if (t.cache.get(key) === entry) t.cache.delete(key);  // asked again next time
          throw e;
        });
      t.cache.set(key, entry);
      while (t.cache.size > 16) t.cache.delete(t.cache.keys().next().value);
    }
    return entry.promise;
  }

  // Shows frame n of the tab; the last one asked for wins. started: when the change was asked (performance.now()).
  async function showFrame(n, started) {
    const t = tab;
    n = Math.max(0, Math.min(t.film.frames - 1, n | 0));
    t.wanted = n;
    const seq = ++t.seq;
    $('slider').value = n;
    try {
      const f = await loadFrame(t, n);
      if (seq !== t.seq || t !== tab) return;
      drawFrame(f);
      if (started !== undefined) {
        const drawnMs = performance.now() - started;
        requestAnimationFrame(() => timings.push({ frame: n, drawnMs, shownMs: performance.now() - started }));
      }
    } catch (e) {
      if (seq === t.seq) failed(e);
    }
  }

  // ---- Colours --------------------------------------------------------------
  // Level of a value typed in the unit: the first level whose value reaches it
  // (low end) or the last one not above it (high end).
  function levelOf(t, value, high) {
    const max = t.film.max_level;
    if (!t.table) return Math.max(0, Math.min(max, Math.round(value)));
    if (!high) {
      for (let l = 0; l <= max; l++) if (t.table[l] >= value) return l;
      return max;
    }
    for (let l = max; l >= 0; l--) if (t.table[l] <= value) return l;
    return 0;
  }

  function valueText(t, level) {
    if (!t.table) return String(level);
    const v = t.table[level & t.film.max_level];
    return Number.isNaN(v) ? 'no value' : fixed(v, 1);
  }

  // The display range in levels, as render takes it: max above min.
  function rangeOf(t) {
    const f = t.frame;
    let lo, hi;
    if (t.rangeMode === 'film' && t.filmRange) [lo, hi] = [t.filmRange.min, t.filmRange.max];
    else if (t.rangeMode === 'manual' && t.rangeLow !== null && t.rangeHigh !== null)
      [lo, hi] = [levelOf(t, t.rangeLow, false), levelOf(t, t.rangeHigh, true)];
    else [lo, hi] = [f.autoMin, f.autoMax];
    const maxLevel = t.film.max_level;
    if (hi <= lo) hi = lo < maxLevel ? lo + 1 : lo;
    return [lo, hi];
  }

  function isoColour(hex) {
    const c = parseInt(hex.slice(1), 16);
    return pixel((c >> 16) & 255, (c >> 8) & 255, c & 255);
  }

  // The true-colour table, entry by entry as CLut24::Update makes it (no zero
  // split): below min the first colour, min..max spread over the palette,
  // above max the last colour, then the isotherm band painted over.
  function buildLut(t, lo, hi) {
    const p = palettes.find((q) => q.number === t.palette) || palettes[0];
    const key = [t.index, p.number, t.reversed, lo, hi, t.iso.on, t.iso.low, t.iso.high, t.iso.colour, t.table !== null].join();
    if (key === t.lutKey) return;
    t.lutKey = key;
    let pal = p.colours;
    if (t.reversed) pal = pal.slice().reverse();
    const N = pal.length, maxLevel = t.film.max_level, lut = t.lut;
    let min = lo >= maxLevel ? maxLevel : lo, max = hi >= maxLevel ? maxLevel : hi;
    lut.fill(pal[0], 0, min);
    const span = Math.max(1, max - min + 1);
    for (let i = min; i <= max; i++) lut[i] = pal[Math.floor(((i - min) * N) / span)];
    lut.fill(pal[N - 1], max + 1, maxLevel + 1);
    if (t.iso.on && t.iso.low !== null && t.iso.high !== null) {
      let low = levelOf(t, t.iso.low, false), high = levelOf(t, t.iso.high, true);
      if (low > maxLevel) low = 0;
      if (high > maxLevel) high = maxLevel;
      if (low <= high) lut.fill(isoColour(t.iso.colour), low, high + 1);
    }
  }

  function drawFrame(f) {
    const t = tab;
    t.frame = f;
    if (t.firstTime === null) t.firstTime = f.time;
    const canvas = $('image');
    if (canvas.width !== f.point || canvas.height !== f.line) {
      canvas.width = f.point;
      canvas.height = f.line;
      t.image = null;
      layout();
    }
    if (!t.image || t.image.width !== f.point) t.image = imageContext().createImageData(f.point, f.line);
    redraw();
    $('slider').value = f.n;
    $('frameText').textContent = `frame ${f.n} / ${t.film.frames - 1}`;
    $('timeText').textContent = `${clock(f.time)}  (+${fixed(f.time - t.firstTime, 3)} s)`;
    refreshReadout();
    // While playing, the region's figures follow a few times a second.
    if (!player.playing || performance.now() - t.statsAt > 200) requestStats();
    refreshProfile();
    if ($('headerBox').open && !player.playing) requestImageHeader();
  }

  // The picture is opaque: the browser then composes it without blending.
  const imageContext = () => $('image').getContext('2d', { alpha: false });

  // Colours the frame shown with the current settings; no request.
  function redraw() {
    const t = tab, f = t.frame;
    if (!f) return;
    const [lo, hi] = rangeOf(t);
    buildLut(t, lo, hi);
    const out = new Uint32Array(t.image.data.buffer), lut = t.lut, levels = f.levels, mask = t.film.max_level;
    for (let i = 0; i < levels.length; i++) out[i] = lut[levels[i] & mask];
    imageContext().putImageData(t.image, 0, 0);
    drawBar(t, lo, hi);
    const unit = t.table ? ` (${valueText(t, lo)} .. ${valueText(t, hi)} ${t.film.unit})` : '';
    $('rangeText').textContent = `levels ${lo} .. ${hi}${unit}`;
  }

  function clock(seconds) {
    if (!(seconds >= 0) || seconds >= 86400 * 2) return fixed(seconds, 6) + ' s';
    const h = Math.floor(seconds / 3600), m = Math.floor((seconds % 3600) / 60), s = seconds % 60;
    return `${String(h).padStart(2, '0')}:${String(m).padStart(2, '0')}:${fixed(s, 6).padStart(9, '0')}`;
  }

  // The colour bar (highest level at the top) and its scale.
  let barKey = '';
  function drawBar(t, lo, hi) {
    const key = t.lutKey;
    if (key === barKey) return;
    barKey = key;
    const bar = $('bar'), ctx = bar.getContext('2d'), img = ctx.createImageData(bar.width, bar.height);
    const out = new Uint32Array(img.data.buffer);
    for (let r = 0; r < bar.height; r++) {
      const level = lo + Math.floor(((bar.height - 1 - r) * (hi - lo)) / (bar.height - 1));
      out.fill(t.lut[level], r * bar.width, (r + 1) * bar.width);
    }
    ctx.putImageData(img, 0, 0);
    const scale = $('scale');
    scale.textContent = '';
    for (let k = 0; k <= 4; k++) {
      const level = lo + Math.round(((4 - k) * (hi - lo)) / 4);
      const s = document.createElement('span');
      s.style.top = `${(k * 100) / 4}%`;
      s.textContent = t.table ? `${valueText(t, level)} ${t.film.unit}` : String(level);
      scale.appendChild(s);
    }
  }

  // ---- Zoom and overlay -----------------------------------------------------
  function zoomOf(t) {
    if (t.zoom !== 'fit') return Number(t.zoom);
    // The largest whole zoom that fits beside the panel (crisp pixels), or a reduction.
    const roomX = Math.max(200, window.innerWidth - 420), roomY = Math.max(200, window.innerHeight - 140);
    const s = Math.min(roomX / t.film.point, roomY / t.film.line);
    return s >= 1 ? Math.floor(s) : s;
  }

  function layout() {
    const t = tab, z = zoomOf(t);
    const w = Math.round(t.film.point * z), h = Math.round(t.film.line * z);
    const image = $('image'), overlay = $('overlay');
    image.style.width = `${w}px`;
    image.style.height = `${h}px`;
    overlay.width = w;
    overlay.height = h;
    overlay.style.width = `${w}px`;
    overlay.style.height = `${h}px`;
    drawOverlay();
  }

  let drag = null;  // a shape being drawn: {tool, x0, y0, x1, y1}

  function drawOverlay() {
    const t = tab, z = zoomOf(t), o = $('overlay'), ctx = o.getContext('2d');
    ctx.clearRect(0, 0, o.width, o.height);
    ctx.lineWidth = 1.5;
    const shape = (s, colour) => {
      ctx.strokeStyle = colour;
      ctx.beginPath();
      if (s.shape === 'rect') ctx.rect(s.x * z, s.y * z, s.w * z, s.h * z);
      else ctx.ellipse((s.x + s.w / 2) * z, (s.y + s.h / 2) * z, (s.w / 2) * z, (s.h / 2) * z, 0, 0, 2 * Math.PI);
      ctx.stroke();
    };
    const line = (l, colour) => {
      ctx.strokeStyle = colour;
      ctx.beginPath();
      ctx.moveTo((l.x0 + 0.5) * z, (l.y0 + 0.5) * z);
      ctx.lineTo((l.x1 + 0.5) * z, (l.y1 + 0.5) * z);
      ctx.stroke();
    };
    if (t.region) shape(t.region, '#00e0ff');
    if (t.line) line(t.line, '#ff40ff');
    if (drag) {
      if (drag.tool === 'line') line(drag, '#ffffff');
      else shape(dragShape(drag), '#ffffff');
    }
  }

  function dragShape(d) {
    return { shape: d.tool, x: Math.min(d.x0, d.x1), y: Math.min(d.y0, d.y1),
             w: Math.abs(d.x1 - d.x0) + 1, h: Math.abs(d.y1 - d.y0) + 1 };
  }

  function pixelAt(e) {
    const t = tab, z = zoomOf(t);
    const x = Math.floor(e.offsetX / z), y = Math.floor(e.offsetY / z);
    return [Math.max(0, Math.min(t.film.point - 1, x)), Math.max(0, Math.min(t.film.line - 1, y))];
  }

  // ---- Read-out: the level and value under the pointer ----------------------
  let pointer = null;
  // As `thermokit temperature --pixel` prints them.
  function readoutText(t, x, y) {
    const f = t.frame;
    const level = f.levels[y * f.point + x] & t.film.max_level;
    let text = `pixel (${x},${y}): level ${level}`;
    if (t.table) {
      const v = t.table[level];
      text += Number.isNaN(v) ? ', no value (outside the calibration)' : `, ${fixed(v, 4)} ${t.film.unit}`;
    }
    return text;
  }
  function refreshReadout() {
    const t = tab;
    $('readout').textContent = pointer && t.frame ? readoutText(t, pointer[0], pointer[1]) : '';
  }

  // ---- Region figures, histogram and profile --------------------------------
  function regionQuery(t) {
    const r = t.region;
    return `shape=${r.shape}&x=${r.x}&y=${r.y}&w=${r.w}&h=${r.h}&nuc=${t.nuc ? 1 : 0}&bad=${t.bad ? 1 : 0}`;
  }

  async function requestStats() {
    const t = tab;
    const csv = $('saveCsv');
    if (!t.region || !t.frame) {
      t.stats = null;
      showStats(t);
      csv.classList.add('disabled');
      csv.href = '#';
      return;
    }
    csv.classList.remove('disabled');
    csv.href = `/api/film/${t.index}/stats.csv?${regionQuery(t)}&token=${encodeURIComponent(token)}`;
    const seq = ++t.statsSeq;
    t.statsAt = performance.now();
    try {
      const region = { ...t.region };
      const s = await get(`/api/film/${t.index}/stats?frame=${t.frame.n}&${regionQuery(t)}`, 'json');
      if (seq !== t.statsSeq || t !== tab) return;
      s.region = region;  // the figures shown may be those of the region before the last change, until these come
      t.stats = s;
      showStats(t);
    } catch (e) {
      if (seq === t.statsSeq) failed(e);
    }
  }

  function showStats(t) {
    const table = $('stats'), s = t.stats;
    table.textContent = '';
    drawHistogram(t);
    if (!s) return;
    const row = (cells) => {
      const tr = table.insertRow();
      for (const c of cells) tr.insertCell().textContent = c;
    };
    const lv = s.levels, v = s.values;
    row(['', 'levels', v ? s.unit : '']);
    row(['pixels', String(lv.pixels), v ? String(v.pixels) : '']);
    row(['min', String(lv.min), v ? fixed(v.min, 4) : '']);
    row(['max', String(lv.max), v ? fixed(v.max, 4) : '']);
    row(['mean', fixed(lv.mean, 6), v ? fixed(v.mean, 4) : '']);
    row(['std dev', fixed(lv.stddev, 6), v ? fixed(v.stddev, 4) : '']);
    table.dataset.frame = s.frame;
  }

  function drawHistogram(t) {
    const c = $('histogram'), ctx = c.getContext('2d');
    ctx.clearRect(0, 0, c.width, c.height);
    const s = t.stats;
    if (!s || !s.histogram.counts.length) return;
    const h = s.histogram, counts = h.counts, top = Math.max(...counts);
    const w = c.width / counts.length, base = c.height - 14;
    ctx.fillStyle = '#f0a030';
    counts.forEach((n, k) => {
      const bh = top ? (n / top) * (base - 4) : 0;
      ctx.fillRect(k * w, base - bh, Math.max(1, w - 1), bh);
    });
    ctx.fillStyle = '#9aa0a6';
    ctx.font = '10px sans-serif';
    const last = h.low + h.width * counts.length - 1;
    ctx.fillText(valueText(t, h.low), 2, c.height - 3);
    const right = valueText(t, Math.min(last, t.film.max_level));
    ctx.fillText(right, c.width - ctx.measureText(right).width - 2, c.height - 3);
  }

  // The pixels of the line, one a step along its longer axis.
  function profilePixels(l) {
    const dx = l.x1 - l.x0, dy = l.y1 - l.y0, steps = Math.max(Math.abs(dx), Math.abs(dy));
    const out = [];
    for (let k = 0; k <= steps; k++) {
      const a = steps ? k / steps : 0;
      out.push([Math.round(l.x0 + a * dx), Math.round(l.y0 + a * dy)]);
    }
    return out;
  }

  function refreshProfile() {
    const t = tab, c = $('profile'), ctx = c.getContext('2d');
    ctx.clearRect(0, 0, c.width, c.height);
    if (!t.line || !t.frame) {
      $('profileText').textContent = '';
      return;
    }
    const f = t.frame, mask = t.film.max_level;
    const ys = profilePixels(t.line).map(([x, y]) => {
      const level = f.levels[y * f.point + x] & mask;
      return t.table ? t.table[level] : level;
    });
    const finite = ys.filter((v) => Number.isFinite(v));
    if (!finite.length) return;
    const lo = Math.min(...finite), hi = Math.max(...finite), span = hi - lo || 1;
    ctx.strokeStyle = '#ff40ff';
    ctx.beginPath();
    ys.forEach((v, k) => {
      const x = ys.length > 1 ? (k * (c.width - 1)) / (ys.length - 1) : 0, y = c.height - 4 - ((v - lo) / span) * (c.height - 8);
      if (k === 0) ctx.moveTo(x, y);
      else ctx.lineTo(x, y);
    });
    ctx.stroke();
    const unit = t.table ? ` ${t.film.unit}` : ' levels';
    const fmt = (v) => (t.table ? fixed(v, 2) : String(v));
    const l = t.line;
    $('profileText').textContent =
      `profile (${l.x0},${l.y0})-(${l.x1},${l.y1}), ${ys.length} px: ${fmt(lo)} .. ${fmt(hi)}${unit}`;
  }

  // ---- Header panel ---------------------------------------------------------
  function fillTable(table, object) {
    table.textContent = '';
    const walk = (o, prefix) => {
      for (const [k, v] of Object.entries(o)) {
        if (v && typeof v === 'object' && !Array.isArray(v)) walk(v, `${prefix}${k}.`);
        else {
          const tr = table.insertRow();
          tr.insertCell().textContent = prefix + k;
          tr.insertCell().textContent = typeof v === 'string' ? v : JSON.stringify(v);
        }
      }
    };
    walk(object, '');
  }

  let imageHeaderSeq = 0;
  async function requestImageHeader() {
    const t = tab;
    if (!t.frame) return;
    const seq = ++imageHeaderSeq;
    try {
      const h = await get(`/api/film/${t.index}/image-header/${t.frame.n}`, 'json');
      if (seq === imageHeaderSeq && t === tab) fillTable($('imageHeader'), h);
    } catch (e) {
      failed(e);
    }
  }

  // ---- Playback ---------------------------------------------------------------
  function fpsOf(t) {
    const v = Number($('fps').value);
    return v > 0 ? v : t.film.frame_rate_hz > 0 ? t.film.frame_rate_hz : 25;
  }

  function play(on) {
    const was = player.playing;
    player.playing = on;
    $('play').textContent = on ? 'Pause' : 'Play';
    if (!on) {
      if (was && tab.frame) {
        requestStats();
        if ($('headerBox').open) requestImageHeader();
      }
      return;
    }
    // (Re)starts the clock from the frame shown; one loop of ticks runs.
    const t = tab;
    player.t0 = performance.now();
    player.start = t.frame ? t.frame.n : 0;
    player.shown = 0;
    player.skipped = 0;
    player.last = player.start;
    if (!was) requestAnimationFrame(tick);
  }

  // Real time: the frame due now is shown when it has arrived; frames a
  // slow link or screen cannot show in time are skipped.
  function tick(now) {
    if (!player.playing) return;
    const t = tab, frames = t.film.frames, fps = fpsOf(t);
    const due = player.start + Math.floor(((now - player.t0) * fps) / 1000);
    // The next frames are asked for ahead, at most 4 at a time: when the
    // link or the machine falls behind, requests for frames that will be
    // skipped would only slow it down further.
    const step = Math.max(1, Math.ceil(fps / 60));
    let pending = 0;
    for (const entry of t.cache.values()) if (!entry.frame) pending++;
    for (let k = 0; k <= 8 && pending < 4; k++) {
      const n = (due + k * step) % frames;
      if (t.cache.has(frameKey(t, n))) continue;
      loadFrame(t, n).catch(() => {});
      pending++;
    }
    const entry = t.cache.get(frameKey(t, due % frames));
    if (entry && entry.frame && due > player.last) {
      player.skipped += due - player.last - 1;
      player.last = due;
      player.shown++;
      t.seq++;
      t.wanted = due % frames;
      drawFrame(entry.frame);
    }
    requestAnimationFrame(tick);
  }

  // ---- Tabs ------------------------------------------------------------------
  async function activate(t) {
    play(false);
    tab = t;
    for (const b of $('tabs').children) b.setAttribute('aria-selected', String(Number(b.dataset.index) === t.index));
    const f = t.film;
    $('slider').max = f.frames - 1;
    $('fps').value = t.fps || (f.frame_rate_hz > 0 ? Number(f.frame_rate_hz.toPrecision(6)) : 25);
    $('palette').value = t.palette;
    $('reversed').checked = t.reversed;
    $('rangeMode').value = t.rangeMode;
    $('zoom').value = t.zoom;
    $('rangeLow').value = t.rangeLow ?? '';
    $('rangeHigh').value = t.rangeHigh ?? '';
    $('isoOn').checked = t.iso.on;
    $('isoLow').value = t.iso.low ?? '';
    $('isoHigh').value = t.iso.high ?? '';
    $('isoColour').value = t.iso.colour;
    for (const [id, a] of [['nuc', f.nuc], ['bad', f.badpixels]]) {
      $(id).disabled = !a.available;
      $(id).checked = t[id];
      $(id).parentElement.title = a.available ? '' : a.why;
    }
    for (const u of document.querySelectorAll('.unit')) u.textContent = f.calibrated ? f.unit : 'levels';
    fillTable($('header'), f.header);
    $('imageHeader').textContent = '';
    setRegionInputs(t);
    if (f.calibrated && !t.table) {
      try {
        t.table = new Float32Array(await get(`/api/film/${t.index}/table${t.tableQuery}`));
      } catch (e) {
        failed(e);
      }
    }
    if (t !== tab) return;
    t.lutKey = '';
    const canvas = $('image');
    canvas.width = f.point;
    canvas.height = f.line;
    t.image = null;
    layout();
    if (t.frame) drawFrame(t.frame);
    await showFrame(t.wanted);
  }

  function setRegionInputs(t) {
    const r = t.region;
    $('shape').value = r ? r.shape : 'none';
    for (const k of ['x', 'y', 'w', 'h']) $(`r${k}`).value = r ? r[k] : '';
  }

  function setRegion(r) {
    const t = tab;
    if (r) {
      const f = t.film;
      r.x = Math.max(0, Math.min(f.point - 1, r.x | 0));
      r.y = Math.max(0, Math.min(f.line - 1, r.y | 0));
      r.w = Math.max(1, Math.min(f.point - r.x, r.w | 0));
      r.h = Math.max(1, Math.min(f.line - r.y, r.h | 0));
    }
    t.region = r;
    setRegionInputs(t);
    drawOverlay();
    requestStats();
  }

  // ---- Controls ----------------------------------------------------------------
  function bind() {
    $('slider').addEventListener('input', (e) => { play(false); showFrame(Number(e.target.value), e.timeStamp); });
    const step = (d) => { play(false); showFrame((tab.frame ? tab.frame.n : 0) + d, performance.now()); };
    $('prev').onclick = () => step(-1);
    $('next').onclick = () => step(1);
    $('first').onclick = () => { play(false); showFrame(0, performance.now()); };
    $('last').onclick = () => { play(false); showFrame(tab.film.frames - 1, performance.now()); };
    $('play').onclick = () => play(!player.playing);
    $('fps').onchange = () => {
      tab.fps = Number($('fps').value) > 0 ? Number($('fps').value) : null;
      if (player.playing) play(true);
    };
    document.addEventListener('keydown', (e) => {
      if (e.target.closest('input, select, textarea')) return;
      if (e.target.closest('button, a') && (e.key === ' ' || e.key === 'Enter')) return;  // the button's own
      if (e.key === 'ArrowLeft') step(-1);
      else if (e.key === 'ArrowRight') step(1);
      else if (e.key === 'Home') $('first').onclick();
      else if (e.key === 'End') $('last').onclick();
      else if (e.key === ' ') play(!player.playing);
      else return;
      e.preventDefault();
    });

    $('palette').onchange = (e) => { tab.palette = Number(e.target.value); redraw(); };
    $('reversed').onchange = (e) => { tab.reversed = e.target.checked; redraw(); };
    const numberOf = (id) => ($(id).value === '' ? null : Number($(id).value));
    const range = async () => {
      const t = tab;
      if ($('rangeMode').value === 'manual' && t.rangeMode !== 'manual' && t.frame) {
        // Typing starts from the range shown.
        const [lo, hi] = rangeOf(t);
        const shown = (l) => String(t.table ? t.table[l] : l);
        $('rangeLow').value = shown(lo);
        $('rangeHigh').value = shown(hi);
      }
      t.rangeMode = $('rangeMode').value;
      t.rangeLow = numberOf('rangeLow');
      t.rangeHigh = numberOf('rangeHigh');
      if (t.rangeMode === 'film' && !t.filmRange) {
        say('measuring the range over the film ...');
        try {
          t.filmRange = await get(`/api/film/${t.index}/range?nuc=${t.nuc ? 1 : 0}&bad=${t.bad ? 1 : 0}`, 'json');
          say('');
        } catch (e) {
          failed(e);
        }
      }
      redraw();
    };
    for (const id of ['rangeMode', 'rangeLow', 'rangeHigh']) $(id).onchange = range;
    $('zoom').onchange = (e) => { tab.zoom = e.target.value; layout(); };
    window.addEventListener('resize', () => { if (tab && tab.zoom === 'fit') layout(); });

    const iso = () => {
      const t = tab;
      t.iso = { on: $('isoOn').checked, low: numberOf('isoLow'), high: numberOf('isoHigh'), colour: $('isoColour').value };
      redraw();
    };
    for (const id of ['isoOn', 'isoLow', 'isoHigh', 'isoColour']) $(id).addEventListener('input', iso);

    const correction = () => {
      const t = tab;
      t.nuc = $('nuc').checked;
      t.bad = $('bad').checked;
      t.filmRange = null;
      if (t.rangeMode === 'film') range();
      showFrame(t.wanted, performance.now());
    };
    $('nuc').onchange = correction;
    $('bad').onchange = correction;

    const typed = () => {
      const shape = $('shape').value;
      if (shape === 'none') return setRegion(null);
      // A field being typed again (empty) leaves the region as it is.
      if (['rx', 'ry', 'rw', 'rh'].some((id) => $(id).value === '')) return;
      const v = (k) => Number($(`r${k}`).value);
      setRegion({ shape, x: v('x'), y: v('y'), w: v('w'), h: v('h') });
    };
    for (const id of ['shape', 'rx', 'ry', 'rw', 'rh']) $(id).onchange = typed;

    const overlay = $('overlay');
    const tool = () => document.querySelector('input[name="tool"]:checked').value;
    overlay.addEventListener('pointermove', (e) => {
      pointer = pixelAt(e);
      refreshReadout();
      if (drag) {
        [drag.x1, drag.y1] = pointer;
        drawOverlay();
      }
    });
    overlay.addEventListener('pointerleave', () => { pointer = null; refreshReadout(); });
    overlay.addEventListener('pointerdown', (e) => {
      if (tool() === 'none' || e.button !== 0) return;
      const [x, y] = pixelAt(e);
      drag = { tool: tool(), x0: x, y0: y, x1: x, y1: y };
      overlay.setPointerCapture(e.pointerId);
    });
    overlay.addEventListener('pointerup', () => {
      if (!drag) return;
      const d = drag;
      drag = null;
      if (d.tool === 'line') {
        tab.line = { x0: d.x0, y0: d.y0, x1: d.x1, y1: d.y1 };
        drawOverlay();
        refreshProfile();
      } else {
        setRegion(dragShape(d));
      }
    });

    $('savePng').onclick = () => {
      const t = tab;
      if (!t.frame) return;
      $('image').toBlob((blob) => {
        const a = document.createElement('a');
        a.href = URL.createObjectURL(blob);
        a.download = `${t.film.name.replace(/\.[^.]*$/, '')}-frame${t.frame.n}.png`;
        a.click();
        setTimeout(() => URL.revokeObjectURL(a.href), 10000);
      }, 'image/png');
    };
    $('saveCsv').addEventListener('click', (e) => { if (!tab.region) e.preventDefault(); });
    $('headerBox').addEventListener('toggle', () => { if ($('headerBox').open) requestImageHeader(); });
  }

  // ---- Start ---------------------------------------------------------------------
  async function start() {
    session = await get('/api/session', 'json');
    for (const p of session.palettes)
      palettes.push({ number: p.number, name: p.name, colours: Uint32Array.from(p.entries, ([r, g, b]) => pixel(r, g, b)) });
    const select = $('palette');
    for (const p of palettes) select.add(new Option(`${p.number}  ${p.name}`, p.number));
    for (const film of session.films) {
      const t = newTab(film);
      tabs.push(t);
      const b = document.createElement('button');
      b.type = 'button';
      b.setAttribute('role', 'tab');
      b.dataset.index = film.index;
      b.textContent = film.name;
      b.title = `${film.point} x ${film.line}, ${film.bit} bits, ${film.frames} frames`;
      b.onclick = () => activate(t);
      $('tabs').appendChild(b);
    }
    bind();
    await activate(tabs[0]);
  }

  // What the browser tests read: the frame changes timed in the page, playback
  // counts, the tab shown and the number formatting.
  window.thermokitView = {
    ready: start().then(() => true, (e) => { failed(e); return false; }),
    timings, player, fixed,
    get tab() { return tab; },
  };
})();
