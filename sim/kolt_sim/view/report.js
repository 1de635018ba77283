// The plots: all share one time axis, one zoom and one hover.

function rows(plot) {
  const columns = plot.kind === "lanes" ? plot.lanes.map(() => data.times.map(() => 0.5))
    : plot.series.map(series => series.values);
  const made = data.times.map((time, row) => [time, ...columns.map(column => column[row])]);
  return [...made, [data.end, ...made[made.length - 1].slice(1)]]; // the last tick lasts until its end
}

function colours(plot) {
  const names = (plot.lanes || plot.series).map(one => one.colour);
  return {colors: names.map(variable), axisLineColor: variable("rule"), gridLineColor: variable("grid")};
}

function valueRange(plot) {
  if (plot.kind === "lanes") return [0, 1];
  if (plot.percent) return [0, Math.max(104, ...plot.series.map(series => Math.max(...series.values) * 1.04))];
  const highest = Math.max(...plot.series.map(series => Math.max(...series.values)));
  return highest > 0 ? undefined : [0, 1]; // all zero: the library would centre the line
}

function seriesOptions(plot) {
  if (plot.kind === "lanes") return {};
  const lines = plot.kind === "lines";
  return Object.fromEntries(plot.series.map(series => [series.label, {
    strokePattern: lines && series.dash.length ? series.dash : null, strokeWidth: lines ? series.width : 1,
    fillGraph: !lines || series.colour === "demand", fillAlpha: lines ? 0.14 : 0.72}]));
}

function axisLabel(plot, value) {
  const blank = plot.kind === "lanes" || plot.kind === "steps" && value % 1 !== 0; // there is no half a client
  return blank ? "" : number(value);
}

function options(plot) {
  const lanes = plot.kind === "lanes";
  return {
    ...colours(plot), series: seriesOptions(plot), valueRange: valueRange(plot), includeZero: true,
    labels: ["time", ...(lanes ? plot.lanes.map((_, index) => "lane " + index) : plot.series.map(one => one.label))],
    labelsDiv: plot.figure.querySelector(".legend"), legend: "always", legendFormatter: at => legend(plot, at.x),
    dateWindow: wholeRun.slice(), stackedGraph: plot.kind === "stack" || plot.kind === "steps",
    stepPlot: plot.kind === "steps", rightGap: 10,
    strokeWidth: lanes ? 0 : 1.8, highlightCircleSize: lanes ? 0 : 3.5, gridLineWidth: 1,
    axes: {
      x: {ticker: timeTicks, drawGrid: true, axisLabelWidth: 60},
      y: {axisLabelWidth: parseInt(variable("axis"), 10), axisLabelFormatter: value => axisLabel(plot, value),
        pixelsPerLabel: 32, drawGrid: !lanes},
    },
    interactionModel: {mousedown: dragZoom, dblclick: () => zoom(null)},
    underlayCallback: (context, area, graph) => underlay(plot, context, area, graph),
    drawCallback: graph => { plot.graph = graph; drawEvents(plot); drawMoves(plot); overlay(plot, graph); forgetFact(); },
  };
}

function laneNames(plot) {
  const names = element("div", "names");
  names.style.height = plot.lanes.length * LANE + "px";
  for (const lane of plot.lanes) {
    const name = element("div", "", lane.label);
    name.append(element("small", "", lane.detail));
    names.append(name);
  }
  return names;
}

function build(plot) {
  plot.figure = document.getElementById("plot-" + plot.id);
  const area = plot.figure.querySelector(".area"), place = plot.figure.querySelector(".plot");
  if (plot.kind === "lanes") {
    place.style.height = plot.lanes.length * LANE + 24 + "px";
    area.append(laneNames(plot));
  }
  readByTouch(place);
  const graph = new Dygraph(place, rows(plot), options(plot));
  plot.hair = element("div", "hair");
  plot.band = element("div", "band");
  plot.hair.hidden = plot.band.hidden = true;
  area.append(plot.hair, plot.band);
  graph.plot = plot;
  graphs.push(graph);
}

function restyle() {
  for (const graph of graphs) graph.updateOptions(colours(graph.plot));
}

// Paper is light and narrow whatever the screen is.
function printing(on) {
  root.classList.toggle("printing", on);
  if (on) root.dataset.theme = "light"; else delete root.dataset.theme;
  for (const graph of graphs) graph.resize();
  restyle();
}

data.plots.forEach(build);
if (graphs.length > 1) Dygraph.synchronize(graphs, {range: false});
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", restyle);
addEventListener("beforeprint", () => printing(true));
addEventListener("afterprint", () => printing(false));
startWindow();
