// What is drawn above, under and over the lines of a plot: events, moves, storms, the threshold, the lanes.

// Markers above the plots: numbered events, moves in the colour of the path that they went to

const LANE = 32, CLUSTER = 36; // pixels: height of a lane, width in which moves become one marker

function visible(graph, time) {
  const [from, to] = graph.xAxisRange();
  return time >= from && time <= to;
}

const eventLabel = ({first, last}) => first === last ? String(first) : first + "–" + last;
const FINGER = matchMedia("(pointer: coarse)").matches ? 34 : 0; // pixels that a marker takes at the least
const labelWidth = cluster => Math.max(FINGER, 12 + 7 * eventLabel(cluster).length);

// Events whose numbers would lie on each other share a marker. One that the next event will join needs more room.
function eventClusters(graph) {
  const clusters = [], places = data.events.map(([time]) => graph.toDomXCoord(time));
  data.events.forEach(([time, text], index) => {
    if (!visible(graph, time)) return;
    const x = places[index], fresh = {x, first: index + 1, last: index + 1, time, texts: [text]};
    const room = labelWidth({first: index + 1, last: places[index + 1] - x < Math.max(24, FINGER) ? index + 2 : index + 1});
    const before = clusters[clusters.length - 1];
    if (before && x - before.x < (labelWidth(before) + room) / 2 + 1) {
      before.last = index + 1;
      before.texts.push(text);
    } else {
      clusters.push(fresh);
    }
  });
  return clusters;
}

const TOLD = 8; // what more there is, the list has

// A marker is a button that tells its fact. The same events stand above each plot: a keyboard finds them once.
function marker(className, text, fact, x, reachable) {
  const made = element("button", className, text);
  made.type = "button";
  made.dataset.fact = fact;
  made.tabIndex = reachable ? 0 : -1;
  made.style.left = x + "px";
  return made;
}

function drawEvents(plot) {
  const rail = plot.figure.querySelector(".rail.events");
  rail.hidden = data.events.length === 0;
  rail.replaceChildren(element("span", "name", "events"));
  for (const cluster of eventClusters(plot.graph)) {
    const lines = cluster.texts.slice(0, TOLD).map((text, index) =>
      `${cluster.first + index}: ${clock(data.events[cluster.first + index - 1][0], true)} ${text}`);
    const fact = lines.join("\n") + (cluster.texts.length > TOLD ? "\n…" : "");
    const badge = marker("", eventLabel(cluster), fact, cluster.x, plot === data.plots[0]);
    if (document.getElementById("event-" + cluster.first)) badge.dataset.row = "event-" + cluster.first;
    rail.append(badge);
  }
}

const pathLabel = name => name in data.names ? data.names[name].label : name || "no path";

// One row per path that streams went to in what is shown; moves that would lie on each other become one marker with their number.
function moveRows(graph) {
  const targets = new Set(data.moves.map(move => move[2]));
  const order = Object.keys(data.names).filter(name => targets.has(name));
  return [...new Set([...order, ...targets])].map(target =>
    ({target, clusters: moveClusters(graph, data.moves.filter(move => move[2] === target))}))
    .filter(row => row.clusters.length > 0);
}

function moveClusters(graph, moves) {
  const clusters = [];
  for (const [time, origin, , count] of moves.filter(([at]) => visible(graph, at))) {
    const x = graph.toDomXCoord(time);
    let cluster = clusters[clusters.length - 1];
    if (!cluster || x - cluster.x >= CLUSTER) {
      cluster = {x, time, count: 0, origins: new Map()};
      clusters.push(cluster);
    }
    cluster.until = time;
    cluster.count += count;
    cluster.origins.set(origin, (cluster.origins.get(origin) || 0) + count);
  }
  return clusters;
}

const pathColour = name => name in data.names ? data.names[name].colour : "path-other";

function moveMarker(cluster, target) {
  const ways = [...cluster.origins].map(([origin, count]) => `${count} × ${pathLabel(origin)} → ${pathLabel(target)}`);
  const until = cluster.until > cluster.time ? " to " + clock(cluster.until, true) : "";
  const made = marker(pathColour(target), "▼", [clock(cluster.time, true) + until, ...ways].join("\n"), cluster.x, true);
  made.append(element("small", "", cluster.count > 1 ? cluster.count : ""));
  return made;
}

function drawMoves(plot) {
  const place = plot.figure.querySelector(".moves");
  if (!place) return;
  place.replaceChildren(...moveRows(plot.graph).map(({target, clusters}) => {
    const rail = element("div", "rail");
    rail.append(element("span", "name", "→ " + pathLabel(target)));
    rail.append(...clusters.map(cluster => moveMarker(cluster, target)));
    return rail;
  }));
}

// Under the lines: events, moves, storms, the threshold

function verticals(context, area, graph, times, colour, dash) {
  context.strokeStyle = colour;
  context.setLineDash(dash);
  context.lineWidth = 1;
  context.beginPath();
  for (const time of times) {
    const x = Math.round(graph.toDomXCoord(time)) + 0.5;
    context.moveTo(x, area.y);
    context.lineTo(x, area.y + area.h);
  }
  context.stroke();
  context.setLineDash([]);
}

function hatch(context, colour, backing) {
  const tile = element("canvas");
  tile.width = tile.height = 8;
  const pen = tile.getContext("2d");
  pen.fillStyle = backing;
  pen.fillRect(0, 0, 8, 8);
  pen.strokeStyle = colour;
  pen.lineWidth = 2.4;
  pen.beginPath();
  for (const shift of [-8, 0, 8]) {
    pen.moveTo(shift - 2, 10);
    pen.lineTo(shift + 10, -2);
  }
  pen.stroke();
  return context.createPattern(tile, "repeat");
}

function box(graph, [from, to], y, height) {
  const left = graph.toDomXCoord(from);
  return [left, y, Math.max(2, graph.toDomXCoord(to) - left), height];
}

function drawThreshold(context, area, graph) {
  const y = Math.round(graph.toDomYCoord(data.threshold)) + 0.5;
  context.strokeStyle = variable("ink");
  context.lineWidth = 1;
  context.setLineDash([6, 3]);
  context.beginPath();
  context.moveTo(area.x, y);
  context.lineTo(area.x + area.w, y);
  context.stroke();
  context.setLineDash([]);
}

function plotText(context, text, x, y) {
  context.font = "11px system-ui, sans-serif";
  context.lineJoin = "round";
  context.lineWidth = 3;
  context.strokeStyle = variable("surface");
  context.strokeText(text, x, y);
  context.fillText(text, x, y);
}

function drawLanes(context, area, graph, lanes) {
  lanes.forEach((lane, index) => {
    const top = area.y + index * LANE;
    context.fillStyle = variable("grid");
    context.fillRect(area.x, top + LANE - 1, area.w, 1);
    const styles = {broadcast: variable(lane.colour), down: hatch(context, variable("down"), "transparent"),
      storm: hatch(context, variable("alarm"), variable("alarm-back"))};
    for (const span of lane.spans) {
      const thin = span[2] === "storm" && lane.colour !== "alarm"; // a storm lies over the state of its path
      context.fillStyle = styles[span[2]];
      context.fillRect(...box(graph, span, top + (thin ? LANE - 13 : 5), thin ? 8 : LANE - 11));
    }
    context.fillStyle = variable("muted");
    if (lane.colour === "alarm" && lane.spans.length === 0) plotText(context, "none", area.x + 6, top + 18);
  });
}

function drawMoveLines(context, area, graph) {
  context.globalAlpha = 0.4;
  for (const {target, clusters} of moveRows(graph)) {
    verticals(context, area, graph, clusters.map(cluster => cluster.time), variable(pathColour(target)), []);
  }
  context.globalAlpha = 1;
}

// Many events draw one line every few pixels, paler: what lies below stays readable.
function drawEventLines(context, area, graph) {
  const times = [];
  for (const [time] of data.events) {
    const x = graph.toDomXCoord(time);
    if (visible(graph, time) && (times.length === 0 || x - graph.toDomXCoord(times[times.length - 1]) >= 3)) {
      times.push(time);
    }
  }
  context.globalAlpha = times.length > 60 ? 0.35 : 1;
  verticals(context, area, graph, times, variable("muted"), [2, 4]);
  context.globalAlpha = 1;
}

function underlay(plot, context, area, graph) {
  if (plot.id === "total") {
    context.fillStyle = hatch(context, variable("alarm"), variable("alarm-back"));
    for (const storm of data.storms) context.fillRect(...box(graph, storm, area.y, 9));
  }
  if (plot.id === "utilisation") drawMoveLines(context, area, graph);
  if (plot.kind !== "lanes") drawEventLines(context, area, graph);
}

// What must stay readable lies over lines and grid.
function overlay(plot, graph) {
  const context = graph.graphDiv.querySelector("canvas").getContext("2d"), area = graph.getArea();
  if (plot.id === "utilisation" && typeof data.threshold === "number") drawThreshold(context, area, graph);
  if (plot.kind === "lanes") {
    drawLanes(context, area, graph, plot.lanes);
    drawEventLines(context, area, graph);
  }
}
