// What all parts of the report's script use: its data, time and numbers as text, small pieces of the page.
const data = JSON.parse(document.getElementById("data").textContent);
const root = document.documentElement;
// A little longer than the run: the library leaves out a label at the very end of an axis.
const wholeRun = [data.window[0], data.window[1] + (data.window[1] - data.window[0]) * 1e-6];

const variable = name => getComputedStyle(root).getPropertyValue("--" + name).trim();
const two = number => String(number).padStart(2, "0");

// Time as the axis and the legends write it: 4:07, or 1:04 and 1:04:07 in a run of an hour and more.
const long = data.window[1] >= 3600;
function clock(seconds, fine) {
  const whole = Math.floor(seconds + 1e-6), rest = two(whole % 60);
  const part = fine && data.tick < 1 ? "." + Math.floor((seconds - whole) * 10 + 1e-6) : "";
  if (!long) return Math.floor(whole / 60) + ":" + rest + part;
  const hours = Math.floor(whole / 3600) + ":" + two(Math.floor(whole / 60) % 60);
  return fine ? hours + ":" + rest + part : hours;
}

const STEPS = [0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400, 28800, 86400];
function timeTicks(from, to, pixels) {
  const wanted = (to - from) * 75 / pixels;
  const step = STEPS.find(one => one >= wanted && one >= Math.min(1, data.tick)) || 7 * 86400;
  const fine = step < (long ? 60 : 1);
  const ticks = [];
  for (let n = Math.ceil(from / step - 1e-9); n * step <= to + 1e-9; n++) {
    ticks.push({v: n * step, label: clock(n * step, fine)});
  }
  return ticks;
}

function number(value) {
  if (value === null || value === undefined) return "–";
  return Math.abs(value) >= 1000 ? value.toFixed(0) : String(Math.round(value * 10) / 10);
}

function element(name, className, text) {
  const made = document.createElement(name);
  if (className) made.className = className;
  if (text !== undefined) made.textContent = text;
  return made;
}

function shape(className, box, tag, attributes) {
  const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
  const inner = document.createElementNS(svg.namespaceURI, tag);
  svg.setAttribute("class", className);
  svg.setAttribute("viewBox", box);
  svg.setAttribute("aria-hidden", "true");
  for (const [key, value] of Object.entries(attributes)) inner.setAttribute(key, value);
  svg.append(inner);
  return svg;
}
const lineSwatch = series => shape("swatch " + series.colour, "0 0 30 8", "line",
  {x1: 0, y1: 4, x2: 30, y2: 4, "stroke-dasharray": series.dash.join(" ") || "none"});
const blockSwatch = colour => shape("block " + colour, "0 0 14 14", "rect", {width: 14, height: 14});
