// Legends of the plots: the series, and while the pointer is on a plot their values there.

const STATES = {broadcast: "carries broadcast", down: "link down", storm: "storm", "": "no broadcast"};

function rowAt(time) {
  let low = 0, high = data.times.length - 1;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    if (data.times[middle] <= time) low = middle; else high = middle - 1;
  }
  return low;
}

function legendItem(swatch, label, value) {
  const item = element("span");
  if (swatch) item.append(swatch);
  item.append(label);
  if (value !== undefined) item.append(element("output", "", value));
  return item;
}

function seriesLegend(plot, time) {
  const row = time === undefined ? -1 : rowAt(time);
  return plot.series.map(series => legendItem(plot.kind === "lines" ? lineSwatch(series) : blockSwatch(series.colour),
    series.label, row < 0 ? "" : number(series.values[row])));
}

function laneState(lane, time) {
  const here = lane.spans.filter(([from, to]) => from <= time && time < to);
  const [, , state, ports] = here[here.length - 1] || [0, 0, lane.colour === "alarm" ? "none" : ""];
  return (STATES[state] || state) + (ports ? " of " + ports : "");
}

function laneLegend(plot, time) {
  if (time === undefined) {
    return [legendItem(blockSwatch("with"), "carries broadcast (in the colour of the path)"),
      legendItem(hatchSwatch("down"), "link down"), legendItem(hatchSwatch("alarm"), "storm")];
  }
  return plot.lanes.map(lane => {
    const item = legendItem(null, lane.label + (lane.colour === "alarm" ? " " + lane.detail : "") + ":");
    item.append(element("b", "", laneState(lane, time)));
    return item;
  });
}
const hatchSwatch = colour => shape("block " + colour, "0 0 14 14", "path",
  {d: "M0 14 14 0M-4 7 7-4M7 18 18 7", stroke: "currentColor", "stroke-width": 3});

function legend(plot, time) {
  const made = document.createDocumentFragment();
  const items = plot.kind === "lanes" ? laneLegend(plot, time) : seriesLegend(plot, time);
  made.append(...items, element("output", "time", time === undefined ? "" : "at " + clock(time, true)));
  if (plot.hair) showHair(plot, time);
  return made;
}

function showHair(plot, time) {
  plot.hair.hidden = time === undefined;
  if (time === undefined) return;
  const area = plot.graph.getArea();
  plot.hair.style.left = plot.graph.toDomXCoord(time) + "px";
  plot.hair.style.height = area.h + "px";
}
