// The live viewer page served at "/": plain HTML and JavaScript, no external resources.
#include <string_view>

namespace nordacam {

std::string_view viewerPage() {
    static constexpr std::string_view page = R"HTML(<!DOCTYPE html>
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
 #panel { min-width: 300px; max-width: 560px; }
 #panel fieldset { margin: 6px 0; }
 table { border-collapse: collapse; }
 td { padding: 3px 8px; }
 .hot { color: #ff6b5a; } .cold { color: #6bb8ff; } .centre { color: #9dff8a; }
 .laser { color: #ff4fd8; } .marker { color: #ffd36b; }
 fieldset { border: 1px solid #444; margin: 10px 0; }
 button, select, input { background: #2c3038; color: #eee; border: 1px solid #555; padding: 4px 8px; }
 #msg { min-height: 1.4em; color: #ffd36b; }
 .muted { color: #999; font-size: 12px; }
 #scale { display: flex; flex-direction: column; align-items: center; width: 70px; font-size: 13px; }
 #scalebar { width: 22px; height: 400px; border: 1px solid #666; margin: 4px 0; }
 .bad { color: #ffb347; }
 .panel input[type=number] { width: 70px; }
 #thumbs { display: flex; flex-wrap: wrap; gap: 6px; max-width: 700px; }
 .thumb { width: 164px; font-size: 12px; cursor: pointer; border: 2px solid transparent; }
 .thumb.shown { border-color: #9dff8a; } .thumb img { width: 160px; height: 120px; background: #333; }
 .thumb .err { color: #ff6b5a; }
 #tools td input { width: 52px; }
</style>
</head>
<body>
<h1>nordacam &mdash; <span id="viewstate">live thermal image</span></h1>
<div id="wrap">
 <div id="view"><img id="live" src="/stream.mjpg" alt="live image"><canvas id="overlay" width="640" height="480"></canvas></div>
 <div id="scale"><span id="scalemax">--</span><canvas id="scalebar" width="22" height="400"></canvas><span id="scalemin">--</span><span id="scalemode" class="muted"></span></div>
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
  <fieldset id="objectpanel" class="panel"><legend>Object parameters</legend>
   Emissivity <input id="emissivity" type="number" step="0.01">
   <select id="material"></select> <button id="useMaterial">Use material</button> <span id="matname" class="muted"></span><br>
   Reflected <input id="reflected" type="number" step="0.5"> &deg;C<br>
   Air <input id="air" type="number" step="0.5"> &deg;C
   Humidity <input id="rh" type="number" step="1" min="0" max="100"> %<br>
   <label><input id="aircorr" type="checkbox"> Air correction</label>
   distance <input id="distance" type="number" step="0.5"> m
   <label><input id="laserdist" type="checkbox"> from the laser</label><br>
   <label><input id="glass" type="checkbox"> Protective glass</label>
   transmission <input id="glasstau" type="number" step="0.01"> emissivity <input id="glasseps" type="number" step="0.01">
   reflectance <input id="glassrho" type="number" step="0.01"><br>
   <label><input id="glassown" type="checkbox"> window at</label> <input id="glasst" type="number" step="0.5"> &deg;C
   <button id="applyObject">Apply</button>
  </fieldset>
  <fieldset id="rangepanel" class="panel"><legend>Range and humidity</legend>
   Range <select id="range_sel"></select> <label><input id="autorange" type="checkbox"> automatic</label><br>
   <label><input id="humid" type="checkbox"> Humidity mode</label> <span id="dew" class="muted"></span>
  </fieldset>
  <fieldset id="colourpanel" class="panel"><legend>Isotherm and alarms</legend>
   <label><input id="iso" type="checkbox"> Isotherm</label> <input id="isolo" type="number" step="0.5"> .. <input id="isohi" type="number" step="0.5"> <input id="isocol" type="color" value="#00ff00"><br>
   <label><input id="alarmhi" type="checkbox"> Alarm above</label> <input id="alarmhival" type="number" step="0.5"> <input id="alarmhicol" type="color" value="#ff0000"><br>
   <label><input id="alarmlo" type="checkbox"> Alarm below</label> <input id="alarmloval" type="number" step="0.5"> <input id="alarmlocol" type="color" value="#0000ff">
   <button id="applyColours">Apply</button>
  </fieldset>
  <div id="msg"></div>
 </div>
</div>
<div id="wrap2" style="display:flex; gap:18px; flex-wrap:wrap; margin-top:12px">
 <fieldset id="toolpanel" class="panel"><legend>Measurement tools</legend>
  Click on the image: <select id="toolmode"><option value="probe">probe</option><option value="point">add point</option><option value="area">add area (drag)</option><option value="delta">delta-T points</option></select>
  <label><input id="deltaon" type="checkbox"> delta-T</label> <select id="deltafirst"></select> &minus; <select id="deltasecond"></select> = <b id="deltaval">--</b>
  <table id="tools"></table>
 </fieldset>
 <fieldset id="gallerypanel" class="panel"><legend>Gallery</legend>
  <div><span id="galstate">live image</span> <button id="galclose">Back to live</button> <button id="galrefresh">Refresh</button></div>
  <div id="reanalysis">Re-analyse: emissivity <input id="reE" type="number" step="0.01"> reflected <input id="reTr" type="number" step="0.5"> &deg;C distance <input id="reD" type="number" step="0.5" min="0" title="0: as taken"> m air <input id="reAir" type="number" step="0.5"> &deg;C <input id="reRH" type="number" step="1" min="0" max="100"> %
   <button id="reanalyse">Re-analyse</button> <input id="saveas" placeholder="new file (empty: next number)" size="22"> <label><input id="overwrite" type="checkbox"> overwrite</label> <button id="savecopy">Save as</button></div>
  <div id="thumbs"></div>
 </fieldset>
  <div class="muted">Streams: <a href="/stream.mjpg">/stream.mjpg</a>, <a href="/stream.pxm">/stream.pxm</a>,
   API: <a href="/api/status">/api/status</a>, <a href="/api/measurements">/api/measurements</a></div>
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
// Infrared pixel -> overlay canvas; in picture in picture the infrared image sits inside the display.
let placement = null;
function place(px, py) {
  if (placement) {
    const [l, t, r, b] = placement;
    px = l + px * (r - l) / (imgW - 1); py = t + py * (b - t) / (imgH - 1);
  }
  return [px * ov.width / imgW, py * ov.height / imgH];
}
function mark(s, colour, label) {
  if (!s || !s.valid) return;
  const [x, y] = place(s.x, s.y);
  ctx.strokeStyle = colour; ctx.lineWidth = 2;
  ctx.beginPath(); ctx.moveTo(x - 9, y); ctx.lineTo(x + 9, y); ctx.moveTo(x, y - 9); ctx.lineTo(x, y + 9); ctx.stroke();
  ctx.beginPath(); ctx.arc(x, y, 6, 0, 7); ctx.stroke();
  ctx.fillStyle = colour; ctx.font = '13px sans-serif';
  ctx.fillText(label + ' ' + s.celsius.toFixed(1), x + 10, y - 8);
}
async function refresh() {
  try {
    const m = await api('/api/measurements');
    imgW = m.width || 640; imgH = m.height || 480; placement = m.placement || null;
    if (m.fusion && document.activeElement !== $('fusion')) $('fusion').value = m.fusion;
    const by = {}; (m.spots || []).forEach(s => by[s.name] = s);
    $('hot').textContent = fmt(by.hot); $('cold').textContent = fmt(by.cold); $('centre').textContent = fmt(by.centre);
    $('stats').textContent = m.image ? m.image.min.toFixed(1) + ' / ' + m.image.mean.toFixed(1) + ' / ' + m.image.max.toFixed(1) + ' \u00b0C' : '--';
    $('range').textContent = m.range ? m.range.name + ' (' + m.range.bottom + ' .. ' + m.range.top + ' \u00b0C)' : '--';
    $('state').textContent = (m.warmup ? 'warm-up, ' : '') + 'shutter ' + m.shutter + ', ' + (m.fps || 0).toFixed(1) + ' fps';
    $('rec').textContent = m.recording ? 'recording, ' + m.recordingRemaining + ' frames to go' : '';
    ctx.clearRect(0, 0, ov.width, ov.height);
    mark(by.hot, '#ff6b5a', 'H'); mark(by.cold, '#6bb8ff', 'C'); mark(by.centre, '#9dff8a', '+');
    if (probe) { mark(probe, '#ffffff', 'P'); }
    drawTools();
    const l = m.laser, k = m.marker;
    $('laser').textContent = l ? (l.visible && l.celsius !== undefined ? l.celsius.toFixed(1) + ' \u00b0C at ' + l.distance.toFixed(2) + ' m' : l.status) : '--';
    $('marker').textContent = k ? (k.valid ? k.emissivity.toFixed(3) : k.status + (k.status === 'Measuring' ? ' ' + k.emissivity.toFixed(3) : '')) : '--';
    if (l && l.visible && l.celsius !== undefined) mark({x: l.x, y: l.y, celsius: l.celsius, valid: true}, '#ff4fd8', 'L');
    if (k && k.rect && k.rect[2] > 0 && k.status !== 'NotFound') {
      const [x0, y0] = place(k.rect[0], k.rect[1]), [x1, y1] = place(k.rect[0] + k.rect[2], k.rect[1] + k.rect[3]);
      ctx.strokeStyle = '#ffd36b'; ctx.lineWidth = 2; ctx.strokeRect(x0, y0, x1 - x0, y1 - y0);
      ctx.fillStyle = '#ffd36b'; ctx.fillText('\u03b5 ' + (k.valid ? k.emissivity.toFixed(2) : k.status), x0, y0 - 4);
    }
  } catch (e) { msg('measurements: ' + e.message); }
}
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
// ---- colour scale ----
async function refreshScale() {
  try {
    const sc = await api('/api/scale');
    const c = $('scalebar').getContext('2d'), n = sc.colors.length, h = $('scalebar').height;
    for (let i = 0; i < h; i++) { c.fillStyle = sc.colors[Math.round((n - 1) * (1 - i / (h - 1)))]; c.fillRect(0, i, 22, 1); }
    const f = v => v ? v.celsius.toFixed(1) + ' \u00b0C' : '--';
    $('scalemax').textContent = f(sc.max); $('scalemin').textContent = f(sc.min);
    $('scalemax').className = sc.max && sc.max.mark ? 'bad' : ''; $('scalemin').className = sc.min && sc.min.mark ? 'bad' : '';
    $('scalemode').textContent = sc.mode + ', ' + sc.palette;
  } catch (e) { msg('scale: ' + e.message); }
}
// ---- settings helpers ----
function post(body, what) {
  return api('/api/settings', {method: 'POST', body: JSON.stringify(body)}).then(() => { msg(what + ' applied'); refreshTools(); }, e => msg(e.message));
}
function hex(n) { return '#' + ('000000' + (n >>> 0).toString(16)).slice(-6); }
function num(h) { return parseInt(h.slice(1), 16); }
// The key schema: the inputs take their ranges from it, delta-T its choice of results.
const keySchema = api('/api/keys');
async function setupRanges() {
  const keys = {};
  (await keySchema).keys.forEach(k => { keys[k.name] = k; });
  [['emissivity', 'Environment.EmissivityValue'], ['reflected', 'Environment.ReflectedTemperature'],
   ['air', 'Environment.Temperature'], ['distance', 'Environment.Distance'],
   ['glassrho', 'ProtectiveGlass.Reflectance'], ['glasst', 'ProtectiveGlass.Temperature'],
   ['glasstau', 'ProtectiveGlass.Transmission'],
   ['glasseps', 'ProtectiveGlass.Emissivity'], ['reE', 'Gallery.Reanalysis.Emissivity'],
   ['reTr', 'Gallery.Reanalysis.ReflectedTemperature'], ['reAir', 'Gallery.Reanalysis.AirTemperature']].forEach(([id, key]) => {
    const r = keys[key] && keys[key].range;
    if (!r) return;
    const step = parseFloat($(id).step) || 0;
    $(id).min = r.lowOpen ? r.low + step : r.low;
    $(id).max = r.high;
  });
}
async function setupMaterials() {
  const list = (await api('/api/materials')).materials;
  $('material').replaceChildren(...list.map(m => { const o = document.createElement('option'); o.textContent = m.name; o.title = m.source; return o; }));
}
$('useMaterial').onclick = () => api('/api/material', {method: 'POST', body: JSON.stringify({name: $('material').value})})
  .then(r => { $('emissivity').value = r.emissivity; $('matname').textContent = r.material; msg(r.material + ': emissivity ' + r.emissivity + ' (' + r.source + ')'); }, e => msg(e.message));
async function setupPanels() {
  setupMaterials().catch(e => msg('materials: ' + e.message));
  setupRanges().catch(e => msg(e.message));
  try {
    const s = await api('/api/settings');
    $('emissivity').value = s['Environment.EmissivityValue'];
    $('matname').textContent = s['Environment.Material'];
    $('reflected').value = parseFloat(s['Environment.ReflectedTemperature']);
    $('air').value = parseFloat(s['Environment.Temperature']);
    $('rh').value = Math.round(parseFloat(s['Environment.Humidity']) * 100);
    $('glass').checked = s['ProtectiveGlass.Attached'];
    $('glasstau').value = s['ProtectiveGlass.Transmission']; $('glasseps').value = s['ProtectiveGlass.Emissivity'];
    $('glassrho').value = s['ProtectiveGlass.Reflectance']; $('glassown').checked = s['ProtectiveGlass.OwnTemperature'];
    $('glasst').value = parseFloat(s['ProtectiveGlass.Temperature']);
    $('aircorr').checked = s['Environment.AirCorrection']; $('distance').value = s['Environment.Distance'];
    $('laserdist').checked = s['Environment.DistanceFromLaser'];
    $('humid').checked = s['Environment.HumidityModeActive'];
    $('iso').checked = s['Isotherme.IsothermeActive']; $('isolo').value = parseFloat(s['Isotherme.IsothermeBottomValue']);
    $('isohi').value = parseFloat(s['Isotherme.IsothermeTopValue']); $('isocol').value = hex(s['Isotherme.IsothermeColor']);
    $('alarmhi').checked = s['Alarm.AlarmTopActive']; $('alarmhival').value = parseFloat(s['Alarm.AlarmTopValue']); $('alarmhicol').value = hex(s['Alarm.AlarmTopColor']);
    $('alarmlo').checked = s['Alarm.AlarmBottomActive']; $('alarmloval').value = parseFloat(s['Alarm.AlarmBottomValue']); $('alarmlocol').value = hex(s['Alarm.AlarmBottomColor']);
    $('autorange').checked = s['MeasRangeSettings.EnableAutoRange'];
  } catch (e) { msg('settings: ' + e.message); }
}
$('applyObject').onclick = () => post({'Environment.EmissivityValue': parseFloat($('emissivity').value),
  'Environment.ReflectedTemperature': $('reflected').value, 'Environment.Temperature': $('air').value,
  'Environment.Humidity': $('rh').value + '%', 'ProtectiveGlass.Attached': $('glass').checked,
  'ProtectiveGlass.Transmission': parseFloat($('glasstau').value), 'ProtectiveGlass.Emissivity': parseFloat($('glasseps').value),
  'ProtectiveGlass.Reflectance': parseFloat($('glassrho').value), 'ProtectiveGlass.OwnTemperature': $('glassown').checked,
  'ProtectiveGlass.Temperature': $('glasst').value, 'Environment.AirCorrection': $('aircorr').checked,
  'Environment.Distance': parseFloat($('distance').value), 'Environment.DistanceFromLaser': $('laserdist').checked}, 'object parameters');
$('applyColours').onclick = () => post({'Isotherme.IsothermeActive': $('iso').checked, 'Isotherme.IsothermeBottomValue': $('isolo').value,
  'Isotherme.IsothermeTopValue': $('isohi').value, 'Isotherme.IsothermeColor': num($('isocol').value),
  'Alarm.AlarmTopActive': $('alarmhi').checked, 'Alarm.AlarmTopValue': $('alarmhival').value, 'Alarm.AlarmTopColor': num($('alarmhicol').value),
  'Alarm.AlarmBottomActive': $('alarmlo').checked, 'Alarm.AlarmBottomValue': $('alarmloval').value, 'Alarm.AlarmBottomColor': num($('alarmlocol').value)}, 'isotherm and alarms');
$('humid').onchange = () => post({'Environment.HumidityModeActive': $('humid').checked}, 'humidity mode');
$('autorange').onchange = () => post({'MeasRangeSettings.EnableAutoRange': $('autorange').checked}, 'automatic range');
$('range_sel').onchange = () => post({'MeasRangeSettings.EnableAutoRange': false, 'ActiveMeasRange.Name': parseInt($('range_sel').value)}, 'range');
// ---- measurement tools: points by clicking, areas by dragging, delta-T ----
let thermo = null, drag = null;
function fmtValue(v) { if (!v) return '--'; const t = v.percent !== undefined ? v.percent.toFixed(0) + ' %' : v.celsius.toFixed(1) + ' \u00b0C';
  return v.mark === 3 ? '<' + t : v.mark === 5 ? '>' + t : v.mark ? '(' + t + ')' : t; }
function localText(l) { return l.on ? ' [e ' + l.emissivity.toFixed(2) + ', Tr ' + l.reflected.toFixed(1) + ' \u00b0C]' : ''; }
function toCanvas(x, y) { return place(x, y); }
function drawTools() {
  if (!thermo) return;
  ctx.font = '13px sans-serif'; ctx.lineWidth = 2;
  thermo.points.filter(p => p.visible).forEach(p => {
    const [x, y] = toCanvas(p.x, p.y); ctx.strokeStyle = ctx.fillStyle = '#7fffff';
    ctx.beginPath(); ctx.moveTo(x - 8, y); ctx.lineTo(x + 8, y); ctx.moveTo(x, y - 8); ctx.lineTo(x, y + 8); ctx.stroke();
    ctx.fillText(p.label + ' ' + fmtValue(p.value) + localText(p.local), x + 9, y - 6); });
  thermo.areas.filter(a => a.visible).forEach(a => {
    const [x, y] = toCanvas(a.rect.x, a.rect.y), [x2, y2] = toCanvas(a.rect.x + a.rect.width, a.rect.y + a.rect.height);
    ctx.strokeStyle = ctx.fillStyle = '#ffff7f'; ctx.strokeRect(x, y, x2 - x, y2 - y);
    ctx.fillText(a.label + ' avg ' + fmtValue(a.mean) + localText(a.local), x + 3, y + 14); });
  if (thermo.deltaT.active) thermo.deltaT.points.forEach(p => { const [x, y] = toCanvas(p.x, p.y);
    ctx.strokeStyle = ctx.fillStyle = '#ff80ff'; ctx.strokeRect(x - 5, y - 5, 10, 10); ctx.fillText(p.name.replace('DeltaT', 'D'), x + 7, y - 6); });
  if (drag) { ctx.strokeStyle = '#ffffff'; ctx.setLineDash([4, 3]); ctx.strokeRect(drag.x0, drag.y0, drag.x1 - drag.x0, drag.y1 - drag.y0); ctx.setLineDash([]); }
}
function toolRow(kind, o) {
  const key = (kind === 'point' ? 'MeasPoints.' : 'MeasAreas.') + o.name;
  const val = kind === 'point' ? fmtValue(o.value) + ' at ' + o.x + ',' + o.y : 'avg ' + fmtValue(o.mean) + ' max ' + fmtValue(o.hot) + ' min ' + fmtValue(o.cold);
  return '<tr data-key="' + key + '"><td>' + o.label + '</td><td class="' + ((o.value || o.mean || {}).mark ? 'bad' : '') + '">' + val + '</td>' +
    '<td><label><input type="checkbox" class="lp"' + (o.local.on ? ' checked' : '') + '> own</label> e <input class="le" type="number" step="0.01" value="' + o.local.emissivity + '">' +
    ' Tr <input class="lr" type="number" step="0.5" value="' + o.local.reflected + '">' +
    ' d <input class="ld" type="number" step="0.5" value="' + o.local.distance + '"> m' + (o.local.material ? ' <span class="muted">' + o.local.material.replace(/</g, '&lt;') + '</span>' : '') + '</td><td><button class="lset">Set</button> <button class="lmat" title="the material chosen under object parameters">Material</button> <button class="ldel">Remove</button></td></tr>';
}
async function refreshTools() {
  try {
    thermo = await api('/api/thermography');
    const rows = thermo.points.filter(p => p.visible).map(p => toolRow('point', p)).concat(thermo.areas.filter(a => a.visible).map(a => toolRow('area', a)));
    $('tools').innerHTML = rows.join('') || '<tr><td class="muted">no points or areas</td></tr>';
    const d = thermo.deltaT;
    $('deltaval').textContent = d.active && d.difference !== null ? d.difference.toFixed(d.unit === 'K' ? 2 : 1) + ' ' + (d.unit === 'K' ? 'K' : 'percentage points RH') : '--';
    $('deltaon').checked = thermo.deltaT.active;
    $('dew').textContent = 'dew point ' + thermo.humidity.dewPoint.toFixed(1) + ' \u00b0C at ' + thermo.humidity.air.toFixed(1) + ' \u00b0C, ' + thermo.humidity.relative.toFixed(0) + ' %';
    if (!$('range_sel').options.length) thermo.ranges.forEach(r => { const o = document.createElement('option'); o.value = r.name; o.textContent = r.name + ' (' + r.bottom + ' .. ' + r.top + ' \u00b0C)'; $('range_sel').appendChild(o); });
    $('range_sel').value = thermo.activeRange;
    const results = (await keySchema).deltaTResults;
    if (!$('deltafirst').options.length) ['deltafirst', 'deltasecond'].forEach(id => results.forEach(n => {
      const o = document.createElement('option'); o.textContent = n; $(id).appendChild(o); }));
    $('deltafirst').value = thermo.deltaT.first; $('deltasecond').value = thermo.deltaT.second;
    document.querySelectorAll('#tools tr[data-key]').forEach(tr => {
      const key = tr.dataset.key;
      tr.querySelector('.lset').onclick = () => post({[key + '.LocalParameters']: tr.querySelector('.lp').checked,
        [key + '.Emissivity']: parseFloat(tr.querySelector('.le').value), [key + '.ReflectedTemperature']: tr.querySelector('.lr').value,
        [key + '.Distance']: parseFloat(tr.querySelector('.ld').value)}, 'local parameters');
      tr.querySelector('.ldel').onclick = () => post({[key + '.Visible']: false}, 'removal');
      tr.querySelector('.lmat').onclick = () => api('/api/material', {method: 'POST', body: JSON.stringify({name: $('material').value, mark: key.split('.')[1]})})
        .then(r => msg(key + ': ' + r.material + ', emissivity ' + r.emissivity), e => msg(e.message));
    });
  } catch (e) { msg('tools: ' + e.message); }
}
const deltaChange = () => post({'DeltaT.Active': $('deltaon').checked, 'DeltaT.First': $('deltafirst').value, 'DeltaT.Second': $('deltasecond').value}, 'delta-T');
$('deltaon').onchange = deltaChange; $('deltafirst').onchange = deltaChange; $('deltasecond').onchange = deltaChange;
function imagePos(ev) { const r = ov.getBoundingClientRect();
  let x = (ev.clientX - r.left) * imgW / r.width, y = (ev.clientY - r.top) * imgH / r.height;
  if (placement) { const [l, t, rr, b] = placement; x = (x - l) * (imgW - 1) / (rr - l); y = (y - t) * (imgH - 1) / (b - t); }
  return {cx: ev.clientX - r.left, cy: ev.clientY - r.top, x: Math.min(imgW - 1, Math.max(0, Math.floor(x))), y: Math.min(imgH - 1, Math.max(0, Math.floor(y)))}; }
let deltaNext = 1;
ov.addEventListener('mousedown', ev => { if ($('toolmode').value === 'area') { const p = imagePos(ev); drag = {x0: p.cx, y0: p.cy, x1: p.cx, y1: p.cy, ix: p.x, iy: p.y}; } });
ov.addEventListener('mousemove', ev => { if (drag) { const p = imagePos(ev); drag.x1 = p.cx; drag.y1 = p.cy; } });
ov.addEventListener('mouseup', async ev => {
  const p = imagePos(ev), mode = $('toolmode').value;
  if (mode === 'area' && drag) {
    const x = Math.min(drag.ix, p.x), y = Math.min(drag.iy, p.y), w = Math.abs(p.x - drag.ix), h = Math.abs(p.y - drag.iy); drag = null;
    if (w < 2 || h < 2) { msg('drag to draw an area'); return; }
    const free = thermo.areas.find(a => !a.visible) || thermo.areas[0];
    post({['MeasAreas.' + free.name + '.Rect']: x + ',' + y + ',' + w + ',' + h, ['MeasAreas.' + free.name + '.Visible']: true}, free.label);
  } else if (mode === 'point') {
    const free = thermo.points.find(q => !q.visible) || thermo.points[0];
    post({['MeasPoints.' + free.name + '.Position']: p.x + ',' + p.y, ['MeasPoints.' + free.name + '.Visible']: true}, free.label);
  } else if (mode === 'delta') {
    const name = 'DeltaT' + deltaNext; deltaNext = 3 - deltaNext;
    post({['MeasPoints.' + name + '.Position']: p.x + ',' + p.y, 'DeltaT.Active': true}, name);
  } else {
    try { const t = await api('/api/temperature?x=' + p.x + '&y=' + p.y);
      probe = {x: p.x, y: p.y, celsius: t.celsius, valid: true};
      $('probe').textContent = t.celsius.toFixed(2) + ' \u00b0C at ' + p.x + ',' + p.y + (t.raw !== undefined ? ' (raw ' + t.raw + ')' : '');
    } catch (e) { msg('temperature: ' + e.message); }
  }
});
// ---- gallery ----
async function refreshGallery() {
  try {
    const g = await api('/api/gallery');
    $('galstate').textContent = g.state.shown ? 'showing ' + g.state.shown + (g.state.reanalysed ? ' (re-analysed: e ' + g.state.emissivity.toFixed(2) + ', Tr ' + g.state.reflected.toFixed(1) + ' \u00b0C)' : '') : 'live image';
    $('reanalysis').style.display = g.state.shown ? '' : 'none';
    $('viewstate').textContent = g.state.shown ? 'saved image ' + g.state.shown + (g.state.reanalysed ? ', re-analysed' : '') : 'live thermal image';
    if (g.state.shown && document.activeElement !== $('reE')) { $('reE').value = g.state.emissivity.toFixed(2); $('reTr').value = g.state.reflected.toFixed(1);
      $('reD').value = g.state.distance; $('reAir').value = g.state.air.toFixed(1); $('reRH').value = Math.round(g.state.humidity); }
    $('thumbs').innerHTML = g.images.map(i => '<div class="thumb' + (i.name === g.state.shown ? ' shown' : '') + '" data-name="' + i.name + '">' +
      (i.error ? '<div class="err">' + i.error.replace(/</g, '&lt;') + '</div>' : '<img src="/api/gallery/thumb/' + i.name + '" alt="' + i.name + '">') +
      '<div>' + i.name + (i.taken ? ' ' + i.taken : '') + (i.material ? ' ' + i.material.replace(/</g, '&lt;') : '') + '</div></div>').join('');
    document.querySelectorAll('.thumb').forEach(t => t.onclick = () => api('/api/gallery/open', {method: 'POST', body: JSON.stringify({file: t.dataset.name})})
      .then(() => { msg('opened ' + t.dataset.name); refreshGallery(); refreshTools(); }, e => msg(e.message)));
  } catch (e) { msg('gallery: ' + e.message); }
}
$('galrefresh').onclick = refreshGallery;
$('galclose').onclick = () => api('/api/gallery/close', {method: 'POST'}).then(() => { msg('live image'); refreshGallery(); }, e => msg(e.message));
$('reanalyse').onclick = () => api('/api/gallery/reanalyse', {method: 'POST', body: JSON.stringify({emissivity: parseFloat($('reE').value), reflected: parseFloat($('reTr').value), distance: parseFloat($('reD').value) || 0, air: parseFloat($('reAir').value), humidity: parseFloat($('reRH').value)})})
  .then(() => { msg('re-analysed'); refreshGallery(); }, e => msg(e.message));
$('savecopy').onclick = () => api('/api/gallery/save', {method: 'POST', body: JSON.stringify({file: $('saveas').value, overwrite: $('overwrite').checked})})
  .then(r => { msg('saved ' + r.file); refreshGallery(); }, e => msg(e.message));
setup(); setupPanels(); refresh(); refreshScale(); refreshTools(); refreshGallery();
setInterval(refresh, 400); setInterval(refreshScale, 1000); setInterval(refreshTools, 700);
</script>
<script src="/report.js"></script>
</body>
</html>
)HTML";
    return page;
}

} // namespace nordacam
