// The viewer's script for reports, notes and the trend chart, served at /report.js: it adds a
// "Report" panel (choose saved images, make a PDF or HTML report, edit an image's note) and a
// "Trend" panel (the hot spot, cold spot, centre spot and the user's points and areas over the last
// minutes, drawn on a canvas by the page itself). Plain JavaScript, nothing fetched from elsewhere.
#include <string_view>

namespace nordacam {

std::string_view reportScript() {
    static constexpr std::string_view script = R"JS((function () {
const el = (tag, html) => { const e = document.createElement(tag); if (html) e.innerHTML = html; return e; };
const call = async (url, options) => {
  const r = await fetch(url, Object.assign({headers: {'Content-Type': 'application/json'}}, options || {}));
  if (!r.ok) { let m = r.statusText; try { m = (await r.json()).error || m; } catch (e) {} throw new Error(m); }
  return r;
};
const say = m => { const box = document.getElementById('msg'); if (box) box.textContent = m; };
const panel = document.getElementById('gallerypanel');
const host = panel ? panel.parentNode : document.body;

// ---- report and notes ----
const rep = el('fieldset', '<legend>Report</legend>' +
  '<div><button id="repall">All</button> <button id="repnone">None</button> <button id="replist">Refresh</button> ' +
  'alarm <input id="repalarm" type="number" step="1" size="5" placeholder="°C"> ' +
  '<select id="repformat"><option value="pdf">PDF</option><option value="html">HTML</option></select> ' +
  '<button id="repmake">Report</button></div><div id="repfiles" style="max-height:120px;overflow:auto"></div>' +
  '<div>Note of <select id="notefile"></select> <button id="notesave">Save note</button></div>' +
  '<textarea id="notetext" rows="3" cols="60" placeholder="no note"></textarea>');
rep.id = 'reportpanel';
rep.className = 'panel';
host.insertBefore(rep, panel ? panel.nextSibling : null);
const $r = id => document.getElementById(id);

async function listImages() {
  try {
    const g = await (await call('/api/gallery')).json();
    const names = g.images.map(i => i.name);
    $r('repfiles').innerHTML = names.map(n => '<label style="margin-right:10px"><input type="checkbox" class="repfile" value="' +
      n + '"> ' + n + '</label>').join(' ');
    const keep = $r('notefile').value;
    $r('notefile').innerHTML = names.map(n => '<option>' + n + '</option>').join('');
    if (names.includes(keep)) $r('notefile').value = keep;
    else if (g.state.shown) $r('notefile').value = g.state.shown;
    loadNote();
  } catch (e) { say('report: ' + e.message); }
}
async function loadNote() {
  const f = $r('notefile').value;
  if (!f) { $r('notetext').value = ''; return; }
  try { $r('notetext').value = (await (await call('/api/gallery/note/' + encodeURIComponent(f))).json()).note; }
  catch (e) { $r('notetext').value = ''; say('note: ' + e.message); }
}
$r('notefile').onchange = loadNote;
$r('notesave').onclick = () => call('/api/gallery/note/' + encodeURIComponent($r('notefile').value),
  {method: 'PUT', body: JSON.stringify({note: $r('notetext').value})}).then(() => say('note saved in ' + $r('notefile').value), e => say(e.message));
$r('repall').onclick = () => document.querySelectorAll('.repfile').forEach(c => c.checked = true);
$r('repnone').onclick = () => document.querySelectorAll('.repfile').forEach(c => c.checked = false);
$r('replist').onclick = listImages;
$r('repmake').onclick = async () => {
  const files = [...document.querySelectorAll('.repfile')].filter(c => c.checked).map(c => c.value);
  if (!files.length) { say('report: choose at least one image'); return; }
  const body = {files: files, format: $r('repformat').value};
  if ($r('repalarm').value !== '') body.alarm = parseFloat($r('repalarm').value);
  say('making the report of ' + files.length + ' images ...');
  try {
    const blob = await (await call('/api/report', {method: 'POST', body: JSON.stringify(body)})).blob();
    const a = el('a');
    a.href = URL.createObjectURL(blob);
    a.download = 'report.' + body.format;
    document.body.appendChild(a); a.click(); a.remove();
    say('report of ' + files.length + ' images made');
  } catch (e) { say('report: ' + e.message); }
};
listImages();

// ---- trend chart ----
const trend = el('fieldset', '<legend>Trend</legend><div>last <select id="trendspan"><option value="60">1</option>' +
  '<option value="300" selected>5</option><option value="900">15</option></select> minutes ' +
  '<button id="trendclear">Clear</button></div><canvas id="trendchart" width="560" height="220"></canvas>');
trend.id = 'trendpanel';
trend.className = 'panel';
host.insertBefore(trend, rep.nextSibling);
const colours = {hot: '#ff6b5a', cold: '#6bb8ff', centre: '#9dff8a', P1: '#ffd36b', P2: '#ff4fd8', P3: '#c0a0ff',
                 P4: '#ffa040', P5: '#60e0e0', A1: '#f0f0f0', A2: '#a0c060', A3: '#d08080'};
let samples = []; // {t, values: {name: [celsius, valid]}}
$r('trendclear').onclick = () => { samples = []; draw(); };

async function sample() {
  try {
    const m = await (await call('/api/measurements')).json();
    const th = await (await call('/api/thermography')).json();
    const values = {};
    for (const s of m.spots) if (s.valid) values[s.name.replace('spot', '').trim()] = [s.celsius, s.mark === 0];
    for (const p of th.points) if (p.visible && p.value && 'celsius' in p.value) values[p.label] = [p.value.celsius, p.value.mark === 0];
    for (const a of th.areas) if (a.visible && a.mean && 'celsius' in a.mean) values[a.label] = [a.mean.celsius, a.mean.mark === 0];
    samples.push({t: Date.now() / 1000, values: values});
    const keep = Date.now() / 1000 - 900;
    while (samples.length && samples[0].t < keep) samples.shift();
    draw();
  } catch (e) { /* the next sample tries again */ }
}

function nice(span, count) {
  const raw = span / count, p = Math.pow(10, Math.floor(Math.log10(raw)));
  for (const m of [1, 2, 5, 10]) if (raw <= m * p) return m * p;
  return 10 * p;
}

function draw() {
  const c = $r('trendchart'), g = c.getContext('2d');
  const W = c.width, H = c.height, L = 46, R = 90, T = 10, B = 28;
  g.fillStyle = '#14161a'; g.fillRect(0, 0, W, H);
  const span = parseFloat($r('trendspan').value), now = Date.now() / 1000, t0 = now - span;
  const shown = samples.filter(s => s.t >= t0);
  let lo = Infinity, hi = -Infinity;
  const names = [];
  for (const s of shown) for (const [n, v] of Object.entries(s.values)) {
    lo = Math.min(lo, v[0]); hi = Math.max(hi, v[0]); if (!names.includes(n)) names.push(n);
  }
  if (!isFinite(lo)) { lo = 0; hi = 50; }
  if (hi - lo < 1) { lo -= 0.5; hi += 0.5; }
  const step = nice(hi - lo, 5); lo = Math.floor(lo / step) * step; hi = Math.ceil(hi / step) * step;
  const X = t => L + (t - t0) / span * (W - L - R), Y = v => H - B - (v - lo) / (hi - lo) * (H - T - B);
  g.font = '11px sans-serif'; g.strokeStyle = '#333'; g.fillStyle = '#bbb'; g.lineWidth = 1;
  for (let v = lo; v <= hi + step / 2; v += step) {
    g.beginPath(); g.moveTo(L, Y(v)); g.lineTo(W - R, Y(v)); g.stroke();
    g.fillText(+v.toFixed(3) + ' °C', 2, Y(v) + 4);
  }
  const ts = nice(span, 6);
  for (let s = 0; s <= span; s += ts) {
    const x = X(now - span + s);
    g.beginPath(); g.moveTo(x, T); g.lineTo(x, H - B); g.stroke();
    g.fillText('-' + Math.round(span - s) + ' s', x - 12, H - B + 14);
  }
  g.strokeStyle = '#777'; g.strokeRect(L, T, W - L - R, H - T - B);
  g.fillText('time (s before now)', L + (W - L - R) / 2 - 50, H - 2);
  names.forEach((n, i) => {
    const colour = colours[n] || '#ccc';
    g.strokeStyle = colour; g.fillStyle = colour; g.lineWidth = 2; g.beginPath();
    let drawing = false;
    for (const s of shown) {
      const v = s.values[n];
      if (!v) { drawing = false; continue; }
      if (drawing) g.lineTo(X(s.t), Y(v[0])); else g.moveTo(X(s.t), Y(v[0]));
      drawing = true;
    }
    g.stroke();
    for (const s of shown) { const v = s.values[n]; if (v && !v[1]) g.fillRect(X(s.t) - 2, Y(v[0]) - 2, 4, 4); }
    g.fillRect(W - R + 8, T + 6 + i * 16, 14, 3);
    g.fillStyle = '#ddd'; g.fillText(n, W - R + 26, T + 10 + i * 16);
  });
}
setInterval(sample, 1000);
sample();
})();
)JS";
    return script;
}

} // namespace nordacam
