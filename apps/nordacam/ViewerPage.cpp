// The live viewer page served at "/": plain HTML and JavaScript, no external resources.
#include <string>

namespace nordacam {

const std::string& viewerPage() {
    static const std::string page = R"HTML(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>nordacam live</title>
<style>
 body { font-family: sans-serif; background: #1b1d22; color: #e8e8e8; margin: 16px; }
 h1 { font-size: 18px; margin: 0 0 10px 0; }
 #wrap { display: flex; gap: 18px; flex-wrap: wrap; }
 #view { position: relative; width: 640px; height: 480px; background: #000; cursor: crosshair; }
 #live, #overlay { position: absolute; left: 0; top: 0; width: 640px; height: 480px; }
 #panel { min-width: 300px; }
 table { border-collapse: collapse; }
 td { padding: 3px 8px; }
 .hot { color: #ff6b5a; } .cold { color: #6bb8ff; } .centre { color: #9dff8a; }
 .laser { color: #ff4fd8; } .marker { color: #ffd36b; }
 fieldset { border: 1px solid #444; margin: 10px 0; }
 button, select, input { background: #2c3038; color: #eee; border: 1px solid #555; padding: 4px 8px; }
 #msg { min-height: 1.4em; color: #ffd36b; }
 .muted { color: #999; font-size: 12px; }
</style>
</head>
<body>
<h1>nordacam &mdash; live thermal image</h1>
<div id="wrap">
 <div id="view"><img id="live" src="/stream.mjpg" alt="live image"><canvas id="overlay" width="640" height="480"></canvas></div>
 <div id="panel">
  <table>
   <tr><td class="hot">Hot spot</td><td id="hot">--</td></tr>
   <tr><td class="cold">Cold spot</td><td id="cold">--</td></tr>
   <tr><td class="centre">Centre</td><td id="centre">--</td></tr>
   <tr><td>Image min / mean / max</td><td id="stats">--</td></tr>
   <tr><td>Range</td><td id="range">--</td></tr>
   <tr><td>State</td><td id="state">--</td></tr>
   <tr><td>Pointer</td><td id="probe">click the image</td></tr>
   <tr><td class="laser">Laser spot</td><td id="laser">--</td></tr>
   <tr><td class="marker">Label emissivity</td><td id="marker">--</td></tr>
  </table>
  <fieldset><legend>Display</legend>
   Palette <select id="palette"></select><br><br>
   Scaling <select id="mode"><option>Auto</option><option>Manual</option><option>AutoSpanHint</option></select>
   <input id="tmin" size="5" value="15"> .. <input id="tmax" size="5" value="40"> &deg;C
   <button id="apply">Apply</button><br><br>
   Visual camera <select id="fusion"><option>Off</option><option>PictureInPicture</option><option>AlphaBlend</option><option>Edges</option></select>
   <button id="useeps">Use label emissivity</button>
  </fieldset>
  <fieldset><legend>Images and recording</legend>
   <button id="save">Save image</button>
   <button id="capture">Download capture</button><br><br>
   <button id="recstart">Record start</button> <input id="recframes" size="5" value="300"> frames
   <button id="recstop">Record stop</button>
   <div id="rec" class="muted"></div>
  </fieldset>
  <div id="msg"></div>
  <div class="muted">Streams: <a href="/stream.mjpg">/stream.mjpg</a>, <a href="/stream.pxm">/stream.pxm</a>,
   API: <a href="/api/status">/api/status</a>, <a href="/api/measurements">/api/measurements</a></div>
 </div>
</div>
<script>
const $ = id => document.getElementById(id);
const ov = $('overlay'), ctx = ov.getContext('2d');
let imgW = 640, imgH = 480, probe = null;
function msg(t) { $('msg').textContent = t; }
async function api(path, opts) {
  const r = await fetch(path, opts);
  const ct = r.headers.get('content-type') || '';
  const body = ct.includes('json') ? await r.json() : await r.text();
  if (!r.ok) throw new Error(body && body.error ? body.error : r.status);
  return body;
}
function fmt(s) { return s && s.valid ? s.celsius.toFixed(1) + ' \u00b0C' + (s.mark ? ' (!)' : '') : '--'; }
function mark(s, colour, label) {
  if (!s || !s.valid) return;
  const x = s.x * ov.width / imgW, y = s.y * ov.height / imgH;
  ctx.strokeStyle = colour; ctx.lineWidth = 2;
  ctx.beginPath(); ctx.moveTo(x - 9, y); ctx.lineTo(x + 9, y); ctx.moveTo(x, y - 9); ctx.lineTo(x, y + 9); ctx.stroke();
  ctx.beginPath(); ctx.arc(x, y, 6, 0, 7); ctx.stroke();
  ctx.fillStyle = colour; ctx.font = '13px sans-serif';
  ctx.fillText(label + ' ' + s.celsius.toFixed(1), x + 10, y - 8);
}
async function refresh() {
  try {
    const m = await api('/api/measurements');
    imgW = m.width || 640; imgH = m.height || 480;
    const by = {}; (m.spots || []).forEach(s => by[s.name] = s);
    $('hot').textContent = fmt(by.hot); $('cold').textContent = fmt(by.cold); $('centre').textContent = fmt(by.centre);
    $('stats').textContent = m.image ? m.image.min.toFixed(1) + ' / ' + m.image.mean.toFixed(1) + ' / ' + m.image.max.toFixed(1) + ' \u00b0C' : '--';
    $('range').textContent = m.range ? m.range.name + ' (' + m.range.bottom + ' .. ' + m.range.top + ' \u00b0C)' : '--';
    $('state').textContent = (m.warmup ? 'warm-up, ' : '') + 'shutter ' + m.shutter + ', ' + (m.fps || 0).toFixed(1) + ' fps';
    $('rec').textContent = m.recording ? 'recording, ' + m.recordingRemaining + ' frames to go' : '';
    ctx.clearRect(0, 0, ov.width, ov.height);
    mark(by.hot, '#ff6b5a', 'H'); mark(by.cold, '#6bb8ff', 'C'); mark(by.centre, '#9dff8a', '+');
    if (probe) { mark(probe, '#ffffff', 'P'); }
    const l = m.laser, k = m.marker, plain = !m.fusion || m.fusion === 'Off' || m.fusion === 'AlphaBlend' || m.fusion === 'Edges';
    $('laser').textContent = l ? (l.visible && l.celsius !== undefined ? l.celsius.toFixed(1) + ' \u00b0C at ' + l.distance.toFixed(2) + ' m' : l.status) : '--';
    $('marker').textContent = k ? (k.valid ? k.emissivity.toFixed(3) : k.status + (k.status === 'Measuring' ? ' ' + k.emissivity.toFixed(3) : '')) : '--';
    if (l && l.visible && l.celsius !== undefined && plain) mark({x: l.x, y: l.y, celsius: l.celsius, valid: true}, '#ff4fd8', 'L');
    if (k && k.rect && k.rect[2] > 0 && plain && k.status !== 'NotFound') {
      const sx = ov.width / imgW, sy = ov.height / imgH;
      ctx.strokeStyle = '#ffd36b'; ctx.lineWidth = 2; ctx.strokeRect(k.rect[0] * sx, k.rect[1] * sy, k.rect[2] * sx, k.rect[3] * sy);
      ctx.fillStyle = '#ffd36b'; ctx.fillText('\u03b5 ' + (k.valid ? k.emissivity.toFixed(2) : k.status), k.rect[0] * sx, k.rect[1] * sy - 4);
    }
  } catch (e) { msg('measurements: ' + e.message); }
}
ov.addEventListener('click', async ev => {
  const r = ov.getBoundingClientRect();
  const x = Math.floor((ev.clientX - r.left) * imgW / r.width), y = Math.floor((ev.clientY - r.top) * imgH / r.height);
  try {
    const t = await api('/api/temperature?x=' + x + '&y=' + y);
    probe = {x: x, y: y, celsius: t.celsius, valid: true};
    $('probe').textContent = t.celsius.toFixed(2) + ' \u00b0C at ' + x + ',' + y + (t.raw !== undefined ? ' (raw ' + t.raw + ')' : '');
  } catch (e) { msg('temperature: ' + e.message); }
});
async function setup() {
  try {
    const p = await api('/api/palettes');
    const s = await api('/api/settings');
    p.palettes.forEach(n => { const o = document.createElement('option'); o.textContent = n; $('palette').appendChild(o); });
    $('palette').value = s['Palette.ActivePalette'];
    $('mode').value = s['Scaling.Mode'];
    if (s['Fusion.Mode']) $('fusion').value = s['Fusion.Mode'];
  } catch (e) { msg('settings: ' + e.message); }
}
$('palette').onchange = () => api('/api/settings', {method: 'POST', body: JSON.stringify({'Palette.ActivePalette': $('palette').value})}).then(() => msg('palette ' + $('palette').value), e => msg(e.message));
$('apply').onclick = () => {
  const body = {'Scaling.Mode': $('mode').value};
  if ($('mode').value === 'Manual') { body['Scaling.TempMin'] = $('tmin').value; body['Scaling.TempMax'] = $('tmax').value; }
  api('/api/settings', {method: 'POST', body: JSON.stringify(body)}).then(() => msg('scaling ' + $('mode').value), e => msg(e.message));
};
$('fusion').onchange = () => api('/api/settings', {method: 'POST', body: JSON.stringify({'Fusion.Mode': $('fusion').value})}).then(() => msg('visual camera: ' + $('fusion').value), e => msg(e.message));
$('useeps').onclick = () => api('/api/settings', {method: 'POST', body: JSON.stringify({'EmissionMarker.Apply': true})}).then(() => msg('label emissivity requested'), e => msg(e.message));
$('save').onclick = () => { msg('saving...'); api('/api/save', {method: 'POST'}).then(r => msg('saved ' + r.file), e => msg(e.message)); };
$('capture').onclick = () => { window.location = '/api/capture'; };
$('recstart').onclick = () => api('/api/record/start', {method: 'POST', body: JSON.stringify({frames: parseInt($('recframes').value) || 0})}).then(r => msg('recording to ' + r.file), e => msg(e.message));
$('recstop').onclick = () => api('/api/record/stop', {method: 'POST'}).then(() => msg('recording stopped'), e => msg(e.message));
setup(); refresh(); setInterval(refresh, 400);
</script>
</body>
</html>
)HTML";
    return page;
}

} // namespace nordacam
