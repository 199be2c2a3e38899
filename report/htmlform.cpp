#include "report/htmlform.h"

#include "report/jsonform.h"

namespace {

constexpr const char* head = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>VEX report</title>
<style>
body { font: 15px/1.45 system-ui, sans-serif; margin: 1.5em auto; max-width: 75em; padding: 0 1em; color: #1a1c20; background: #fff; }
h1 { font-size: 1.5em; margin: 0 0 .4em; }
h2 { font-size: 1.1em; margin: 1.6em 0 .4em; }
pre, .mono { font: 13px/1.4 ui-monospace, monospace; }
pre { margin: .3em 0; white-space: pre-wrap; overflow-wrap: anywhere; }
.culprit { border-left: 4px solid #c62828; padding: .1em .6em; margin: .2em 0; }
.who { color: #5a6270; }
#grid { display: grid; grid-template-columns: repeat(auto-fill, minmax(2.9em, 1fr)); gap: 3px; }
#grid.many { grid-template-columns: repeat(auto-fill, 10px); gap: 2px; }
#grid button { border: 2px solid transparent; border-radius: 3px; padding: .25em 0; color: #fff; font: inherit; font-size: 13px; cursor: pointer; }
#grid.many button { height: 10px; padding: 0; }
#grid button[aria-pressed=true], #grid button:focus-visible { border-color: #1a1c20; outline: 2px solid #fff; outline-offset: -4px; }
#legend div { margin: .15em 0; }
.swatch { display: inline-block; width: .9em; height: .9em; border-radius: 2px; margin-right: .5em; vertical-align: -.1em; }
#tree details { margin-left: 1.2em; }
#tree .leaf { margin-left: 2.35em; }
#rank { background: #f4f5f7; border-radius: 4px; padding: .6em 1em; margin-top: .8em; }
#rank h3 { font-size: 1em; margin: .6em 0 .1em; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .1em 1em; margin: 0; }
dt { color: #5a6270; } dd { margin: 0; overflow-wrap: anywhere; }
</style>
</head>
<body>
<h1 id="headline"></h1>
<div id="culprits"></div>
<h2>Ranks by place</h2>
<div id="legend"></div>
<div id="grid"></div>
<div id="rank" aria-live="polite">Choose a rank to see its stack and its output.</div>
<h2>All stacks</h2>
<div id="tree" class="mono"></div>
<div id="more"></div>
<h2>This report</h2>
<dl id="facts"></dl>
<noscript>This page needs JavaScript; vex --report FILE.txt writes the same as a text.</noscript>
<script type="application/json" id="report">
)";

constexpr const char* tail = R"js(</script>
<script>
'use strict';
const report = JSON.parse(document.getElementById('report').textContent);
const at = id => document.getElementById(id);
const has = (runs, id) => runs.some(([first, last]) => first <= id && id <= last);
const ids = runs => runs.map(([first, last]) => first === last ? `${first}` : `${first}:${last}`).join(' ');
function put(parent, tag, text, name) {
  const element = parent.appendChild(document.createElement(tag));
  if (text !== undefined) element.textContent = text;
  if (name) element.className = name;
  return element;
}
function labelled(parent, runs, text, name) {
  const line = put(parent, 'div', undefined, name);
  if (runs.length) put(line, 'span', ids(runs) + ' | ', 'who');
  put(line, 'span', text);
  return line;
}

document.title = report.headline + ' - VEX report';
at('headline').textContent = report.headline;
for (const row of report.culprits) labelled(at('culprits'), row.clients, row.text, 'culprit');

// Kinds of ranks: what went wrong, then the places with few ranks first, then what is left.
const palette = ['#1565c0', '#2e7d32', '#6a1b9a', '#00695c', '#9e6a03', '#ad1457', '#37474f', '#4e342e', '#283593'];
const wrong = ['#c62828', '#e64a19', '#880e4f', '#bf360c'];
const kinds = [];
report.crashes.forEach((crash, i) => kinds.push({
  clients: crash.clients, color: wrong[i % wrong.length],
  text: `${crash.signal || crash.meaning || 'MPI_Abort'} in ${crash.place}` }));
report.ended.forEach((end, i) => kinds.push({
  clients: end.clients, color: wrong[(i + report.crashes.length) % wrong.length],
  text: end.signal ? `ended by ${end.signal}` : `ended with status ${end.status}` }));
report.places.forEach((place, i) => kinds.push({
  clients: place.clients, color: palette[i % palette.length], text: place.text }));
const ended = { clients: [], color: '#8a929e', text: 'ended, or not looked at' };
const all = [...new Set([...report.who, ...report.stacks, ...report.output, ...kinds]
  .flatMap(each => each.clients).flatMap(([first, last]) =>
    Array.from({ length: last - first + 1 }, (_, i) => first + i)))].sort((a, b) => a - b);
const known = new Set(all);
for (let i = 0; all.length < report.tasks; ++i) if (!known.has(i)) all.push(i);

const kindOf = id => kinds.find(kind => has(kind.clients, id)) || ended;
const grid = at('grid');
if (all.length > 1024) grid.className = 'many';
const shown = new Map();
for (const id of all) {
  const kind = kindOf(id);
  shown.set(kind, (shown.get(kind) || 0) + 1);
  const cell = put(grid, 'button', all.length > 1024 ? '' : id);
  cell.type = 'button';
  cell.dataset.rank = id;
  cell.style.background = kind.color;
  cell.title = `${id}: ${kind.text}`;
  cell.setAttribute('aria-label', cell.title);
}
for (const kind of [...kinds, ended]) {
  if (!shown.has(kind)) continue;
  const line = put(at('legend'), 'div');
  put(line, 'span', undefined, 'swatch').style.background = kind.color;
  if (kind.clients.length) put(line, 'span', ids(kind.clients) + ' | ', 'who');
  put(line, 'span', kind.text);
}

// The calls of a rank in the tree, and what was asked of it alone.
function choose(id) {
  for (const cell of grid.children)
    cell.setAttribute('aria-pressed', cell.dataset.rank === String(id));
  const box = at('rank');
  box.textContent = '';
  put(box, 'strong', `Rank ${id}: ${kindOf(id).text}`);
  const section = (title, lines) => {
    if (!lines.length) return;
    put(box, 'h3', title);
    put(box, 'pre', lines.join('\n'));
  };
  const of = parts => parts.filter(part => has(part.clients, id)).flatMap(part => part.lines);
  const texts = rows => rows.filter(row => has(row.clients, id)).map(row => row.text);
  section('Process', texts(report.who));
  for (const crash of report.crashes)
    if (has(crash.clients, id))
      section(`${crash.signal} ${crash.meaning}${crash.address ? ', address ' + crash.address : ''}`, of(crash.stacks));
  section('Calls', report.tree.filter(call => has(call.clients, id))
    .map(call => '  '.repeat(call.depth) + call.call));
  section('Stack', of(report.stacks));
  section('Last output', of(report.output));
}
grid.addEventListener('click', event => {
  const id = event.target.dataset.rank;
  if (id !== undefined) choose(Number(id));
});

// A call that calls others folds them.
const open = [at('tree')];
report.tree.forEach((call, i) => {
  open.length = call.depth + 1;
  const parent = open[call.depth] || at('tree');
  const next = report.tree[i + 1];
  if (next && next.depth > call.depth) {
    const details = put(parent, 'details');
    details.open = true;
    const line = put(details, 'summary');
    put(line, 'span', ids(call.clients) + ' | ', 'who');
    put(line, 'span', call.call);
    open.push(details);
  } else {
    labelled(parent, call.clients, call.call, 'leaf');
  }
});
for (const row of report.helpers) labelled(at('tree'), row.clients, row.text, 'leaf');

function list(title, rows) {
  if (!rows.length) return;
  put(at('more'), 'h2', title);
  for (const row of rows) labelled(at('more'), row.clients, row.text, 'mono');
}
list('Which ranks are missing', report.missing.map(row => ({ clients: row.ranks, text: row.text })));
list('Who waits for whom', report.waits);
if (report.launcher.length) {
  put(at('more'), 'h2', 'What the launcher said');
  put(at('more'), 'pre', report.launcher.join('\n'));
}
list('What could not be found out', report.notes);
const fact = (name, value) => {
  if (!value) return;
  put(at('facts'), 'dt', name);
  put(at('facts'), 'dd', value);
};
for (const name of ['command', 'tasks', 'started', 'looked', 'written', 'vex', 'debugger'])
  fact(name, report[name]);
fact('launcher', report.launchedBy);
for (const row of report.mpi)
  fact('mpi', (report.mpi.length > 1 ? ids(row.clients) + ' | ' : '') + row.text);
fact('system', report.system);
</script>
</body>
</html>
)js";

} // namespace

// What tasks say must not end the script that holds it.
std::string HtmlForm::of(const Report& report) {
    std::string page = head;
    for (const char c : JsonForm::of(report))
        page += c == '<' ? "\\u003c" : std::string(1, c);
    return page + tail;
}
