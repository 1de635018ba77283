// The part of the run that all plots show: where it opens, the drag of a mouse, the buttons, and a line that tells it.

const graphs = [];
let shown = null; // null: the whole run

function zoom(range) {
  const [first, last] = wholeRun, least = Math.max(4 * data.tick, (last - first) * 1e-4);
  if (range) {
    const width = Math.max(range[1] - range[0], least);
    const start = Math.min(Math.max(range[0], first), Math.max(first, last - width));
    range = [start, Math.min(last, start + width)];
  }
  shown = range && range[1] - range[0] < (last - first) * 0.999 ? range : null;
  graphs[0].updateOptions({dateWindow: (shown || wholeRun).slice()});
  tellWindow();
}

function tellWindow() {
  const [from, to] = shown || wholeRun, end = clock(data.window[1], true);
  const why = data.opening && shown && String(shown) === String(data.opening) ? ", where most happens" : "";
  document.getElementById("shown").textContent = shown
    ? `Shown: ${clock(from, true)} to ${clock(to, true)} of ${end}${why}.` : `Shown: the whole run, ${end}.`;
  document.getElementById("whole").hidden = document.getElementById("wider").disabled = shown === null;
  document.getElementById("earlier").disabled = from <= wholeRun[0];
  document.getElementById("later").disabled = to >= wholeRun[1];
}

// A button changes the width around the time that is pointed at, else around the middle, or the place by half a width.
function stretch(factor) {
  const [from, to] = shown || wholeRun, row = graphs[0].getSelection();
  const pointed = row < 0 ? null : data.times[row], middle = (from + to) / 2;
  const around = pointed !== null && pointed >= from && pointed <= to ? pointed : middle;
  zoom([around - (around - from) * factor, around + (to - around) * factor]);
}

function shift(share) {
  const [from, to] = shown || wholeRun;
  zoom([from + (to - from) * share, to + (to - from) * share]);
}

function showBands(from, to) {
  for (const graph of graphs) {
    const style = graph.plot.band.style;
    graph.plot.band.hidden = from === to;
    style.left = Math.min(from, to) + "px";
    style.width = Math.abs(to - from) + "px";
    style.height = graph.getArea().h + "px";
  }
}

function dragZoom(event, graph) {
  if (event.button !== 0) return;
  event.preventDefault();
  const area = graph.getArea(), left = graph.graphDiv.getBoundingClientRect().left;
  const place = at => Math.min(area.x + area.w, Math.max(area.x, at.clientX - left));
  const start = place(event);
  const move = at => showBands(start, place(at));
  const up = at => {
    document.removeEventListener("mousemove", move);
    document.removeEventListener("mouseup", up);
    showBands(0, 0);
    const ends = [start, place(at)].sort((a, b) => a - b);
    if (ends[1] - ends[0] >= 5) zoom(ends.map(x => graph.toDataXCoord(x)));
  };
  document.addEventListener("mousemove", move);
  document.addEventListener("mouseup", up);
}

// A finger reads values as a pointer does, and goes on reading while it moves sideways; up and down it scrolls the page.
function readByTouch(place) {
  const read = event => {
    if (event.pointerType === "mouse" || event.type === "pointermove" && !event.isPrimary) return;
    const canvases = place.querySelectorAll("canvas");
    canvases[canvases.length - 1].dispatchEvent(new MouseEvent("mousemove",
      {bubbles: true, clientX: event.clientX, clientY: event.clientY}));
  };
  place.addEventListener("pointerdown", read);
  place.addEventListener("pointermove", read);
}

function startWindow() {
  if (graphs.length === 0) return;
  document.getElementById("zoom").hidden = false;
  const actions = {earlier: () => shift(-0.5), closer: () => stretch(0.5), wider: () => stretch(2), later: () => shift(0.5),
    whole: () => zoom(null)};
  for (const [id, action] of Object.entries(actions)) document.getElementById(id).addEventListener("click", action);
  zoom(data.opening);
}
